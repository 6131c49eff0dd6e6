#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "http/RunCGI.h"
#include "http/ServerVariables.h"
#include "http/cls_HTTP.h"
#include "tests/kit/FakeRunner.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

using Words = std::vector<std::string>;

class RunCGITest : public testing::Test {
 protected:
  RunCGITest() { record_.Runner(&runner_); }

  const ProgramStart& Start(const std::string& file, const std::string& arguments) {
    RunNow(record_.RunCGI(file, arguments));
    return runner_.started.back();
  }

  Kit::FakeWorld world_;
  Kit::FakeRunner runner_;
  cls_HTTP record_{world_};
};

TEST_F(RunCGITest, GivesWhatTheProgramPrints) {
  runner_.Print("Content-Type: text/plain\r\n\r\nas it is");
  EXPECT_EQ(RunNow(record_.RunCGI("/srv/a.exe", "")), "Content-Type: text/plain\r\n\r\nas it is");
  runner_.Print("");
  EXPECT_EQ(RunNow(record_.RunCGI("/srv/a.exe", "")), "");
  runner_.Print(std::string("a\0b", 3));
  EXPECT_EQ(RunNow(record_.RunCGI("/srv/a.exe", "")), std::string("a\0b", 3));
}

TEST_F(RunCGITest, OutputOfAProgramWhoseTimeIsOverCounts) {
  runner_.Print("so far");
  runner_.answer.ended = false;
  EXPECT_EQ(RunNow(record_.RunCGI("/srv/a.exe", "")), "so far");
}

TEST_F(RunCGITest, ArgumentsAreWordsThatNoShellSees) {
  const struct {
    const char* given;
    Words words;
    const char* why;
  } cases[] = {
      {"", {}, "none"},
      {"   ", {}, "blanks only"},
      {"one", {"one"}, "one"},
      {"one two", {"one", "two"}, "two"},
      {"  one   two  ", {"one", "two"}, "several blanks"},
      {"a;rm -rf /|cat&x>y<z", {"a;rm", "-rf", "/|cat&x>y<z"}, "what a shell would obey"},
      {"$(id) `id` ${HOME} $HOME ~ *", {"$(id)", "`id`", "${HOME}", "$HOME", "~", "*"}, "what a shell would expand"},
      {"\"one two\" 'three four' \\ ", {"\"one", "two\"", "'three", "four'", "\\"}, "what a shell would unquote"},
      {"a\tb\nc", {"a\tb\nc"}, "only blanks separate"},
      {"a%20b+c", {"a%20b+c"}, "nothing is decoded"},
      {"-c --help", {"-c", "--help"}, "options"},
  };
  for (const auto& c : cases) EXPECT_EQ(Start("/srv/a.exe", c.given).arguments, c.words) << c.why;
}

TEST_F(RunCGITest, AProgramIsStartedByItsPath) {
  for (const char* file : {"/srv/a.exe", "/srv/a b/c", "/srv/a.bat.exe", "/srv/bat", "/srv/$(id).sh"}) {
    const ProgramStart& start = Start(file, "x");
    EXPECT_EQ(start.file, file);
    EXPECT_EQ(start.arguments, Words({"x"})) << file;
  }
}

TEST_F(RunCGITest, ABatchFileIsGivenToTheInterpreter) {
  for (const char* file : {"/srv/a.bat", "/srv/A.BAT", "/srv/a b.Bat", "/srv/.bat"}) {
    const ProgramStart& start = Start(file, " one  two");
    EXPECT_EQ(start.file, "/bin/sh") << file;
    EXPECT_EQ(start.arguments, Words({file, "one", "two"}));
    EXPECT_EQ(Start(file, "").arguments, Words({file})) << "no arguments";
  }
}

TEST_F(RunCGITest, TheEnvironmentIsThe29Variables) {
  RequestInfo info;
  info.QueryString = "a=1&b=2";
  info.UserAgent = "() { :; }; echo";
  info.RequestMethod = "POST";
  info.ContentLength = "5";
  info.ContentType = "text/plain";
  info.DocumentURI = "/cgi/a.exe";
  info.ScriptName = "a.exe";
  info.RemoteAddr = "192.0.2.7";
  info.RemoteUser = "someone";
  record_.SetRequestInfo(info);
  record_.VirtualPath("/srv/www");
  record_.ServerPort("8080");
  record_.ServerIP("127.0.0.1");
  record_.ServerName("here");
  record_.ServerSoftware("Orvane Tessel/1.1");
  world_.hostNames[htonl(0xC0000207)] = "client.example";
  const std::vector<std::pair<std::string, std::string>> environment = Start("/srv/a.exe", "").environment;
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"AUTH_TYPE", "Basic"},
      {"CONTENT_LENGTH", "5"},
      {"CONTENT_TYPE", "text/plain"},
      {"GATEWAY_INTERFACE", "CGI/1.1"},
      {"HTTP_ACCEPT", ""},
      {"HTTP_REFERER", ""},
      {"HTTP_USER_AGENT", "() { :; }; echo"},
      {"PATH_INFO", "/srv/www"},
      {"PATH_TRANSLATED", "/srv/www"},
      {"QUERY_STRING", "a=1&b=2"},
      {"REMOTE_ADDR", "192.0.2.7"},
      {"REMOTE_HOST", "client.example"},
      {"REMOTE_USER", "someone"},
      {"REQUEST_METHOD", "POST"},
      {"SCRIPT_NAME", "a.exe"},
      {"SERVER_NAME", "here"},
      {"SERVER_PORT", "8080"},
      {"SERVER_PROTOCOL", "HTTP/1.0"},
      {"SERVER_SOFTWARE", "Orvane Tessel/1.1"},
      {"SERVER_IP", "127.0.0.1"},
      {"TIME", "06:20:05PM"},
      {"DATE", "11/15/2026"},
      {"DATE_LOCAL", "11/15/2026"},
      {"DATE_GMT", "Sun, 15 Nov 2026 18:20:05 GMT"},
      {"COUNTER", ""},
      {"DAY_OF_WEEK", "Sunday"},
      {"DOCUMENT_NAME", "a.exe"},
      {"DOCUMENT_URI", "/cgi/a.exe"},
      {"DOCUMENT_URL", "/cgi/a.exe"},
  };
  EXPECT_EQ(environment, expected);
}

TEST_F(RunCGITest, WaitsForTheTimeOutAndTakes1024Bytes) {
  EXPECT_EQ(Start("/srv/a.exe", "").waitMilliseconds, 0) << "a new record does not wait";
  record_.CGITimeout(30);
  EXPECT_EQ(Start("/srv/a.exe", "").waitMilliseconds, 30'000);
  record_.CGITimeout(-1);
  EXPECT_EQ(Start("/srv/a.exe", "").waitMilliseconds, 2'000'000'000) << "as good as for ever";
  EXPECT_EQ(runner_.started.back().outputLimit, 1024u);
}

TEST_F(RunCGITest, AFailureIsShownInPlaceOfTheOutput) {
  using Failure = ProgramResult::Failure;
  const struct {
    Failure failure;
    std::int32_t error;
    const char* text;
  } cases[] = {
      {Failure::kPipe, 24,
       "Create::Pipe Failed.<BR>\r\nError Number: 24<BR>\r\nError Desc: Too many open files<BR>\r\n"},
      {Failure::kStart, 13,
       "Create::Process Failed.<BR>\r\nError Number: 13<BR>\r\nError Desc: Permission denied<BR>\r\n"},
      {Failure::kRead, 5, "ReadFile Failed.<BR>\r\nError Number: 5<BR>\r\nError Desc: Input/output error<BR>\r\n"},
      {Failure::kStart, 99999,
       "Create::Process Failed.<BR>\r\nError Number: 99999<BR>\r\nError Desc: Unknown error.<BR>\r\n"},
  };
  for (const auto& c : cases) {
    runner_.Fail(c.failure, c.error);
    runner_.answer.output = "never shown";
    EXPECT_EQ(RunNow(record_.RunCGI("/srv/a.exe", "")), c.text);
  }
}

TEST_F(RunCGITest, WithoutAPathOrARunnerNothingIsRun) {
  EXPECT_EQ(RunNow(record_.RunCGI("", "word")),
            "Create::Process Failed.<BR>\r\nError Number: 2<BR>\r\nError Desc: No such file or directory<BR>\r\n");
  EXPECT_TRUE(runner_.started.empty());
  record_.Runner(nullptr);
  EXPECT_EQ(RunNow(record_.RunCGI("/srv/a.exe", "")),
            "Create::Process Failed.<BR>\r\nError Number: 38<BR>\r\nError Desc: Function not implemented<BR>\r\n");
}

TEST_F(RunCGITest, AProgramThatFailsIsReportedToTheControl) {
  Kit::FunctionHost host;
  record_.ParentControl(&host);
  runner_.Print("fine");
  RunNow(record_.RunCGI("/srv/a.exe", ""));
  EXPECT_TRUE(host.reports.empty());
  runner_.answer.exitCode = 3;
  runner_.answer.milliseconds = 12;
  EXPECT_EQ(RunNow(record_.RunCGI("/srv/b.bat", "word")), "fine") << "what the client gets stays";
  runner_.Fail(ProgramResult::Failure::kStart, 8);
  RunNow(record_.RunCGI("/srv/c.exe", ""));
  RunNow(record_.RunCGI("", ""));
  EXPECT_EQ(host.reports, Words({"Program /srv/b.bat: exit code 3, after 0.012 s",
                                 "Program /srv/c.exe: not started, [8] Exec format error",
                                 "Program : not started, [2] No such file or directory"}));
}

TEST_F(RunCGITest, AProgramThatMayNotBeReadHasThatAsItsReason) {
  FoundEntry found;
  found.kind = EntryKind::kFile;
  found.name = "sub/a.exe";
  EXPECT_EQ(RunNow(RunProgram(record_, FoundProgram(record_, found, "a.exe"), "")),
            "Create::Process Failed.<BR>\r\nError Number: 13<BR>\r\nError Desc: Permission denied<BR>\r\n");
  for (const EntryKind kind : {EntryKind::kNone, EntryKind::kDirectory}) {
    found.kind = kind;
    EXPECT_EQ(RunNow(RunProgram(record_, FoundProgram(record_, found, "a.exe"), "")),
              "Create::Process Failed.<BR>\r\nError Number: 2<BR>\r\nError Desc: No such file or directory<BR>\r\n");
  }
}

TEST(ProgramNamesTest, TheLastFourCharactersMakeAProgramOrABatchFile) {
  for (const char* name : {"a.exe", "A.EXE", "a.b.Exe", ".exe", "/srv/a b.eXe"})
    EXPECT_TRUE(IsProgramName(name)) << name;
  for (const char* name : {"", "exe", "aexe", "a.exe.txt", "a.exe ", "a.bat"})
    EXPECT_FALSE(IsProgramName(name)) << name;
  for (const char* name : {"a.bat", "A.BAT", ".Bat", "/srv/a b.bAT"}) EXPECT_TRUE(IsBatchFile(name)) << name;
  for (const char* name : {"", "bat", "abat", "a.bat.sh", "a.bat ", "a.exe"}) EXPECT_FALSE(IsBatchFile(name)) << name;
}

}  // namespace
}  // namespace TesselServer
