#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "http/cls_CGI.h"
#include "http/cls_HTTP.h"
#include "tests/kit/AnswerText.h"
#include "tests/kit/FakeRunner.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using namespace std::string_literals;

constexpr std::string_view kNoSuchPage =
    "Create::Process Failed.<BR>\r\nError Number: 2<BR>\r\nError Desc: No such file or directory<BR>\r\n";

// Answers to requests for programs.
class ProgramAnswerTest : public testing::Test {
 protected:
  ProgramAnswerTest() {
    tree_.Write("test.exe", "never sent");
    record_.VirtualPath(root_);
    record_.ServerSoftware("Orvane Tessel/1.1");
    record_.ContentTypeSource(e_ContentTypeSource::Internal);
    record_.CGIEnable(true);
    record_.Runner(&runner_);
  }

  Answer Process(const std::string& name, std::string_view code = "200", bool wantHeader = true,
                 std::string_view extraHeaders = "") {
    return RunNow(record_.ProcessFile(RootFolder(root_).Find(name), root_ + "\\" + name, std::string(code), wantHeader,
                                      std::string(extraHeaders), info_, "request body"));
  }
  std::string Answered(std::string_view output) {
    runner_.Print(output);
    return Kit::WholeText(Process("test.exe"));
  }
  static std::string Header(std::string_view statusLine, std::string_view rest) {
    return std::string(statusLine) + "\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\n" +
           std::string(rest) + "\r\n";
  }
  static std::string PlainAnswer(std::string_view body) {
    return Header("HTTP/1.0 200 OK",
                  "Content-Type: text/html\r\nContent-Length: " + std::to_string(body.size()) + "\r\n") +
           std::string(body);
  }

  Kit::TemporaryTree tree_;
  std::string root_ = std::filesystem::canonical(tree_.Path()).string();
  Kit::FakeWorld world_;
  Kit::FakeRunner runner_;
  RequestInfo info_;
  cls_HTTP record_{world_};
};

TEST_F(ProgramAnswerTest, AProgramIsRunInAnyCase) {
  runner_.Print("output");
  for (const char* name : {"test.exe", "TEST.EXE", "Test.Exe"}) {
    EXPECT_EQ(Kit::WholeText(Process(name)), PlainAnswer("output")) << name;
    ASSERT_EQ(runner_.Lines(), std::vector<std::string>{root_ + "/test.exe"}) << name;
    runner_.started.clear();
  }
}

TEST_F(ProgramAnswerTest, TheOutputMakesTheAnswer) {
  EXPECT_EQ(Answered("<p>page</p>\r\n"), PlainAnswer("<p>page</p>\r\n")) << "line ends stay";
  EXPECT_EQ(Answered("Content-Type: text/plain\n\nbody"),
            Header("HTTP/1.0 200 OK", "Content-Type: text/plain\r\nContent-Length: 4\r\n") + "body");
  EXPECT_EQ(Answered("Status: 404 Gone\r\n\r\nbody"),
            Header("HTTP/1.0 404 Not Found", "Content-Type: text/html\r\nContent-Length: 4\r\n") + "body");
  EXPECT_EQ(Answered("Location: /there\n\n"),
            Header("HTTP/1.0 302 Moved Temporarily", "Content-Type: text/html\r\nLocation: /there\r\n"));
  EXPECT_EQ(
      Answered("Set-Cookie: a=b\nContent-Type: a/b\nContent-Length: 99\nX-Y: z\n\nbody"),
      Header("HTTP/1.0 200 OK", "Content-Type: a/b\r\nSet-Cookie: a=b\r\nX-Y: z\r\nContent-Length: 4\r\n") + "body");
  EXPECT_EQ(Answered("Content-Type: a/b\n\n"), Header("HTTP/1.0 200 OK", "Content-Type: a/b\r\n")) << "no body";
  EXPECT_EQ(Answered(""), Header("HTTP/1.0 200 OK", "Content-Type: text/html\r\n")) << "nothing: a header alone";
  EXPECT_EQ(Answered("a\0b\xFF"s), PlainAnswer("a\0b\xFF"s)) << "any bytes";
  EXPECT_EQ(Answered("Content-Type: a/b\n\n\0\n\n"s),
            Header("HTTP/1.0 200 OK", "Content-Type: a/b\r\nContent-Length: 3\r\n") + "\0\n\n"s);
}

TEST_F(ProgramAnswerTest, AWholeResponseGoesOutAsItIs) {
  for (const auto& response : {"HTTP/1.0 201 Created\r\nX: 1\r\n\r\nbody"s, "HTTP/1.1 200 OK\nContent-Length: 99\n\nb"s,
                               "HTTP/1.0 200 OK\r\n"s, "HTTP/"s}) {
    EXPECT_EQ(Answered(response), response);
  }
}

TEST_F(ProgramAnswerTest, NoValueCanSplitTheResponse) {
  for (const char* output : {"Content-Type: a/b\rSet-Cookie: c=d\n\nbody", "Location: /\r\r\n\r\nbody",
                             "Status: 200\rX: 1\n\nbody", "X: a\rb\nContent-Type: a/b\n\nbody"}) {
    EXPECT_EQ(Answered(output), PlainAnswer(output)) << "shown, not obeyed";
  }
}

TEST_F(ProgramAnswerTest, CodeAndExtraHeadersOfTheCallerCount) {
  runner_.Print("Content-Type: a/b\nX-Program: 1\n\nbody");
  EXPECT_EQ(
      Process("test.exe", "202", true, "X-Caller: 2\r\n").head,
      Header("HTTP/1.0 202 Accepted", "Content-Type: a/b\r\nX-Program: 1\r\nX-Caller: 2\r\nContent-Length: 4\r\n"));
  runner_.Print("Status: 500\n\nbody");
  EXPECT_TRUE(Process("test.exe", "202").head.starts_with("HTTP/1.0 500 ")) << "but the program's is stronger";
}

TEST_F(ProgramAnswerTest, WithoutAHeaderOnlyTheBodyIsLeft) {
  const struct {
    const char *output, *body, *why;
  } cases[] = {
      {"plain", "plain", "no header at all"},
      {"Content-Type: a/b\n\nbody", "body", "a CGI header"},
      {"Status: 404\r\n\r\n", "", "a CGI header alone"},
      {"HTTP/1.0 200 OK\r\nX: 1\r\n\r\nbody", "body", "a whole response"},
      {"HTTP/1.0 200 OK\r\nX: 1\r\n", "HTTP/1.0 200 OK\r\nX: 1\r\n", "a whole response without a blank line"},
      {"", "", "nothing"},
  };
  for (const auto& c : cases) {
    runner_.Print(c.output);
    EXPECT_EQ(Kit::WholeText(Process("test.exe", "200", false, "X: 1\r\n")), c.body) << c.why;
  }
}

TEST_F(ProgramAnswerTest, AnIncludedProgramBecomesItsBody) {
  record_.SSIEnable(true);
  tree_.Write("page.htm", "[<!--#include file=\"test.exe\"-->]");
  runner_.Print("Content-Type: text/plain\r\n\r\none\r\n<%=SERVER_NAME%><!--#includefile=page.htm-->");
  EXPECT_EQ(Kit::BodyText(Process("page.htm")), "[one\r\n<%=SERVER_NAME%><!--#includefile=page.htm-->]")
      << "not acted on, line ends as they are";
  runner_.Print("HTTP/1.0 500 Oh\r\n\r\nbody");
  EXPECT_EQ(Kit::WholeText(Process("page.htm")), PlainAnswer("[body]"));
  record_.CGIEnable(false);
  runner_.started.clear();
  EXPECT_EQ(Kit::BodyText(Process("page.htm")), "[]");
  EXPECT_TRUE(runner_.started.empty());
}

TEST_F(ProgramAnswerTest, TheQueryIsNoArgumentAndTheBodyIsNotSeen) {
  info_.QueryString = "a=1;id";
  info_.RequestMethod = "POST";
  info_.ContentLength = "12";
  Process("test.exe");
  ASSERT_EQ(runner_.started.size(), 1u);
  const ProgramStart& start = runner_.started[0];
  EXPECT_TRUE(start.arguments.empty());
  EXPECT_EQ(start.outputLimit, 1024u);
  bool hasQuery = false;
  for (const auto& [name, value] : start.environment) {
    if (name == "QUERY_STRING") hasQuery = value == "a=1;id";
    EXPECT_EQ(value.find("request body"), std::string::npos) << name;
  }
  EXPECT_TRUE(hasQuery);
}

TEST_F(ProgramAnswerTest, WithoutCGITheWarningIsTheAnswer) {
  record_.CGIEnable(false);
  for (const bool warning : {false, true}) {
    record_.CGIWarningEnable(warning);
    EXPECT_EQ(Kit::WholeText(Process("test.exe", "202", true, "X: 1\r\n")), cls_CGI().CGIWarningPage());
    EXPECT_EQ(Process("test.exe", "200", false).Size(), 0);
  }
  EXPECT_TRUE(runner_.started.empty());
}

TEST_F(ProgramAnswerTest, WhatIsNoFileIsNotRun) {
  tree_.MakeFolder("folder.exe");
  runner_.Print("never");
  EXPECT_EQ(Kit::WholeText(Process("missing.exe")), PlainAnswer(kNoSuchPage));
  EXPECT_EQ(Kit::WholeText(Process("folder.exe")), PlainAnswer(kNoSuchPage));
  EXPECT_EQ(Kit::WholeText(RunNow(record_.ProcessFile(FoundEntry(), ".exe", "200", true, "", info_, ""))),
            PlainAnswer(kNoSuchPage));
  EXPECT_TRUE(runner_.started.empty());
}

TEST_F(ProgramAnswerTest, AFailureIsShownToTheClient) {
  runner_.Fail(ProgramResult::Failure::kStart, 13);
  EXPECT_EQ(
      Kit::WholeText(Process("test.exe")),
      PlainAnswer("Create::Process Failed.<BR>\r\nError Number: 13<BR>\r\nError Desc: Permission denied<BR>\r\n"));
  record_.Runner(nullptr);
  EXPECT_EQ(Kit::WholeText(Process("test.exe")),
            PlainAnswer(
                "Create::Process Failed.<BR>\r\nError Number: 38<BR>\r\nError Desc: Function not implemented<BR>\r\n"));
}

}  // namespace
}  // namespace TesselServer
