// What a host asks about a request of the second manner, and how its answers leave.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/kit/ModernControl.h"

namespace TesselServer::Modern {
namespace {

class ModernHostAnswersTest : public Kit::ModernTest {
 protected:
  ModernHostAnswersTest() {
    tessel.TrapFileEnable(true);
    tessel.FileRequest = [this](std::int32_t& index, std::string& path, std::string& user) {
      path_ = path;
      user_ = user;
      answer_(index);
    };
  }

  // What the host's answer comes to for the client.
  std::string Answered(const std::string& code, const std::string& fields, std::string_view method = "GET") {
    answer_ = [&](std::int32_t index) { tessel.TrapFileDataEX(index, "data", false, "text/plain", code, fields); };
    return control.Ask(std::string(method).append(" /x HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n"));
  }

  std::function<void(std::int32_t)> answer_;
  std::string path_, user_;
};

TEST_F(ModernHostAnswersTest, LeaveWithTheirCodes) {
  Start();
  const struct {
    const char *code, *line;
  } cases[] = {
      {"200", "HTTP/1.1 200 OK"},
      {"201", "HTTP/1.1 201 Created"},
      {"299", "HTTP/1.1 299 OK"},
      {"404", "HTTP/1.1 404 Not Found"},
      {"503", "HTTP/1.1 503 Service Unavailable"},
      {"100", "HTTP/1.1 500 Internal Server Error"},
      {"99", "HTTP/1.1 500 Internal Server Error"},
      {"600", "HTTP/1.1 500 Internal Server Error"},
      {"abc", "HTTP/1.1 500 Internal Server Error"},
  };
  for (const auto& c : cases) {
    const std::string answer = Answered(c.code, "");
    EXPECT_EQ(answer.substr(0, answer.find("\r\n")), c.line) << c.code;
    EXPECT_EQ(Kit::BodyOf(answer), "data");
  }
  EXPECT_EQ(control.errors.size(), 4u) << "each that cannot be sent is reported";
}

TEST_F(ModernHostAnswersTest, MayHaveLinesOfTheirOwn) {
  Start();
  const std::string answer = Answered("200",
                                      "Cache-Control: max-age=5\r\nServer: mine\r\nX-One: 1\r\nContent-Length: 99\r\n"
                                      "Connection: upgrade\r\nTransfer-Encoding: chunked");
  EXPECT_EQ(FieldOf(answer, "Cache-Control"), "max-age=5");
  EXPECT_EQ(FieldOf(answer, "Server"), "mine");
  EXPECT_EQ(FieldOf(answer, "X-One"), "1");
  EXPECT_EQ(FieldOf(answer, "Content-Length"), "4");
  EXPECT_EQ(FieldOf(answer, "Connection"), "close");
  EXPECT_EQ(FieldOf(answer, "Transfer-Encoding"), "");
  EXPECT_EQ(FieldOf(answer, "X-Content-Type-Options"), "") << "the host knows best";
}

TEST_F(ModernHostAnswersTest, CannotBreakTheHeader) {
  Start();
  const std::string answer =
      Answered("200", std::string("X-Good: 1\r\nbad line\r\nX-Bad: a\rb\r\nX-Nul: a\0b\r\n", 45));
  EXPECT_EQ(FieldOf(answer, "X-Good"), "1");
  EXPECT_EQ(answer.find("bad line"), std::string::npos);
  EXPECT_EQ(answer.find("X-Bad"), std::string::npos);
  EXPECT_EQ(answer.find("X-Nul"), std::string::npos);
  EXPECT_EQ(control.errors.size(), 3u);
}

TEST_F(ModernHostAnswersTest, ToHeadAreTheHeaderAlone) {
  Start();
  const std::string head = Answered("200", "", "HEAD");
  EXPECT_EQ(FieldOf(head, "Content-Length"), "4");
  EXPECT_EQ(Kit::BodyOf(head), "");
}

TEST_F(ModernHostAnswersTest, TheHostReadsFieldsByTheirWholeNames) {
  std::string seen;
  answer_ = [&](std::int32_t index) {
    seen = tessel.HTTPHeader(index, "x-one") + "|" + tessel.HTTPHeader(index, "one") + "|" +
           tessel.HTTPHeader(index, "X-LIST") + "|" + tessel.HTTPHeader(index, "Cookie") + "|" +
           tessel.QueryString(index, "") + "|" + tessel.CGIValue(index, "QUERY_STRING");
    tessel.TrapFileData(index, "", false, "text/plain");
  };
  Start();
  Fetch("/x?a=%20&b", "X-One:1\r\nX-List: a\r\nx-list: b\r\nCookie: c=1\r\ncookie: d=2\r\n");
  EXPECT_EQ(seen, "1||a, b|c=1; d=2|a=%20&b|a=%20&b");
}

TEST_F(ModernHostAnswersTest, TheHostSeesTheDecodedPathAndTheUser) {
  answer_ = [&](std::int32_t index) { tessel.TrapFileData(index, "", false, "text/plain"); };
  Start();
  Fetch("/a%20b/c.x", "authorization: basic dXNlcjpwYTpzcw==\r\n");
  EXPECT_EQ(path_, "a b/c.x");
  EXPECT_EQ(user_, "user:pa:ss");
}

TEST_F(ModernHostAnswersTest, WhatItHandsBackIsServed) {
  tree.Write("x", "file");
  answer_ = [&](std::int32_t index) { tessel.TrapFileData(index, "", true, ""); };
  Start();
  EXPECT_EQ(Kit::BodyOf(Fetch("/x")), "file");
}

}  // namespace
}  // namespace TesselServer::Modern
