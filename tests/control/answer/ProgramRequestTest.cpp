// Requests for programs: which file is run, and what is answered where none is.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/kit/Programs.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// A root, a folder of programs beside it, and in both programs that tell their place and name.
class ProgramRequestTest : public Kit::ControlTest {
 protected:
  ProgramRequestTest() {
    for (const char* name : {"root/run.exe", "root/both.exe", "root/sub/deep.exe", "cgi/both.exe", "cgi/tool.exe",
                             "cgi/my tool.exe", "cgi/sub/hidden.exe", "outside/far.exe", "root/scripts/default.exe"}) {
      Program(name);
    }
    tree.MakeFolder("root/folder.exe");
    tree.MakeFolder("cgi/folder.exe");
    tree.Write("cgi/secret.ini", "a secret");
    tree.Write("cgi/page.html", "a page");
    std::filesystem::create_symlink("../outside/far.exe", tree.Path() / "cgi/far.exe");
    std::filesystem::create_symlink("../outside", tree.Path() / "cgi/away");
    std::filesystem::create_symlink("tool.exe", tree.Path() / "cgi/near.exe");
    std::filesystem::create_symlink("../outside/far.exe", tree.Path() / "root/far.exe");
    tessel.VirtualPath(tree.Text() + "/root");
    tessel.CGIDirectory(tree.Text() + "/cgi");
    tessel.CGIEnable(true);
  }

  void Program(const std::string& name) const { Kit::WriteProgram(tree, name, "printf '%s' 'ran " + name + "'"); }

  // The body of an answer, or for an error the heading of its page.
  std::string Got(const std::string& url) {
    if (!tessel.ServerRunning()) control.Start();
    const std::string body = BodyOf(control.Get(url));
    for (const char* heading : {"HTTP 404: File Not Found", "HTPP 403: Forbidden", "CGI Warning"}) {
      if (body.find(heading) != std::string::npos) return heading;
    }
    return body;
  }
};

constexpr const char* kNoSuchProgram = "HTTP 404: File Not Found";

TEST_F(ProgramRequestTest, TheProgramBelowTheRootIsRunElseTheOneOfThatNameInCGIDirectory) {
  struct {
    const char *url, *got, *why;
  } const cases[] = {
      {"/run.exe", "ran root/run.exe", "below the root"},
      {"/RUN.EXE", "ran root/run.exe", "in any case"},
      {"/run.exe?x=1", "ran root/run.exe", "with a query"},
      {"/run.exe?", "ran root/run.exe", "with an empty query"},
      {"/r%75n.exe", "ran root/run.exe", "decoded"},
      {"/run%2Eexe", "ran root/run.exe", "what is found counts"},
      {"/sub/deep.exe", "ran root/sub/deep.exe", "in a folder"},
      {"/sub/../run.exe", "ran root/run.exe", "there and back"},
      {"/both.exe", "ran root/both.exe", "the root wins"},
      {"/sub/both.exe", "ran cgi/both.exe", "not there below the root"},
      {"/tool.exe", "ran cgi/tool.exe", "in the folder of programs"},
      {"/TOOL.EXE", "ran cgi/tool.exe", "in any case"},
      {"/cgi/prog/tool.exe?x=1", "ran cgi/tool.exe", "its name alone counts"},
      {"/my%20tool.exe", "ran cgi/my tool.exe", "with a blank"},
      {"/t%6Fol.exe", "ran cgi/tool.exe", "decoded"},
      {"/near.exe", "ran cgi/tool.exe", "a link within the folder"},
      {"/../tool.exe", "ran cgi/tool.exe", "its name alone counts"},
      {"/%2e%2e/tool.exe", "ran cgi/tool.exe", "its name alone counts"},
      {"/x\\tool.exe", "ran cgi/tool.exe", "either separator"},
      {"http://host/cgi/tool.exe", "ran cgi/tool.exe", "an absolute URL"},
  };
  for (const auto& c : cases) EXPECT_EQ(Got(c.url), c.got) << c.url << ": " << c.why;
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(ProgramRequestTest, NothingElseInCGIDirectoryCanBeAskedFor) {
  struct {
    const char *url, *why;
  } const cases[] = {
      {"/missing.exe", "in neither folder"},
      {"/secret.ini?a=.exe?b", "no program, whatever the query says"},
      {"/secret.ini?.exe?", "no program"},
      {"/page.html?.exe?", "no program"},
      {"/?.exe?tool.exe", "the query names nothing"},
      {"/missing.exe?tool.exe", "the query names nothing"},
      {"/hidden.exe", "in a folder below"},
      {"/sub/hidden.exe", "in a folder below"},
      {"/folder.exe?x", "that is the root's folder"},
      {"/far.exe", "a link that leads out"},
      {"/away/far.exe", "through a link that leads out"},
      {"/..%2ftool.exe", "no separator is decoded"},
      {"/..%5Ctool.exe", "no separator is decoded"},
      {"/x%2ftool.exe", "no separator is decoded"},
      {"/tool.exe%00", "NUL"},
      {"/tool.exe%00.exe", "NUL"},
      {"/tool.exe%0A.exe", "a line end"},
      {"/tool.exe/", "a folder's name"},
      {"/tool.exe/.", "a folder's name"},
      {"/tool.exe/x", "below a program"},
      {"/tool.exe.", "another name"},
      {"/tool.exe%20", "another name"},
      {"/tool", "another name"},
      {"/tool.bat", "another name"},
      {"/tool.exe;ls", "another name"},
      {"/.exe", "another name"},
      {"/...exe", "another name"},
  };
  tessel.ContentTypeSource(e_ContentTypeSource::Internal);
  std::filesystem::remove(tree.Path() / "root/folder.exe");
  for (const auto& c : cases) {
    const std::string got = Got(c.url);
    if (std::string(c.url).starts_with("/?")) {
      EXPECT_EQ(got, "HTPP 403: Forbidden") << c.url << ": " << c.why;
    } else {
      EXPECT_EQ(got, kNoSuchProgram) << c.url << ": " << c.why;
    }
  }
}

TEST_F(ProgramRequestTest, AFolderIsNoProgram) {
  EXPECT_EQ(Got("/folder.exe"), "HTPP 403: Forbidden");
  EXPECT_EQ(Got("/folder.exe/"), "HTPP 403: Forbidden");
  tree.Write("root/folder.exe/index.html", "index");
  EXPECT_EQ(Got("/folder.exe"), "index");
  Program("cgi/folder.exe/x.exe");
  tree.MakeFolder("cgi/other.exe");
  EXPECT_EQ(Got("/other.exe"), kNoSuchProgram);
  tree.MakeFolder("root/tool.exe");
  EXPECT_EQ(Got("/tool.exe"), "HTPP 403: Forbidden") << "the root wins with a folder as well";
}

TEST_F(ProgramRequestTest, TheLogTellsOfPrograms) {
  ASSERT_EQ(Got("/cgi/tool.exe?x=1"), "ran cgi/tool.exe");
  ASSERT_EQ(Got("/none.exe"), kNoSuchProgram);
  ASSERT_EQ(control.log.size(), 2u);
  EXPECT_THAT(control.log[0], HasSubstr("\"GET /cgi/tool.exe?x=1 HTTP/1.0\" 200 "));
  EXPECT_THAT(control.log[1], HasSubstr("\"GET /none.exe HTTP/1.0\" 404 "));
  EXPECT_THAT(control.Get("/tool.exe"),
              StartsWith("HTTP/1.0 200 OK\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\n"
                         "Content-Type: text/html\r\nContent-Length: 16\r\n\r\n"));
}

TEST_F(ProgramRequestTest, SwitchedOffNothingIsRunAndNothingLookedUpOutside) {
  tessel.CGIEnable(false);
  EXPECT_EQ(Got("/run.exe"), "CGI Warning");
  EXPECT_EQ(Got("/RUN.EXE?x=1"), "CGI Warning");
  for (const char* url : {"/tool.exe", "/cgi/tool.exe?x=1", "/secret.ini?a=.exe?b"}) {
    EXPECT_EQ(Got(url), kNoSuchProgram) << url;
  }
  tessel.CGIEnable(true);
  EXPECT_EQ(Got("/tool.exe"), "ran cgi/tool.exe") << "from the next request on";
}

TEST_F(ProgramRequestTest, AProgramThatMayNotBeExecutedTellsWhy) {
  tree.Write("root/plain.exe", "#!/bin/sh\necho ran\n");
  tree.Write("cgi/nonsense.exe", "nonsense");
  std::filesystem::permissions(tree.Path() / "cgi/nonsense.exe", std::filesystem::perms(0755));
  EXPECT_EQ(Got("/plain.exe"),
            "Create::Process Failed.<BR>\r\nError Number: 13<BR>\r\nError Desc: Permission denied<BR>\r\n");
  EXPECT_EQ(Got("/nonsense.exe"),
            "Create::Process Failed.<BR>\r\nError Number: 8<BR>\r\nError Desc: Exec format error<BR>\r\n");
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(ProgramRequestTest, AProgramThatFailsIsReportedToTheHost) {
  tree.Write("root/plain.exe", "#!/bin/sh\n");
  tree.Write("root/page.html", "<!--#execcgi=none.exe-->");
  tree.Write("cgi/lost.exe", "#!/no/such/interpreter\n");
  std::filesystem::permissions(tree.Path() / "cgi/lost.exe", std::filesystem::perms(0755));
  Kit::WriteProgram(tree, "cgi/failing.exe", "printf before; exit 3");
  Kit::WriteProgram(tree, "cgi/dying.exe", "printf before; kill -9 $$");
  Kit::WriteProgram(tree, "cgi/talking.exe", "head -c 1025 /dev/zero | tr '\\0' x");
  const struct {
    const char *url, *body, *report;
  } cases[] = {
      {"/tool.exe", "ran cgi/tool.exe", ""},
      {"/failing.exe", "before", "Program .*/cgi/failing\\.exe: exit code 3, after [0-9]+\\.[0-9]{3} s"},
      {"/dying.exe", "before", "Program .*/cgi/dying\\.exe: signal 9, after [0-9]+\\.[0-9]{3} s"},
      {"/talking.exe", "xxx", "Program .*/cgi/talking\\.exe: output cut at 1024 bytes, after [0-9]+\\.[0-9]{3} s"},
      {"/lost.exe", "Create::Process Failed",
       "Program .*/cgi/lost\\.exe: not started, \\[2\\] No such file or directory"},
      {"/plain.exe", "Create::Process Failed", "Program .*/root/plain\\.exe: not started, \\[13\\] Permission denied"},
      {"/page.html", "Create::Process Failed", "Program none\\.exe: not started, \\[2\\] No such file or directory"},
  };
  for (const auto& c : cases) {
    if (tessel.ServerRunning()) control.status.clear();
    EXPECT_THAT(Got(c.url), StartsWith(c.body)) << c.url;
    if (*c.report == '\0') {
      EXPECT_THAT(control.status, IsEmpty()) << c.url;
    } else {
      EXPECT_THAT(control.status, ElementsAre(testing::MatchesRegex(c.report))) << c.url;
    }
  }
  EXPECT_THAT(control.errors, IsEmpty()) << "no error of the server's";
}

TEST_F(ProgramRequestTest, AHostMayStopTheServerInsideTheReportOfAProgram) {
  Kit::WriteProgram(tree, "cgi/failing.exe", "exit 3");
  tree.Write("root/page.html", "<!--#execcgi=failing.exe--><!--#execcgi=failing.exe?again-->");
  control.Start();
  int heard = 0;
  tessel.StatusLine = [&](std::string& text) {
    if (!text.starts_with("Program ")) return;
    ++heard;
    tessel.StopServer();
  };
  EXPECT_EQ(control.Get("/page.html"), "");
  EXPECT_EQ(heard, 1) << "nothing is run for a server that has stopped";
  EXPECT_FALSE(tessel.ServerRunning());
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(ProgramRequestTest, ThePasswordFileIsNoProgram) {
  tessel.AuthenticationSource(e_AuthSource::DomainACL);
  tessel.AuthenticationSourceFile(tree.Text() + "/cgi/tool.exe");
  for (const char* url : {"/tool.exe", "/near.exe", "/TOOL.EXE"}) EXPECT_EQ(Got(url), kNoSuchProgram) << url;
  tessel.AuthenticationSourceFile(tree.Text() + "/root/run.exe");
  EXPECT_EQ(Got("/run.exe"), kNoSuchProgram);
  EXPECT_EQ(Got("/tool.exe"), "ran cgi/tool.exe") << "that one no longer";
}

TEST_F(ProgramRequestTest, TheFolderOfProgramsIsTheSettingOfTheMoment) {
  EXPECT_EQ(Got("/tool.exe"), "ran cgi/tool.exe");
  tessel.CGIDirectory(tree.Text() + "\\root\\scripts\\");
  EXPECT_EQ(Got("/x/default.exe"), "ran root/scripts/default.exe");
  for (const char* folder : {"", "/nonexistent", "relative"}) {
    tessel.CGIDirectory(folder);
    EXPECT_EQ(Got("/tool.exe"), kNoSuchProgram) << folder;
  }
  tessel.StopServer();
  tessel.CGIDirectory("");
  EXPECT_EQ(Got("/x/default.exe"), "ran root/scripts/default.exe") << "what a start makes of none";
}

TEST_F(ProgramRequestTest, AnIndexPageMayBeAProgram) {
  tessel.IndexPageNames("start.exe,index.html");
  tree.Write("root/index.html", "index");
  EXPECT_EQ(Got("/"), "index");
  Program("cgi/start.exe");
  EXPECT_EQ(Got("/"), "index") << "one in the folder of programs is none";
  Program("root/start.exe");
  EXPECT_EQ(Got("/"), "ran root/start.exe");
  tessel.CGIEnable(false);
  EXPECT_EQ(Got("/"), "CGI Warning");
}

TEST_F(ProgramRequestTest, ProgramsAreTrappedLikeOtherFiles) {
  std::vector<std::string> told;
  bool process = true;
  tessel.TrapFileEnable(true);
  tessel.TrapFileTypes("exe");
  tessel.FileRequest = [&](std::int32_t& index, std::string& name, std::string&) {
    told.push_back(name);
    tessel.TrapFileData(index, "host", process);
  };
  EXPECT_EQ(Got("/sub/DEEP.exe"), "ran root/sub/deep.exe");
  EXPECT_EQ(Got("/cgi/tool.exe?x=1"), "ran cgi/tool.exe");
  EXPECT_EQ(Got("/none.exe"), kNoSuchProgram);
  EXPECT_EQ(Got("/../tool.exe"), "ran cgi/tool.exe");
  process = false;
  EXPECT_EQ(Got("/run.exe"), "host");
  EXPECT_THAT(told, ElementsAre("sub/deep.exe", "cgi/tool.exe", "none.exe", "", "run.exe"));
}

TEST_F(ProgramRequestTest, TheProgramGetsItsRequestInTheEnvironment) {
  Kit::WriteProgram(tree, "cgi/tell.exe",
                    "printf '%s|' \"$#\" \"$REQUEST_METHOD\" \"$QUERY_STRING\" \"$SCRIPT_NAME\" \"$DOCUMENT_URI\" "
                    "\"$CONTENT_LENGTH\" \"$REMOTE_USER\" \"$(cat)\"");
  EXPECT_EQ(Got("/x/Tell.exe?a=1&b=2 3"), "0|GET|a=1&b=2|Tell.exe|/x/Tell.exe||||");
  EXPECT_EQ(BodyOf(control.Ask("POST /tell.exe HTTP/1.0\r\nAuthorization: Basic dXNlcjpwdw==\r\n"
                               "Content-Length: 4\r\n\r\nbody")),
            "0|POST||tell.exe|/tell.exe|4|||")
      << "no user whom nobody has asked, and no body on its standard input";
}

TEST_F(ProgramRequestTest, NoTimeLimitIsALongOne) {
  tessel.CGITimeout(0);
  Kit::WriteProgram(tree, "cgi/slow.exe", "sleep 0.3\nprintf done");
  EXPECT_EQ(Got("/slow.exe"), "done");
}

}  // namespace
}  // namespace TesselServer
