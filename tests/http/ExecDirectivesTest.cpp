#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "http/ExecDirectives.h"
#include "http/cls_HTTP.h"
#include "tests/kit/AnswerText.h"
#include "tests/kit/Child.h"
#include "tests/kit/FakeRunner.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/PageSite.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Lines = std::vector<std::string>;

constexpr std::string_view kNotFound =
    "Create::Process Failed.<BR><br>Error Number: 2<BR><br>Error Desc: No such file or directory<BR><br>";

// A root "www" and a folder of programs "cgi" side by side.
class ExecDirectivesTest : public testing::Test {
 protected:
  ExecDirectivesTest() {
    tree_.MakeFolder("www");
    for (const char* name :
         {"cgi/show.exe", "cgi/test.bat", "cgi/tools/deep.exe", "www/beside.exe", "www/docs/local.exe", "secret.exe"}) {
      tree_.Write(name, "");
    }
    record_.VirtualPath(Path("www"));
    record_.CGIDirectory(Path("cgi"));
    record_.ContentTypeSource(e_ContentTypeSource::Internal);
    record_.CGIEnable(true);
    record_.Runner(&runner_);
    runner_.Print("OUT");
  }

  std::string Path(std::string_view relative) const { return root_ + "/" + std::string(relative); }

  // What a client gets of the page with that text.
  std::string Processed(std::string_view page, const std::string& name = "page.htm") {
    tree_.Write("www/" + name, page);
    return Kit::BodyText(RunNow(record_.ProcessFile(RootFolder(Path("www")).Find(name), Path("www/" + name), "200",
                                                    true, "", info_, "request body")));
  }

  // Started since the last call.
  Lines Started() {
    Lines lines = runner_.Lines();
    runner_.started.clear();
    return lines;
  }

  Kit::TemporaryTree tree_;
  std::string root_ = std::filesystem::canonical(tree_.Path()).string();
  Kit::FakeWorld world_;
  Kit::FakeRunner runner_;
  RequestInfo info_;
  cls_HTTP record_{world_};
};

TEST_F(ExecDirectivesTest, ADirectiveBecomesTheOutput) {
  const struct {
    const char *page, *result, *started, *why;
  } cases[] = {
      {"a<!--#execcgi=show.exe-->b", "aOUTb", "cgi/show.exe", "below the folder of programs"},
      {"a<!--#execcmd=beside.exe-->b", "aOUTb", "www/beside.exe", "beside the page"},
      {"<!--#exec cgi = \"show.exe\" -->", "OUT", "cgi/show.exe", "with blanks and quotes"},
      {"<!--#EXECcgi=SHOW.exe-->", "OUT", "cgi/show.exe", "in any case"},
      {"<!--#eXeCcMd=Beside.EXE-->", "OUT", "www/beside.exe", "in any case"},
      {"<!--#execcgi=tools/deep.exe-->", "OUT", "cgi/tools/deep.exe", "in a folder below"},
      {"<!--#execcgi=tools\\deep.exe-->", "OUT", "cgi/tools/deep.exe", "\"\\\" separates"},
      {"<!--#execcgi=/show.exe-->", "OUT", "cgi/show.exe", "a leading separator"},
      {"<!--#execcgi=tools/../show.exe-->", "OUT", "cgi/show.exe", "\"..\" that stays inside"},
      {"<!--#execcmd=docs/local.exe-->", "OUT", "www/docs/local.exe", "in a folder below the page"},
      {"<!--#execcgi=show.exe?-->", "OUT", "cgi/show.exe", "no arguments behind the mark"},
      {"<!--#execcgi=show.exe?a=1&b=2-->", "OUT", "cgi/show.exe|a=1&b=2", "one word: no batch file"},
      {"<!--#execcgi=show.exe?a?b-->", "OUT", "cgi/show.exe|a?b", "the first mark counts"},
      {"<!--#execcgi=show.exe ? a b -->", "OUT", "cgi/show.exe|ab", "blanks of the author are lost"},
      {"<!--#execcgi=show.exe?$(id);`id`|x-->", "OUT", "cgi/show.exe|$(id);`id`|x", "what a shell would obey"},
      {"<!--#execcgi=show.exe?a--b---->", "OUT", "cgi/show.exe|a--b--", "dashes inside"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Processed(c.page), c.result) << c.why;
    EXPECT_EQ(Started(), Lines({Path(c.started)})) << c.why;
  }
}

TEST_F(ExecDirectivesTest, ABatchFileGetsItsArgumentsAsWords) {
  const struct {
    const char *target, *words;
  } cases[] = {
      {"test.bat?a=1&b=2", "|a=1|b=2"},
      {"TEST.BAT?a=1&b=2", "|a=1|b=2"},
      {"test.bat", ""},
      {"test.bat?", ""},
      {"test.bat?&&?", ""},
      {"test.bat?a?b&&c&", "|a|b|c"},
      {"test.bat?a;b|c", "|a;b|c"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Processed("<!--#execcgi=" + std::string(c.target) + "-->"), "OUT") << c.target;
    EXPECT_EQ(Started(), Lines({"/bin/sh|" + Path("cgi/test.bat") + c.words})) << c.target;
  }
}

TEST_F(ExecDirectivesTest, FirstAllExeccmdThenAllExeccgi) {
  EXPECT_EQ(Processed("<!--#execcgi=show.exe-->,<!--#execcmd=beside.exe-->,<!--#execcgi=tools/deep.exe-->,"
                      "<!--#execcmd=docs/local.exe-->"),
            "OUT,OUT,OUT,OUT");
  EXPECT_EQ(Started(), Lines({Path("www/beside.exe"), Path("www/docs/local.exe"), Path("cgi/show.exe"),
                              Path("cgi/tools/deep.exe")}));
}

TEST_F(ExecDirectivesTest, EqualDirectivesRunOnce) {
  EXPECT_EQ(Processed("<!--#execcgi=show.exe?x--><!--#execcgi=SHOW.EXE?X-->-<!--#ExecCgi=show.exe?x-->"), "OUTOUT-OUT");
  EXPECT_EQ(Started(), Lines({Path("cgi/show.exe") + "|x"})) << "without regard to case";
  EXPECT_EQ(Processed("<!--#execcgi=show.exe?x--><!--#execcgi=show.exe?y-->"), "OUTOUT");
  EXPECT_EQ(Started().size(), 2u) << "other arguments are another directive";
  tree_.Write("cgi/beside.exe", "");
  EXPECT_EQ(Processed("<!--#execcgi=beside.exe--><!--#execcmd=beside.exe-->"), "OUTOUT");
  EXPECT_EQ(Started().size(), 2u) << "and so is another folder";
}

TEST_F(ExecDirectivesTest, WhatIsNoDirectiveStays) {
  for (const char* page : {"<!--#execcgi=show.exe", "<!--#execcgi=show.exe--", "<!--#execcgi=show.exe>",
                           "<!--#execcgi=show.exe->", "<!--#execcgi=-x->-->", "<!--#execcgi=>", "<!--#execcgi=->",
                           "<!--execcgi=show.exe-->", "<!-- #execcgi=show.exe-->", "<!--#execcgi:show.exe-->",
                           "<!--#execfoo=show.exe-->", "<!--#exec-->", "<%execcgi=show.exe%>", ""}) {
    EXPECT_EQ(Processed(page), page);
    EXPECT_EQ(Started(), Lines()) << page;
  }
}

TEST_F(ExecDirectivesTest, ABrokenDirectiveDoesNotHideTheNext) {
  EXPECT_EQ(Processed("<!--#execcgi=show.exe>,<!--#execcgi=show.exe-->,<!--#execcgi=show.exe"),
            "<!--#execcgi=show.exe>,OUT,<!--#execcgi=show.exe");
}

TEST_F(ExecDirectivesTest, WhatMayNotBeRunIsNot) {
  tree_.MakeFolder("cgi/folder.exe");
  tree_.Write("www/.hidden/x.exe", "");
  std::filesystem::create_symlink(Path("secret.exe"), Path("cgi/out.exe"));
  std::filesystem::create_symlink("../secret.exe", Path("cgi/climb.exe"));
  std::filesystem::create_symlink(root_, Path("cgi/up"));
  std::filesystem::create_symlink(Path("secret.exe"), Path("www/out.exe"));
  const std::string absolute = Path("secret.exe");
  const std::string targets[] = {
      "",
      "missing.exe",
      "../secret.exe",
      "..\\secret.exe",
      "tools/../../secret.exe",
      "tools\\..\\..\\secret.exe",
      "...././/secret.exe",
      "../www/beside.exe",
      absolute,
      "/bin/sh",
      "\\bin\\sh",
      "//bin/sh",
      "C:\\secret.exe",
      ".",
      "/",
      "folder.exe",
      "tools",
      "show.exe/",
      "show.exe/.",
      "show.exe%20",
      "%2e%2e/secret.exe",
      "out.exe",
      "climb.exe",
      "up/secret.exe",
      std::string("show.exe\0", 9),
      std::string("show\0.exe", 9),
      "show.exe\n",
      "sh\tow.exe",
      "show.exe;id",
      "$(id)",
      "show.exe|id",
      std::string(300, 'x') + ".exe",
  };
  for (const std::string& target : targets) {
    EXPECT_EQ(Processed("<!--#execcgi=" + target + "-->"), kNotFound) << target;
    EXPECT_EQ(Processed("<!--#execcgi=" + target + "?word-->"), kNotFound) << target;
    EXPECT_EQ(Started(), Lines()) << target;
  }
  for (const std::string target : {"../secret.exe", "out.exe", "show.exe", "../cgi/show.exe", "..", ""}) {
    EXPECT_EQ(Processed("<!--#execcmd=" + target + "-->"), kNotFound) << target;
    EXPECT_EQ(Started(), Lines()) << target;
  }
}

TEST_F(ExecDirectivesTest, APasswordFileIsNotRun) {
  tree_.Write("cgi/htaccess.txt", "");
  tree_.Write("cgi/HTACCESS.TXT", "");
  tree_.Write("cgi/passwords.bat", "");
  std::filesystem::create_symlink("htaccess.txt", Path("cgi/link.bat"));
  record_.Secrets(
      std::make_shared<const SecretFiles>("htaccess.txt", e_AuthSource::GolbalFile, Path("cgi/passwords.bat")));
  for (const char* target : {"htaccess.txt", "HTACCESS.TXT", "link.bat", "passwords.bat", "PASSWORDS.bat"}) {
    EXPECT_EQ(Processed("<!--#execcgi=" + std::string(target) + "-->"), kNotFound) << target;
    EXPECT_EQ(Started(), Lines()) << target;
  }
  EXPECT_EQ(Processed("<!--#execcgi=show.exe-->"), "OUT") << "other files are";
}

TEST_F(ExecDirectivesTest, ALinkInsideTheFolderIsFollowed) {
  std::filesystem::create_symlink("tools/deep.exe", Path("cgi/link.exe"));
  EXPECT_EQ(Processed("<!--#execcgi=link.exe-->"), "OUT");
  EXPECT_EQ(Started(), Lines({Path("cgi/tools/deep.exe")}));
  std::filesystem::create_symlink("show.exe", Path("cgi/link.bat"));
  EXPECT_EQ(Processed("<!--#execcgi=link.bat?a&b-->"), "OUT");
  EXPECT_EQ(Started(), Lines({Path("cgi/show.exe") + "|a|b"})) << "it is no batch file that is run";
}

TEST_F(ExecDirectivesTest, WithoutAFolderNothingIsRun) {
  const std::string show = Path("cgi/show.exe");
  for (const char* folder : {"", "missing", " "}) {
    record_.CGIDirectory(folder);
    EXPECT_EQ(Processed("<!--#execcgi=" + show + "--><!--#execcgi=show.exe-->"),
              std::string(kNotFound) + kNotFound.data())
        << folder;
    EXPECT_EQ(Started(), Lines()) << folder;
  }
  record_.CGIDirectory(Path("cgi"));
  record_.VirtualPath("");
  EXPECT_EQ(Processed("<!--#execcmd=bin/sh--><!--#execcmd=beside.exe-->"), std::string(kNotFound) + kNotFound.data())
      << "no root is not the system's root";
  record_.VirtualPath(Path("www"));
  Page page("<!--#execcmd=beside.exe-->");
  record_.EndRequest();
  RunNow(record_.ExecDirectives(page));
  EXPECT_EQ(page.Text(), kNotFound) << "a page of no document";
  EXPECT_EQ(Started(), Lines());
}

TEST_F(ExecDirectivesTest, ExeccmdIsRelativeToTheDocument) {
  EXPECT_EQ(Processed("<!--#execcmd=local.exe-->", "docs/page.htm"), "OUT");
  EXPECT_EQ(Started(), Lines({Path("www/docs/local.exe")}));
  EXPECT_EQ(Processed("<!--#execcmd=../beside.exe-->", "docs/page.htm"), kNotFound) << "the folder bounds it";
  EXPECT_EQ(Processed("<!--#execcmd=beside.exe-->", "docs/page.htm"), kNotFound);
  EXPECT_EQ(Processed("<!--#execcmd=local.exe-->"), kNotFound);
  EXPECT_EQ(Started(), Lines());
  record_.VirtualPath(Path("www/"));
  EXPECT_EQ(Processed("<!--#execcmd=local.exe-->", "docs/page.htm"), "OUT") << "a root with a separator behind it";
  EXPECT_EQ(Started(), Lines({Path("www/docs/local.exe")}));
}

TEST_F(ExecDirectivesTest, LineEndsOfTheOutputBecomeBreaks) {
  const struct {
    std::string output, shown;
  } cases[] = {
      {"one\r\ntwo\r\n", "one<br>two<br>"},
      {"one\ntwo\r", "one\ntwo\r"},
      {"\r\r\n\n", "\r<br>\n"},
      {"", ""},
      {"Content-Type: text/plain\r\n\r\nbody", "Content-Type: text/plain<br><br>body"},
      {"HTTP/1.0 200 OK\r\n\r\nbody", "HTTP/1.0 200 OK<br><br>body"},
      {std::string("a\0b\xFF", 4), std::string("a\0b\xFF", 4)},
  };
  for (const auto& c : cases) {
    runner_.Print(c.output);
    EXPECT_EQ(Processed("[<!--#execcgi=show.exe-->]"), "[" + c.shown + "]");
  }
}

TEST_F(ExecDirectivesTest, OutputIsNeverActedOn) {
  record_.SSIEnable(true);
  record_.HTMLFunctionsEnable(true);
  for (const std::string output :
       {"<!--#execcgi=show.exe-->", "<!--#execcgi=tools/deep.exe-->", "<!--#includefile=other.txt-->",
        "<!--#echovar=SERVER_NAME-->", "<%=SERVER_NAME%>", "<%=FunctionNow()%>", "<!--# exec cgi = show.exe -->"}) {
    runner_.Print(output);
    EXPECT_EQ(Processed("a<!--#execcmd=beside.exe-->b<!--#execcgi=show.exe-->c"), "a" + output + "b" + output + "c");
    EXPECT_EQ(Started().size(), 2u) << output;
  }
  runner_.Print("<!--#execcgi=");
  EXPECT_EQ(Processed("<!--#execcmd=beside.exe-->show.exe-->"), "<!--#execcgi=show.exe-->");
  EXPECT_EQ(Started().size(), 1u) << "nor together with what the author wrote";
}

TEST_F(ExecDirectivesTest, WhatAClientSentIsWordsOnly) {
  record_.SSIEnable(true);
  info_.QueryString = "q=a;id|$(id)<!--#execcgi=tools/deep.exe-->?x";
  EXPECT_EQ(Processed("<!--#execcgi=show.exe?<%=Request.QueryString(q)%>-->"), "OUT");
  EXPECT_EQ(Started(), Lines({Path("cgi/show.exe") + "|a;id|$(id)<!--#execcgi=tools/deep.exe-->?x"}));
  EXPECT_EQ(Processed("<!--#execcgi=test.bat?<%=Request.QueryString(q)%>-->"), "OUT");
  EXPECT_EQ(Started(), Lines({"/bin/sh|" + Path("cgi/test.bat") + "|a;id|$(id)<!--#execcgi=tools/deep.exe-->|x"}));
  info_.UserAgent = "two  words -- \"quoted\"";
  EXPECT_EQ(Processed("<!--#execcgi=show.exe?<%=HTTP_USER_AGENT%>-->"), "OUT");
  EXPECT_EQ(Started(), Lines({Path("cgi/show.exe") + "|two|words|--|\"quoted\""}));
  info_.UserAgent = "<!--#execcgi=show.exe-->";
  EXPECT_EQ(Processed("<!--#echo var=HTTP_USER_AGENT-->"), info_.UserAgent);
  EXPECT_EQ(Started(), Lines()) << "an echo is no directive";
}

TEST_F(ExecDirectivesTest, ANameThatAClientSentStaysInItsFolder) {
  record_.SSIEnable(true);
  info_.QueryString = "p=../secret.exe";
  EXPECT_EQ(Processed("<!--#execcgi=<%=Request.QueryString(p)%>-->"), kNotFound);
  info_.QueryString = "p=show.exe";
  EXPECT_EQ(Processed("<!--#execcgi=../<%=Request.QueryString(p)%>-->"), kNotFound);
  EXPECT_EQ(Started(), Lines());
}

TEST_F(ExecDirectivesTest, DirectivesOfAnIncludedPageAreRunBesideIt) {
  record_.SSIEnable(true);
  tree_.Write("www/docs/part.htm", "(<!--#exec cmd=\"local.exe\"-->)");
  EXPECT_EQ(Processed("<!--#includefile=docs/part.htm-->"), "(OUT)");
  EXPECT_EQ(Started(), Lines({Path("www/docs/local.exe")}));
  EXPECT_EQ(Processed("<!--#execcmd=local.exe--><!--#includefile=docs/part.htm-->"), std::string(kNotFound) + "(OUT)");
}

TEST_F(ExecDirectivesTest, OtherTypesAreNoPages) {
  EXPECT_EQ(Processed("<!--#execcgi=show.exe-->", "page.txt"), "<!--#execcgi=show.exe-->");
  EXPECT_EQ(Started(), Lines());
}

TEST_F(ExecDirectivesTest, WithoutCGIDirectivesStay) {
  record_.CGIEnable(false);
  for (const bool warning : {false, true}) {
    record_.CGIWarningEnable(warning);
    EXPECT_EQ(Processed("<!--#exec cgi=\"show.exe\"-->"), "<!--#execcgi=show.exe-->") << "normalised only";
  }
  EXPECT_EQ(Started(), Lines());
}

TEST_F(ExecDirectivesTest, AFailureIsShownInThePage) {
  runner_.Fail(ProgramResult::Failure::kStart, 13);
  EXPECT_EQ(Processed("a<!--#execcgi=show.exe-->b"),
            "aCreate::Process Failed.<BR><br>Error Number: 13<BR><br>Error Desc: Permission denied<BR><br>b");
}

TEST(ExecDirectivesHostTest, AProgramThatMayBeExecutedButNotReadHasErrorNumber13) {
  const int status = Kit::InUnprivilegedChild([] {
    Kit::PageSite site;
    site.record.CGIEnable(true);
    site.cgi.Write("secret.exe", "#!/bin/sh\n");
    std::filesystem::permissions(site.cgi.Path() / "secret.exe", std::filesystem::perms(0111));
    if (site.Page("<!--#execcgi=secret.exe-->").find("Error Number: 13") == std::string::npos) return 1;
    const std::vector<std::string> reports = {"Program secret.exe: not started, [13] Permission denied"};
    return site.host.reports == reports ? 0 : 2;
  });
  ASSERT_NE(status, Kit::kCannotDropUser);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace TesselServer
