// Pages that are alive, over the wire: what a client sends is never acted on, what an author got wrong ends well, and a
// page full of tags costs no time.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include "tests/kit/Programs.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using testing::IsEmpty;

// Everything switched on, and a program that leaves a mark when it is run.
class LivePagesTest : public Kit::WireTest {
 protected:
  LivePagesTest() {
    control.tree.Write("secret.txt", "the secret beside the root");
    control.Write("index.html", "the index");
    control.Write("part.txt", "part");
    Kit::WriteProgram(control.tree, "cgi/mark.exe", ": > $here/mark\nprintf marked");
    Kit::WriteProgram(control.tree, "root/mark.exe", ": > $here/mark\nprintf marked");
    Kit::WriteProgram(control.tree, "outside/mark.exe", ": > $here/mark\nprintf marked");
    control.tessel.CGIDirectory(control.tree.Text() + "/cgi");
    control.tessel.CGIEnable(true);
    control.tessel.SSIEnable(true);
    control.tessel.HTMLFunctionsEnable(true);
    control.tessel.CallFunction = [this](std::int32_t& index, std::string& name) {
      ++asked[name];
      const auto function = functions.find(name);
      if (function != functions.end()) control.tessel.ReturnData(index, function->second(index));
    };
    control.Start(4);
  }

  bool WasMarked() const { return std::filesystem::exists(control.tree.Path() / "mark"); }

  std::string Served(const std::string& page) {
    control.Write("page.html", page);
    return BodyOf(control.Get("/page.html"));
  }

  std::map<std::string, std::function<std::string(std::int32_t)>> functions;
  std::map<std::string, int> asked;
};

// ---- What a client sends.

const char* const kEchoes[] = {
    "<!--#echo var=\"QUERY_STRING\"-->", "<!--#echo var=\"HTTP_USER_AGENT\"-->",
    "<!--#echo var=\"HTTP_REFERER\"-->", "<%= Request.ServerVariables(\"HTTP_REFERER\") %>",
    "<%= Request.QueryString(\"x\") %>", "<%= HTTP_USER_AGENT %>",
};

TEST_F(LivePagesTest, WhatAClientSendsIsShownAndNeverActedOn) {
  std::string echoes;
  for (const char* echo : kEchoes) echoes += "[" + std::string(echo) + "]";
  control.Write("echo.html", echoes);
  control.Write("outer.html", "(<!--#include file=\"echo.html\"-->)");
  control.Write("inner.html", echoes + "<!--#exec cgi=\"none.exe\"--><%=FunctionShow()%>");
  functions["Show"] = [](std::int32_t) { return "shown"; };
  for (const std::string hostile : {
           "<!--#execcgi=mark.exe-->",
           "<!--#exec\tcgi=\"mark.exe\"-->",
           "<!--#execcmd=mark.exe-->",
           "<!--#include=part.txt-->",
           "<!--#includevirtual=part.txt-->",
           "<!--#includefile=part.txt-->",
           "<!--#echovar=SERVER_SOFTWARE-->",
           "<%=FunctionStolen()%>",
           "<%=SERVER_SOFTWARE%>",
           "<%=Request.ServerVariables(SERVER_SOFTWARE)%>",
           "<%=Request.QueryString(x)%>",
           "--><!--#execcgi=mark.exe-->",
           "%><%=FunctionStolen()%>",
           "<!--#execcgi=",
           "<%=Function",
           "<!--#",
       }) {
    std::string shown =
        "[x=" + hostile + "][" + hostile + "][" + hostile + "][" + hostile + "][" + hostile + "][" + hostile + "]";
    const auto ask = [&](const std::string& url) {
      return BodyOf(control.Ask("GET " + url + "?x=" + hostile + " HTTP/1.0\r\nUser-Agent: " + hostile +
                                "\r\nReferer: " + hostile + "\r\n\r\n"));
    };
    EXPECT_EQ(ask("/echo.html"), shown);
    EXPECT_EQ(ask("/outer.html"), "(" + shown + ")");
    const std::string inner = ask("/inner.html");
    EXPECT_TRUE(inner.starts_with(shown + "Create::Process Failed.<BR>")) << inner;
    EXPECT_TRUE(inner.ends_with("shown")) << inner;
  }
  EXPECT_EQ(asked.count("Stolen"), 0u);
  EXPECT_FALSE(WasMarked());
}

TEST_F(LivePagesTest, ATagInTwoHalvesIsNone) {
  control.Write("echo.html",
                "<!--#echo var=\"QUERY_STRING\"--><!--#echo var=\"HTTP_REFERER\"--><%= HTTP_USER_AGENT %>");
  control.Write("outer.html", "<!--#include file=\"echo.html\"--><!--#echo var=\"HTTP_USER_AGENT\"-->");
  struct {
    std::string first, second, third;
  } const cases[] = {
      {"<!--#execcgi=", "mark.exe", "-->"}, {"<!", "--#execcgi=mark.exe--", ">"}, {"<%=Func", "tionStolen()", "%>"},
      {"<!--#include", "=part.txt", "-->"}, {"<%", "=FunctionStolen()%", ">"},
  };
  for (const auto& c : cases) {
    const std::string rest =
        "?" + c.first + " HTTP/1.0\r\nReferer: " + c.second + "\r\nUser-Agent: " + c.third + "\r\n\r\n";
    const std::string shown = c.first + c.second + c.third;
    EXPECT_EQ(BodyOf(control.Ask("GET /echo.html" + rest)), shown);
    EXPECT_EQ(BodyOf(control.Ask("GET /outer.html" + rest)), shown + c.third);
  }
  EXPECT_THAT(asked, IsEmpty());
  EXPECT_FALSE(WasMarked());
}

TEST_F(LivePagesTest, AFormThatAHostShowsBackIsText) {
  functions["Body"] = [&](std::int32_t index) { return control.tessel.RequestBody(index); };
  control.Write("form.html", "<p><%=FunctionBody()%></p>");
  for (const std::string body : {"name=Anna&city=Graz", "<!--#execcgi=mark.exe-->", "<%=FunctionStolen()%>"}) {
    EXPECT_EQ(RunWell({"curl", "-sS", "-d", body, control.Url("/form.html")}), "<p>" + body + "</p>");
  }
  EXPECT_FALSE(WasMarked());
}

// The text with a NUL for each "@".
std::string WithNul(std::string text) {
  std::replace(text.begin(), text.end(), '@', '\0');
  return text;
}

// ---- What an author got wrong. Each page is followed by another request, which is served.

TEST_F(LivePagesTest, WhatIsWrongInAPageCostsThatTagOnly) {
  const std::string root = control.root;
  control.Write("sub/index.html", "in a folder");
  control.Write("self.html", "<<!--#include file=\"self.html\"-->>");
  control.Write("ring1.html", "1<!--#include file=\"ring2.html\"-->");
  control.Write("ring2.html", "2<!--#include virtual=\"/ring1.html\"-->");
  control.Write("htaccess.txt", "user:password");
  control.Write("users.lst", "user:password");
  std::filesystem::create_symlink("../secret.txt", root + "/away.txt");
  std::filesystem::create_symlink("users.lst", root + "/alias.txt");
  std::filesystem::create_symlink("../outside/mark.exe", control.tree.Path() / "cgi/away.exe");
  Kit::WriteProgram(control.tree, "cgi/words.exe", "printf '(%s)' \"$@\"");
  Kit::WriteProgram(control.tree, "cgi/words.bat", "printf '(%s)' \"$@\"");
  control.tessel.AuthenticationSource(e_AuthSource::DomainACL);
  control.tessel.AuthenticationSourceFile(root + "/users.lst");
  const std::string failed =
      "Create::Process Failed.<BR><br>Error Number: 2<BR><br>Error Desc: No such file or "
      "directory<BR><br>";
  struct {
    std::string page, served;
    const char* why;
  } const cases[] = {
      {"<!--#include file=\"part.txt\"-->,<!--#include file=\"part.txt", "part,<!--#include file=\"part.txt", "no end"},
      {"<%=SERVER_PROTOCOL%>,<%=SERVER_PROTOCOL", "HTTP/1.0,<%=SERVER_PROTOCOL", "no end"},
      {"<!--#echo var=SERVER_PROTOCOL-->,<!--#echo var=", "HTTP/1.0,<!--#echo var=", "no end"},
      {"<!--#exec cgi=\"words.exe\"-->,<!--#exec cgi=\"mark.exe\"", "(),<!--#exec cgi=\"mark.exe\"", "no end"},
      {"<%=FunctionA()%>,<%=FunctionB(", ",<%=FunctionB(", "no end"},
      {"<!--#include file=part.txt>,<!--#exec cgi=mark.exe>", "<!--#includefile=part.txt>,<!--#execcgi=mark.exe>",
       "another end"},
      {"<!--#include file=\"\"-->", "<!--#includefile=-->", "no name"},
      {"<!--#include virtual=\"/\"-->", "<!--#includevirtual=/-->", "the root"},
      {"<!--#include virtual=\"sub\"-->", "<!--#includevirtual=sub-->", "a folder"},
      {"<!--#include virtual=\"sub/\"-->", "<!--#includevirtual=sub/-->", "a folder"},
      {"<!--#include file=\"self.html\"-->", "<<!--#includefile=self.html-->>", "itself"},
      {"<!--#include file=\"page.html\"-->", "<!--#includefile=page.html-->", "itself"},
      {"<!--#include file=\"ring1.html\"-->", "12<!--#includevirtual=/ring1.html-->", "a ring"},
      {"<!--#include file=\"../secret.txt\"-->", "<!--#includefile=../secret.txt-->", "outside"},
      {"<!--#include virtual=\"/../secret.txt\"-->", "<!--#includevirtual=/../secret.txt-->", "outside"},
      {"<!--#include file=\"..\\secret.txt\"-->", "<!--#includefile=..\\secret.txt-->", "outside"},
      {"<!--#include virtual=\"..\\secret.txt\"-->", "<!--#includevirtual=..\\secret.txt-->", "outside"},
      {"<!--#include virtual=\"...././secret.txt\"-->", "<!--#includevirtual=...././secret.txt-->", "outside"},
      {"<!--#include virtual=\"sub/..\\..\\secret.txt\"-->", "<!--#includevirtual=sub/..\\..\\secret.txt-->",
       "outside"},
      {"<!--#include file=\"/etc/passwd\"-->", "<!--#includefile=/etc/passwd-->", "an absolute name"},
      {"<!--#include virtual=\"//etc/passwd\"-->", "<!--#includevirtual=//etc/passwd-->", "an absolute name"},
      {"<!--#include file=\"away.txt\"-->", "<!--#includefile=away.txt-->", "a link that leads out"},
      {"<!--#include file=\"htaccess.txt\"-->", "<!--#includefile=htaccess.txt-->", "a password file"},
      {"<!--#include file=\"HTACCESS.TXT\"-->", "<!--#includefile=HTACCESS.TXT-->", "a password file"},
      {"<!--#include file=\"users.lst\"-->", "<!--#includefile=users.lst-->", "the password file"},
      {"<!--#include file=\"alias.txt\"-->", "<!--#includefile=alias.txt-->", "a link to it"},
      {WithNul("<!--#include file=\"part.txt@\"-->"), WithNul("<!--#includefile=part.txt@-->"), "NUL"},
      {"<!--#exec cgi=\"../outside/mark.exe\"-->", failed, "outside"},
      {"<!--#exec cgi=\"..\\outside\\mark.exe\"-->", failed, "outside"},
      {"<!--#exec cgi=\"/bin/sh\"-->", failed, "an absolute name"},
      {"<!--#exec cmd=\"../outside/mark.exe\"-->", failed, "outside"},
      {"<!--#exec cgi=\"away.exe\"-->", failed, "a link that leads out"},
      {"<!--#exec cgi=\"\"-->", failed, "no name"},
      {WithNul("<!--#exec cgi=\"mark.exe@\"-->"), failed, "NUL"},
      {WithNul("<!--#exec cgi=\"mark.exe@.bat\"-->"), failed, "NUL"},
      {"<!--#exec cgi=\"words.exe?;: > mark\"-->", "<!--#execcgi=words.exe?;:> mark\"-->", "ends in the middle"},
      {"<!--#exec cgi=\"words.exe?;touch\tmark|$(touch\tmark)`touch\tmark`&&'x*\"-->",
       "(;touch\tmark|$(touch\tmark)`touch\tmark`&&'x*)", "one word, no shell"},
      {"<!--#exec cgi=\"words.bat?;touch\tmark|$(touch\tmark)?'x&*\"-->", "(;touch\tmark|$(touch\tmark))('x)(*)",
       "words, no shell"},
      {"<!--#exec cgi=\"words.exe;mark.exe\"-->", failed, "no such name"},
      {"<!--#exec cgi=\"$(mark.exe)\"-->", failed, "no such name"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Served(c.page), c.served) << c.page << ": " << c.why;
    EXPECT_EQ(BodyOf(control.Get("/")), "the index") << "behind " << c.page;
  }
  EXPECT_FALSE(WasMarked());
}

TEST_F(LivePagesTest, AProgramsNameCannotBeTricked) {
  for (const char* url : {"/..%2foutside%2fmark.exe", "/..\\outside\\away.exe", "/x/mark.exe%00", "/mark.exe%00.txt",
                          "/away/mark.exe%0a", "/;mark.exe", "/$(mark.exe)", "/|mark.exe"}) {
    EXPECT_NE(BodyOf(control.Get(url)).find("HTTP 404: File Not Found"), std::string::npos) << url;
  }
  EXPECT_FALSE(WasMarked());
  EXPECT_EQ(BodyOf(control.Get("/x/MARK.EXE?;rm")), "marked") << "this one is there";
  EXPECT_TRUE(WasMarked());
}

// ---- What a page costs.

// Fetches a page into a file, whose size and end are told.
struct Fetched {
  std::uintmax_t size;
  std::string end;
};

TEST_F(LivePagesTest, APageOf64MiBIsProcessedAndALargerOneSentAsItIs) {
  constexpr std::size_t kLimit = 64 * 1024 * 1024;
  const std::string tag = "<!--#echo var=\"SERVER_PROTOCOL\"-->";
  const auto fetch = [&](std::size_t size) {
    control.Write("page.html", std::string(size - tag.size(), 'x') + tag);
    const std::string copy = control.tree.Text() + "/copy";
    RunWell({"curl", "-sS", "--max-time", "60", "-o", copy, control.Url("/page.html")}, std::chrono::seconds(60));
    std::ifstream bytes(copy, std::ios::binary);
    bytes.seekg(-40, std::ios::end);
    std::string end(40, '\0');
    bytes.read(end.data(), 40);
    return Fetched{std::filesystem::file_size(copy), end};
  };
  Fetched page = fetch(kLimit);
  EXPECT_EQ(page.size, kLimit - tag.size() + 8);
  EXPECT_TRUE(page.end.ends_with("xHTTP/1.0")) << page.end;
  page = fetch(kLimit + 1);
  EXPECT_EQ(page.size, kLimit + 1);
  EXPECT_TRUE(page.end.ends_with("x" + tag)) << page.end;
  EXPECT_EQ(BodyOf(control.Get("/")), "the index");
}

class PageCostTest : public LivePagesTest {
 protected:
  static constexpr int kTags = 20'000;
};

TEST_F(PageCostTest, TwentyThousandTagsAreAllAnswered) {
  functions["Number"] = [&](std::int32_t) { return std::to_string(asked["Number"]); };
  std::string page, served;
  for (int i = 1; i <= kTags; ++i) {
    page += "<p><%= Function Number( " + std::to_string(i) + " ) %></p>\n";
    served += "<p>" + std::to_string(i) + "</p>\n";
  }
  EXPECT_TRUE(Served(page) == served);
  EXPECT_EQ(asked["Number"], kTags);
}

TEST_F(PageCostTest, OneTagTwentyThousandTimesIsAskedForOnce) {
  functions["Name"] = [](std::int32_t) { return "answer"; };
  std::string page, served;
  for (int i = 0; i < kTags; ++i) {
    page += "<p><%= FunctionName() %></p>\n";
    served += "<p>answer</p>\n";
  }
  EXPECT_TRUE(Served(page) == served);
  EXPECT_EQ(asked["Name"], 1);
}

TEST_F(PageCostTest, ArgumentsOfAThousandTagsAreRead) {
  functions["Show"] = [&](std::int32_t index) {
    return control.tessel.QueryString(index, "n", control.tessel.QueryStringCount(index, "n"));
  };
  std::string page, served;
  for (int i = 1; i <= 1000; ++i) {
    page += "<%=FunctionShow(&n=" + std::to_string(i) + ")%>,";
    served += std::to_string(i) + ",";
  }
  EXPECT_EQ(Served(page), served);
}

}  // namespace
}  // namespace TesselServer
