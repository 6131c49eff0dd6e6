#include <gtest/gtest.h>

#include <string>

#include "platform/world/AsciiCase.h"
#include "tests/http/modern/ReadRequests.h"

namespace TesselServer::Modern {
namespace {

// The first request of `text`, which has to be valid.
Request RequestOf(std::string_view text) {
  Request request;
  RequestReader reader;
  reader.Begin({});
  EXPECT_EQ(reader.Next(text, request).state, RequestReader::State::kHead) << text;
  return request;
}

std::string WithFields(std::string_view fields) {
  return std::string("GET / HTTP/1.1\r\nHost: a\r\n").append(fields).append("\r\n");
}

TEST(ModernRequestTest, HasItsPartsAsTheyWereSent) {
  const auto request = RequestOf("\r\nPOST /a%20b//?q=%20&r=? HTTP/1.1\nHost:  a:80 \r\nX: \t1\r\nx:\r\n\r\nbody");
  EXPECT_EQ(request.Head(), "POST /a%20b//?q=%20&r=? HTTP/1.1\nHost:  a:80 \r\nX: \t1\r\nx:\r\n");
  EXPECT_EQ(request.Line(), "POST /a%20b//?q=%20&r=? HTTP/1.1");
  EXPECT_EQ(request.Method(), "POST");
  EXPECT_EQ(request.Target(), "/a%20b//?q=%20&r=?");
  EXPECT_EQ(request.Path(), "/a b/");
  EXPECT_EQ(request.Query(), "q=%20&r=?");
  EXPECT_EQ(request.Host(), "a:80");
  ASSERT_EQ(request.FieldCount(), 3u);
  EXPECT_EQ(request.FieldName(1), "X");
  EXPECT_EQ(request.FieldValue(1), "1");
  EXPECT_EQ(request.FieldName(2), "x");
  EXPECT_EQ(request.FieldValue(2), "");
}

TEST(ModernRequestTest, TargetsNameAPathAndAQuery) {
  const struct {
    const char *line, *path, *query;
    bool hasQuery, isAsterisk;
    const char *host, *why;
  } cases[] = {
      {"GET / HTTP/1.1", "/", "", false, false, "a", "the root"},
      {"GET /? HTTP/1.1", "/", "", true, false, "a", "an empty query"},
      {"GET /?a/../b HTTP/1.1", "/", "a/../b", true, false, "a", "no path in a query"},
      {"GET /?%zz HTTP/1.1", "/", "%zz", true, false, "a", "nor a percent code"},
      {"GET /a?b?c HTTP/1.1", "/a", "b?c", true, false, "a", "the first mark counts"},
      {"GET //b/c HTTP/1.1", "/b/c", "", false, false, "a", "two slashes name no host"},
      {"GET /http://b/c HTTP/1.1", "/http:/b/c", "", false, false, "a", "nor does a scheme behind a slash"},
      {"GET http://b/c?d HTTP/1.1", "/c", "d", true, false, "b", "the host of the target counts"},
      {"GET http://b:8080 HTTP/1.1", "/", "", false, false, "b:8080", "no path is the root"},
      {"GET http://b?c HTTP/1.1", "/", "c", true, false, "b", "nor with a query"},
      {"OPTIONS * HTTP/1.1", "", "", false, true, "a", "the server itself"},
      {"OPTIONS http://b HTTP/1.1", "", "", false, true, "b", "as it is sent to a proxy (RFC 9112 3.2.4)"},
      {"OPTIONS http://b/ HTTP/1.1", "/", "", false, false, "b", "the root of it"},
      {"OPTIONS http://b?c HTTP/1.1", "/", "c", true, false, "b", "the root with a query"},
      {"OPTIONS /* HTTP/1.1", "/*", "", false, false, "a", "a name"},
      {"CONNECT b:80 HTTP/1.1", "", "", false, false, "b:80", "a tunnel has no path"},
      {"CONNECT /b HTTP/1.1", "/b", "", false, false, "a", "refused by its method whatever it names"},
  };
  for (const auto& c : cases) {
    const auto request = RequestOf(std::string(c.line) + "\r\nHost: a\r\n\r\n");
    EXPECT_EQ(request.Path(), c.path) << c.why;
    EXPECT_EQ(request.Query(), c.query) << c.why;
    EXPECT_EQ(request.HasQuery(), c.hasQuery) << c.why;
    EXPECT_EQ(request.IsAsterisk(), c.isAsterisk) << c.why;
    EXPECT_EQ(request.Host(), c.host) << c.why;
    EXPECT_EQ(request.PathStatus(), 0) << c.why;
  }
}

TEST(ModernRequestTest, APathThatNamesNothingIsKnownWithTheHead) {
  const struct {
    const char* target;
    int status;
    bool isHidden;
  } cases[] = {{"/", 0, false},      {"/%zz", 400, false}, {"/%2F", 400, false},        {"/..", 400, false},
               {"/.git", 0, true},   {"/%2egit", 0, true}, {"/.well-known/", 0, false}, {"http://b/..", 400, false},
               {"/a/../.b", 0, true}};
  for (const auto& c : cases) {
    const auto request = RequestOf(std::string("GET ") + c.target + " HTTP/1.1\r\nHost: a\r\n\r\n");
    EXPECT_EQ(request.PathStatus(), c.status) << c.target;
    EXPECT_EQ(request.HasHiddenSegment(), c.isHidden) << c.target;
    EXPECT_EQ(request.Path().empty(), c.status != 0) << c.target;
  }
}

TEST(ModernRequestTest, FieldsAreFoundByTheirWholeName) {
  const auto request = RequestOf(WithFields("Accept: x\r\nACCEPT-Language: y\r\n"));
  std::string joined;
  EXPECT_EQ(request.Field("accept", joined), "x");
  EXPECT_EQ(request.Field("Accept-LANGUAGE", joined), "y");
  EXPECT_EQ(request.Field("Accept-", joined), "");
  EXPECT_EQ(request.Field("", joined), "");
  EXPECT_TRUE(request.Has("aCCEPT"));
  EXPECT_FALSE(request.Has("Accep"));
  EXPECT_FALSE(request.Has("Accept:"));
  EXPECT_EQ(joined, "") << "a single field is not copied";
}

TEST(ModernRequestTest, SeveralFieldsOfOneNameAreJoinedInTheOrderSent) {
  const struct {
    const char *fields, *name, *value, *why;
  } cases[] = {
      {"X: 1\r\nY: 2\r\nx: 3\r\n", "X", "1, 3", "with others between"},
      {"X: 1\r\nX: 2\r\nX: 3\r\n", "x", "1, 2, 3", "three"},
      {"X:\r\nX: 2\r\nX:\r\n", "X", ", 2, ", "empty ones are part of the list"},
      {"Cookie: a=1\r\ncookie: b=2\r\n", "COOKIE", "a=1; b=2", "cookies (RFC 6265 4.2.1)"},
      {"Cookie: a=1, 2\r\n", "Cookie", "a=1, 2", "one is left as it is"},
      {"Accept: a\r\nAccept: b, c\r\n", "Accept", "a, b, c", "lists"},
  };
  for (const auto& c : cases) EXPECT_EQ(RequestOf(WithFields(c.fields)).Field(c.name), c.value) << c.why;
}

TEST(ModernRequestTest, FieldsThatCountOnceAreThereOnce) {
  for (const std::string name :
       {"Authorization", "Content-Type", "Range", "If-Range", "If-Modified-Since", "If-Unmodified-Since", "Host"}) {
    std::string other = name;
    other[1] = UpperAscii(other[1]);
    ExpectRead(WithFields(name + ": x\r\n" + other + ": x\r\n"), "400", "two of one name, whatever case they are in");
    if (name != "Host") ExpectRead(WithFields(name + ": x\r\n"), "GET /", "one");
  }
  for (const std::string name :
       {"Accept", "If-Match", "If-None-Match", "Cookie", "Via", "Proxy-Connection", "X-Range"}) {
    ExpectRead(WithFields(name + ": x\r\n" + name + ": y\r\n"), "GET /", "a list, or of no meaning here");
  }
}

TEST(ModernRequestTest, KeepsOpenAsTheClientAsks) {
  const struct {
    const char *line, *fields;
    bool keepsOpen;
    const char* why;
  } cases[] = {
      {"GET / HTTP/1.1", "", true, "HTTP/1.1 goes on"},
      {"GET / HTTP/1.1", "Connection: close\r\n", false, "unless asked"},
      {"GET / HTTP/1.1", "Connection: CLOSE\r\n", false, "in any case"},
      {"GET / HTTP/1.1", "connection: TE, close , x\r\n", false, "in a list"},
      {"GET / HTTP/1.1", "Connection: te\r\nConnection: close\r\n", false, "in a second line"},
      {"GET / HTTP/1.1", "Connection: closed\r\n", true, "a longer word is another"},
      {"GET / HTTP/1.1", "Connection: not close\r\n", true, "so are two"},
      {"GET / HTTP/1.1", "Connection: close, keep-alive\r\n", false, "close counts before keep-alive (RFC 9112 9.3)"},
      {"GET / HTTP/1.1", "Connection: upgrade, keep-alive\r\n", true, "other options say nothing"},
      {"GET / HTTP/1.1", "Connection:\r\n", true, "nor does an empty one"},
      {"GET / HTTP/1.1", "Proxy-Connection: close\r\n", true, "nor does another field"},
      {"GET / HTTP/1.2", "", true, "a later version is read as 1.1"},
      {"GET / HTTP/1.0", "", false, "HTTP/1.0 does not"},
      {"GET / HTTP/1.0", "Connection: keep-alive\r\n", true, "unless asked"},
      {"GET / HTTP/1.0", "Connection: Keep-Alive\r\n", true, "as it is written mostly"},
      {"GET / HTTP/1.0", "Connection: keep-alive, close\r\n", false, "close counts"},
      {"CONNECT b:80 HTTP/1.1", "", false, "what follows may be for the other end of a tunnel"},
  };
  for (const auto& c : cases) {
    const auto request = RequestOf(std::string(c.line) + "\r\nHost: a\r\n" + c.fields + "\r\n");
    EXPECT_EQ(request.KeepsOpen(), c.keepsOpen) << c.line << " " << c.fields << ": " << c.why;
  }
}

TEST(ModernRequestTest, ExpectsWhatTheClientWaitsFor) {
  using enum Request::Expectation;
  const struct {
    const char *line, *fields;
    Request::Expectation expects;
    const char* why;
  } cases[] = {
      {"PUT / HTTP/1.1", "", kNone, "nothing"},
      {"PUT / HTTP/1.1", "Expect: 100-continue\r\n", kContinue, "to be told to go on"},
      {"PUT / HTTP/1.1", "expect: 100-Continue\r\n", kContinue, "in any case (RFC 9110 10.1.1)"},
      {"PUT / HTTP/1.1", "Expect: 100-continue\r\nExpect: 100-continue\r\n", kContinue, "twice"},
      {"PUT / HTTP/1.1", "Expect: x\r\n", kUnknown, "something else"},
      {"PUT / HTTP/1.1", "Expect: 100-continue, x\r\n", kUnknown, "something else, too"},
      {"PUT / HTTP/1.1", "Expect: x, 100-continue\r\n", kUnknown, "before it"},
      {"PUT / HTTP/1.1", "Expect: 100-continue=1\r\n", kUnknown, "with a value"},
      {"PUT / HTTP/1.1", "Expect: 100\r\n", kUnknown, "a part of the word"},
      {"PUT / HTTP/1.1", "Expect:\r\n", kNone, "an empty list"},
      {"PUT / HTTP/1.0", "Expect: 100-continue\r\n", kNone, "HTTP/1.0 knows none"},
      {"PUT / HTTP/1.0", "Expect: x\r\n", kNone, "nor another"},
  };
  for (const auto& c : cases) {
    const auto request = RequestOf(std::string(c.line) + "\r\nHost: a\r\n" + c.fields + "Content-Length: 3\r\n\r\n");
    EXPECT_EQ(request.Expects(), c.expects) << c.line << " " << c.fields << ": " << c.why;
  }
}

TEST(ModernRequestTest, SaysHowLongItsBodyIs) {
  auto request = RequestOf(WithFields(""));
  EXPECT_EQ(request.ContentLength(), std::nullopt);
  EXPECT_FALSE(request.HasBody());
  request = RequestOf(WithFields("Content-Length: 0\r\n"));
  EXPECT_EQ(request.ContentLength(), 0);
  EXPECT_FALSE(request.HasBody());
  request = RequestOf(WithFields("Content-Length: 67108864\r\n"));
  EXPECT_EQ(request.ContentLength(), 67108864);
  EXPECT_TRUE(request.HasBody());
  EXPECT_FALSE(request.IsChunked());
  request = RequestOf(WithFields("Transfer-Encoding: chunked\r\n"));
  EXPECT_EQ(request.ContentLength(), std::nullopt);
  EXPECT_TRUE(request.HasBody());
  EXPECT_TRUE(request.IsChunked());
}

TEST(ModernRequestTest, LaterVersionsAreReadAsTheLastOneKnown) {
  for (const auto& [version, minor] : {std::pair("1.0", 0), {"1.1", 1}, {"1.2", 1}, {"1.9", 1}}) {
    const auto request = RequestOf(std::string("GET / HTTP/") + version + "\r\nHost: a\r\n\r\n");
    EXPECT_EQ(request.MinorVersion(), minor) << version;
  }
}

TEST(ModernRequestTest, MovesWithItsViews) {
  Request short_ = RequestOf("GET /a%20 HTTP/1.0\r\n\r\n");  // so short that a text keeps it within itself
  const Request moved = std::move(short_);
  EXPECT_EQ(moved.Method(), "GET");
  EXPECT_EQ(moved.Path(), "/a ");
}

TEST(ModernRequestTest, ResetForgetsAllOfIt) {
  Request request = RequestOf("POST http://b/a%20?c HTTP/1.0\r\nConnection: keep-alive\r\nContent-Length: 3\r\n\r\n");
  request.Reset();
  EXPECT_EQ(Details(request), Details(Request()));
}

}  // namespace
}  // namespace TesselServer::Modern
