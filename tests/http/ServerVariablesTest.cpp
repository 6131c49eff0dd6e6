#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "http/ServerVariables.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

// A dotted address as the name service knows it.
std::uint32_t Address(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
  const std::uint8_t bytes[] = {a, b, c, d};
  std::uint32_t address;
  std::memcpy(&address, bytes, sizeof address);
  return address;
}

class ServerVariablesTest : public testing::Test {
 protected:
  ServerVariablesTest() {
    settings_.virtualPath = "/srv/www";
    settings_.serverIP = "192.0.2.1";
    settings_.serverPort = "8080";
    settings_.serverSoftware = "Orvane Tessel/1.1";
    settings_.serverName = "www.example.test";
    request_.RequestFile = "\\SRV\\WWW\\DOCS\\A.HTM";
    request_.RemoteAddr = "192.0.2.7";
    request_.UserAgent = "Agent/1.0";
    request_.QueryString = "a=1&b=2";
    request_.DocumentURI = "/docs/a.htm";
    request_.ScriptName = "a.htm";
    request_.Accept = "text/*";
    request_.Referer = "http://example.test/";
    request_.ContentLength = "20";
    request_.ContentType = "text/plain";
    request_.RequestMethod = "POST";
    request_.RemoteUser = "anna";
    world_.hostNames[Address(192, 0, 2, 7)] = "client.example.test";
  }

  std::string Value(std::string_view name) { return ServerVariableValue(name, {settings_, request_, world_}); }

  Kit::FakeWorld world_;
  RecordSettings settings_;
  RequestInfo request_;
};

TEST_F(ServerVariablesTest, HasTheirNamesAndValuesInTableOrder) {
  const struct {
    const char *name, *value;
  } cases[] = {
      {"AUTH_TYPE", "Basic"},
      {"CONTENT_LENGTH", "20"},
      {"CONTENT_TYPE", "text/plain"},
      {"GATEWAY_INTERFACE", "CGI/1.1"},
      {"HTTP_ACCEPT", "text/*"},
      {"HTTP_REFERER", "http://example.test/"},
      {"HTTP_USER_AGENT", "Agent/1.0"},
      {"PATH_INFO", "/srv/www"},
      {"PATH_TRANSLATED", "/srv/www"},
      {"QUERY_STRING", "a=1&b=2"},
      {"REMOTE_ADDR", "192.0.2.7"},
      {"REMOTE_HOST", "client.example.test"},
      {"REMOTE_USER", "anna"},
      {"REQUEST_METHOD", "POST"},
      {"SCRIPT_NAME", "a.htm"},
      {"SERVER_NAME", "www.example.test"},
      {"SERVER_PORT", "8080"},
      {"SERVER_PROTOCOL", "HTTP/1.0"},
      {"SERVER_SOFTWARE", "Orvane Tessel/1.1"},
      {"SERVER_IP", "192.0.2.1"},
      {"TIME", "06:20:05PM"},
      {"DATE", "11/15/2026"},
      {"DATE_LOCAL", "11/15/2026"},
      {"DATE_GMT", "Sun, 15 Nov 2026 18:20:05 GMT"},
      {"COUNTER", ""},
      {"DAY_OF_WEEK", "Sunday"},
      {"DOCUMENT_NAME", "a.htm"},
      {"DOCUMENT_URI", "/docs/a.htm"},
      {"DOCUMENT_URL", "/docs/a.htm"},
  };
  ASSERT_EQ(std::size(cases), kServerVariableCount);
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(ServerVariableNames()[i], cases[i].name);
    EXPECT_EQ(Value(cases[i].name), cases[i].value) << cases[i].name;
  }
}

TEST_F(ServerVariablesTest, UnknownNamesGiveNothing) {
  for (const char* name : {"remote_addr", "Remote_Addr", "REMOTE_ADDR ", " REMOTE_ADDR", "REMOTE", "HTTP_COOKIE", ""}) {
    EXPECT_EQ(Value(name), "") << name;
  }
}

TEST_F(ServerVariablesTest, TimesAreLocalAndOnlyLabelledGMT) {
  const struct {
    std::int32_t bias;
    const char *time, *date, *dateGMT, *day;
  } cases[] = {
      {-60, "07:20:05PM", "11/15/2026", "Sun, 15 Nov 2026 19:20:05 GMT", "Sunday"},
      {-720, "06:20:05AM", "11/16/2026", "Mon, 16 Nov 2026 06:20:05 GMT", "Monday"},
      {300, "01:20:05PM", "11/15/2026", "Sun, 15 Nov 2026 13:20:05 GMT", "Sunday"},
      {-340, "12:00:05AM", "11/16/2026", "Mon, 16 Nov 2026 00:00:05 GMT", "Monday"},
      {380, "12:00:05PM", "11/15/2026", "Sun, 15 Nov 2026 12:00:05 GMT", "Sunday"},
  };
  for (const auto& c : cases) {
    world_.bias = [&c](std::int64_t) { return c.bias; };
    EXPECT_EQ(Value("TIME"), c.time) << c.bias;
    EXPECT_EQ(Value("DATE"), c.date) << c.bias;
    EXPECT_EQ(Value("DATE_LOCAL"), c.date) << c.bias;
    EXPECT_EQ(Value("DATE_GMT"), c.dateGMT) << c.bias;
    EXPECT_EQ(Value("DAY_OF_WEEK"), c.day) << c.bias;
  }
}

TEST_F(ServerVariablesTest, LooksTheRemoteHostUpAnewOnEachRead) {
  request_.RemoteHost = "old";
  EXPECT_EQ(Value("REMOTE_HOST"), "client.example.test");
  EXPECT_EQ(request_.RemoteHost, "client.example.test");
  world_.hostNames[Address(192, 0, 2, 7)] = "renamed.example.test";
  EXPECT_EQ(Value("REMOTE_HOST"), "renamed.example.test");
  EXPECT_EQ(request_.RemoteHost, "renamed.example.test");
  world_.hostNames.clear();
  EXPECT_EQ(Value("REMOTE_HOST"), "Unknown");
  EXPECT_EQ(request_.RemoteHost, "Unknown");
  request_.RemoteAddr.clear();
  EXPECT_EQ(Value("REMOTE_HOST"), "Unknown");
}

TEST_F(ServerVariablesTest, ARemoteHostThatWasNotFoundIsNotLookedUpAgain) {
  const std::string name = std::exchange(world_.hostNames[Address(192, 0, 2, 7)], "");
  EXPECT_EQ(Value("REMOTE_HOST"), "Unknown");
  world_.hostNames[Address(192, 0, 2, 7)] = name;
  EXPECT_EQ(Value("REMOTE_HOST"), "Unknown") << "each question may take a second";
}

TEST_F(ServerVariablesTest, ReadingAnyOtherVariableAsksNoNameService) {
  for (const std::string_view name : ServerVariableNames()) {
    if (name != "REMOTE_HOST") Value(name);
  }
  EXPECT_EQ(request_.RemoteHost, "");
}

}  // namespace
}  // namespace TesselServer
