#include <gtest/gtest.h>

#include <utility>

#include "http/cls_HTTP.h"
#include "tests/kit/AnswerText.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

class NoControl : public ParentControl {
 public:
  std::shared_ptr<const std::string> RaiseCallFunction(std::int32_t, const std::string&, const std::string&,
                                                       const std::string&) override {
    return {};
  }
  bool FunctionWasAnswered(std::int32_t) const override { return false; }
  void ReportProgram(const std::string&) override {}
};

class cls_HTTPTest : public testing::Test {
 protected:
  cls_HTTPTest() { record_.ServerSoftware("Orvane Tessel/1.1"); }

  static std::string Header(std::string_view statusLine, std::string_view rest) {
    return std::string(statusLine) + "\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\n" +
           std::string(rest) + "\r\n";
  }

  Kit::FakeWorld world_;
  cls_HTTP record_{world_};
};

TEST_F(cls_HTTPTest, ANewRecordIsEmpty) {
  const cls_HTTP record(world_);
  EXPECT_EQ(record.ConnectionIndex(), 0);
  for (const std::string& text :
       {record.VirtualPath(), record.ServerIP(), record.ServerPort(), record.ServerSoftware(), record.ServerName(),
        record.CGIDirectory(), record.CGIExtraSetting(), record.ApplicationFolder(), record.Request().RemoteAddr}) {
    EXPECT_EQ(text, "");
  }
  EXPECT_FALSE(record.HTMLFunctionsEnable());
  EXPECT_FALSE(record.SSIEnable());
  EXPECT_FALSE(record.CGIEnable());
  EXPECT_FALSE(record.CGIWarningEnable());
  EXPECT_EQ(record.CGITimeout(), 0);
  EXPECT_EQ(record.CGITimeoutMilliseconds(), 0);
  EXPECT_EQ(record.ParentControl(), nullptr);
  EXPECT_EQ(record.ContentTypeSource(), e_ContentTypeSource::Registry);
  EXPECT_EQ(record.ContentTypeLines(), nullptr);
  EXPECT_EQ(record.Root(), nullptr);
  EXPECT_EQ(record.Secrets(), nullptr);
  EXPECT_EQ(record.Runner(), nullptr);
}

TEST_F(cls_HTTPTest, SharedSettingsAreThoseOfTheMoment) {
  cls_HTTP shared(world_);
  shared.VirtualPath("/one");
  shared.SSIEnable(true);
  shared.CGITimeout(30);
  record_.ConnectionIndex(7);
  record_.ShareSettings(shared);
  EXPECT_EQ(record_.VirtualPath(), "/one");
  EXPECT_TRUE(record_.SSIEnable());
  EXPECT_EQ(record_.CGITimeoutMilliseconds(), 30'000);
  EXPECT_EQ(record_.ServerSoftware(), "") << "all settings are the other's";
  EXPECT_EQ(record_.ConnectionIndex(), 7) << "but its connection is its own";
  EXPECT_EQ(&record_.VirtualPath(), &shared.VirtualPath()) << "there is one copy";

  shared.VirtualPath("/two");
  shared.SSIEnable(false);
  EXPECT_EQ(record_.VirtualPath(), "/one") << "changed for the other only";
  EXPECT_TRUE(record_.SSIEnable());
  record_.ShareSettings(shared);
  EXPECT_EQ(record_.VirtualPath(), "/two");
  record_.VirtualPath("/three");
  EXPECT_EQ(shared.VirtualPath(), "/two");
  EXPECT_EQ(cls_HTTP(world_).VirtualPath(), "") << "new records begin with nothing";
}

TEST_F(cls_HTTPTest, ASettingWrittenAgainKeepsTheSharedCopy) {
  cls_HTTP shared(world_);
  shared.VirtualPath("/one");
  record_.ShareSettings(shared);
  shared.VirtualPath("/one");
  shared.SSIEnable(false);
  EXPECT_EQ(&record_.VirtualPath(), &shared.VirtualPath());
}

TEST_F(cls_HTTPTest, TheServerLineFollowsItsSetting) {
  const std::string before = record_.BuildHeader("200", 0, "", true, "");
  EXPECT_EQ(before, Header("HTTP/1.0 200 OK", ""));
  record_.ServerSoftware("other");
  EXPECT_EQ(record_.BuildHeader("200", 0, "", true, ""),
            "HTTP/1.0 200 OK\r\nServer: other\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\n\r\n");
  record_.ServerSoftware("Orvane Tessel/1.1");
  EXPECT_EQ(record_.BuildHeader("200", 0, "", true, ""), before);
}

TEST_F(cls_HTTPTest, EverySettingReadsBackAsWritten) {
  NoControl control;
  record_.ConnectionIndex(10000);
  record_.VirtualPath("/srv/www");
  record_.ServerIP("192.0.2.1");
  record_.ServerPort("8080");
  record_.ServerSoftware("software");
  record_.ServerName("name");
  record_.HTMLFunctionsEnable(true);
  record_.SSIEnable(true);
  record_.CGIEnable(true);
  record_.CGIDirectory("/srv/cgi");
  record_.CGIWarningEnable(true);
  record_.CGIExtraSetting("extra");
  record_.ParentControl(&control);
  record_.ContentTypeSource(e_ContentTypeSource::Internal);
  record_.ApplicationFolder("/opt/app");
  EXPECT_EQ(record_.ConnectionIndex(), 10000);
  EXPECT_EQ(record_.VirtualPath(), "/srv/www");
  EXPECT_EQ(record_.ServerIP(), "192.0.2.1");
  EXPECT_EQ(record_.ServerPort(), "8080");
  EXPECT_EQ(record_.ServerSoftware(), "software");
  EXPECT_EQ(record_.ServerName(), "name");
  EXPECT_TRUE(record_.HTMLFunctionsEnable());
  EXPECT_TRUE(record_.SSIEnable());
  EXPECT_TRUE(record_.CGIEnable());
  EXPECT_EQ(record_.CGIDirectory(), "/srv/cgi");
  EXPECT_TRUE(record_.CGIWarningEnable());
  EXPECT_EQ(record_.CGIExtraSetting(), "extra");
  EXPECT_EQ(record_.ParentControl(), &control);
  EXPECT_EQ(record_.ContentTypeSource(), e_ContentTypeSource::Internal);
  EXPECT_EQ(record_.ApplicationFolder(), "/opt/app");
}

TEST_F(cls_HTTPTest, TheTimeoutIsWrittenInSecondsAndReadInTensOfThem) {
  const struct {
    std::int32_t written, milliseconds, read;
  } cases[] = {
      {30, 30'000, 3},
      {0, 0, 0},
      {9, 9'000, 0},
      {10, 10'000, 1},
      {19, 19'000, 1},
      {2'000'000, 2'000'000'000, 200'000},
      {2'000'001, 2'000'000'000, 200'000},
      {3'000'000, 2'000'000'000, 200'000},
      {-5, 2'000'000'000, 200'000},
      {-1, 2'000'000'000, 200'000},
      {std::numeric_limits<std::int32_t>::max(), 2'000'000'000, 200'000},
      {std::numeric_limits<std::int32_t>::min(), 2'000'000'000, 200'000},
  };
  for (const auto& c : cases) {
    record_.CGITimeout(c.written);
    EXPECT_EQ(record_.CGITimeoutMilliseconds(), c.milliseconds) << c.written;
    EXPECT_EQ(record_.CGITimeout(), c.read) << c.written;
  }
}

TEST_F(cls_HTTPTest, IncludeChildReadsBackFalseWhateverWasWritten) {
  record_.IncludeChild(true);
  EXPECT_FALSE(record_.IncludeChild());
  record_.IncludeChild(false);
  EXPECT_FALSE(record_.IncludeChild());
}

TEST_F(cls_HTTPTest, ThePlatformIsOfTheNTFamily) { EXPECT_TRUE(record_.IsWinNT()); }

TEST_F(cls_HTTPTest, RequestValuesAreReplacedTogetherAndForgottenAtTheEnd) {
  RequestInfo info;
  info.RemoteAddr = "192.0.2.7";
  info.RequestFlags = 7;
  info.QueryString = std::string(100'000, 'q');
  record_.SetRequestInfo(info);
  EXPECT_EQ(record_.Request().RequestFlags, 7);
  EXPECT_EQ(record_.ServerVariable("REMOTE_ADDR"), "192.0.2.7");
  EXPECT_EQ(record_.ServerVariable("QUERY_STRING"), info.QueryString);
  record_.SetRequestInfo(RequestInfo());
  EXPECT_EQ(record_.ServerVariable("REMOTE_ADDR"), "");
  record_.ServerPort("80");
  record_.SetRequestInfo(info);
  record_.EndRequest();
  EXPECT_EQ(record_.Request().RequestFlags, 0);
  EXPECT_EQ(record_.ServerVariable("REMOTE_ADDR"), "");
  EXPECT_LT(record_.Request().QueryString.capacity(), 1000u) << "long texts give their memory back";
  EXPECT_EQ(record_.ServerPort(), "80") << "settings stay";
}

TEST_F(cls_HTTPTest, ABlankNameListsAllVariables) {
  record_.VirtualPath("/srv/www");
  record_.ServerPort("8080");
  RequestInfo info;
  info.RemoteAddr = "192.0.2.7";
  info.RequestMethod = "GET";
  info.DocumentURI = "/a.htm";
  info.ScriptName = "a.htm";
  record_.SetRequestInfo(info);
  const std::string expected =
      "AUTH_TYPE=Basic\r\nCONTENT_LENGTH=\r\nCONTENT_TYPE=\r\nGATEWAY_INTERFACE=CGI/1.1\r\nHTTP_ACCEPT=\r\n"
      "HTTP_REFERER=\r\nHTTP_USER_AGENT=\r\nPATH_INFO=/srv/www\r\nPATH_TRANSLATED=/srv/www\r\nQUERY_STRING=\r\n"
      "REMOTE_ADDR=192.0.2.7\r\nREMOTE_HOST=Unknown\r\nREMOTE_USER=\r\nREQUEST_METHOD=GET\r\nSCRIPT_NAME=a.htm\r\n"
      "SERVER_NAME=\r\nSERVER_PORT=8080\r\nSERVER_PROTOCOL=HTTP/1.0\r\nSERVER_SOFTWARE=Orvane Tessel/1.1\r\n"
      "SERVER_IP=\r\nTIME=06:20:05PM\r\nDATE=11/15/2026\r\nDATE_LOCAL=11/15/2026\r\n"
      "DATE_GMT=Sun, 15 Nov 2026 18:20:05 GMT\r\nCOUNTER=\r\nDAY_OF_WEEK=Sunday\r\nDOCUMENT_NAME=a.htm\r\n"
      "DOCUMENT_URI=/a.htm\r\nDOCUMENT_URL=/a.htm\r\n";
  EXPECT_EQ(record_.ServerVariables("  ", "\r\n"), expected);
  EXPECT_EQ(record_.ServerVariables("", "\r\n"), expected);
  EXPECT_EQ(record_.ServerVariables("SERVER_PORT", "\r\n"), "8080") << "one name: its value alone";
  EXPECT_EQ(record_.ServerVariables(" SERVER_PORT", "\r\n"), "") << "a name is not trimmed";
  EXPECT_EQ(record_.ServerVariables("NO_SUCH_NAME", "\r\n"), "");
  EXPECT_EQ(record_.ServerVariables("remote_addr", "\r\n"), "");
}

TEST_F(cls_HTTPTest, ErrorNumbersHaveTheSystemsTexts) {
  EXPECT_EQ(record_.SystemErrorText(2), "No such file or directory");
  EXPECT_EQ(record_.SystemErrorText(13), "Permission denied");
  EXPECT_EQ(record_.SystemErrorText(98), "Address already in use");
  for (const std::int32_t unknown :
       {41, 4711, -1, std::numeric_limits<std::int32_t>::max(), std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(record_.SystemErrorText(unknown), "Unknown error.") << unknown;
  }
  for (std::int32_t code = 1; code < 134; ++code) {
    const std::string text = record_.SystemErrorText(code);
    EXPECT_TRUE(!text.empty() && text.size() <= 255) << code;
  }
}

TEST_F(cls_HTTPTest, HeadersCarryTheRecordsSoftwareAndTheWorldsTime) {
  EXPECT_EQ(record_.BuildHeader("404", 0, "text/html", true, ""),
            Header("HTTP/1.0 404 Not Found", "Content-Type: text/html\r\n"));
  EXPECT_EQ(record_.BuildHeader("200", 1234, "", false, ""),
            "HTTP/1.0 200 OK\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\n"
            "Content-Length: 1234\r\n");
  EXPECT_EQ(record_.BuildHeader("418", 0, "", true, "X: 1\r\n"),
            Header("HTTP/1.0 418 Undefined Status Code", "X: 1\r\n"));
  world_.Advance(1000);
  EXPECT_EQ(record_.BuildHeader("200", 0, "", true, ""),
            "HTTP/1.0 200 OK\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:06 GMT\r\n\r\n");
  record_.ServerSoftware("Mine\r\nX-Injected: 1\r\n\r\n");
  EXPECT_EQ(record_.BuildHeader("200", 0, "", true, ""),
            "HTTP/1.0 200 OK\r\nServer: Mine\r\nDate: Sun, 15 Nov 2026 18:20:06 GMT\r\n\r\n");
}

TEST_F(cls_HTTPTest, StatusTextsGoOneWayOnly) {
  EXPECT_EQ(cls_HTTP::StatusText("404"), "Not Found");
  EXPECT_EQ(cls_HTTP::StatusText("299"), "Undefined Status Code");
  for (const char* phrase :
       {"OK", "Created", "Accepted", "No Content", "Moved Permanently", "Moved Temporarily", "Not Modified",
        "Bad Request", "Unauthorized", "Forbidden", "Not Found", "Internal Server Error", "Not Implemented",
        "Bad Gateway", "Service Unavailable", "Undefined Status Code", "not found", "", "404"}) {
    EXPECT_EQ(cls_HTTP::StatusCode(phrase), phrase);
  }
}

TEST_F(cls_HTTPTest, ABuiltInErrorPageSaysOKAndIsOneByteLongerThanAnnounced) {
  const Answer answer = RunNow(record_.ErrorPage("404", false));
  const std::string page = Kit::BodyText(answer);
  EXPECT_EQ(page.size(), 467u);
  EXPECT_NE(page.find("HTTP 404: File Not Found"), std::string::npos);
  EXPECT_EQ(answer.head, Header("HTTP/1.0 200 OK", "Content-Type: text/html\r\nContent-Length: 466\r\n"));
  EXPECT_NE(Kit::BodyText(RunNow(record_.ErrorPage("403", false))).find("HTPP 403: Forbidden"), std::string::npos);
}

TEST_F(cls_HTTPTest, TheTooBusyPageIsABodyAlone) {
  EXPECT_TRUE(record_.ServerTooBusyPage().starts_with("<html><head>"));
  EXPECT_TRUE(record_.ServerTooBusyPage().ends_with("handle you request.</dt></dl></body></html>"));
}

class ErrorFileTest : public cls_HTTPTest {
 protected:
  ErrorFileTest() {
    record_.ContentTypeSource(e_ContentTypeSource::Internal);
    record_.ApplicationFolder(tree_.Text());
  }

  std::string PageOf(std::string_view code) {
    return Kit::BodyText(RunNow(record_.ErrorPage(std::string(code), true)));
  }

  Kit::TemporaryTree tree_;
};

TEST_F(ErrorFileTest, TheFileOfTheCodeIsSentWithItsTrueLength) {
  tree_.Write("html/errors/http404.html", "404 file");
  tree_.Write("html/errors/http500.html", "the 500 file");
  const Answer answer = RunNow(record_.ErrorPage("500", true));
  EXPECT_EQ(Kit::WholeText(answer),
            Header("HTTP/1.0 200 OK", "Content-Type: text/html\r\nContent-Length: 12\r\n") + "the 500 file");
}

TEST_F(ErrorFileTest, TheFileOf404IsUsedForAMissingOne) {
  tree_.Write("html/errors/http404.html", "404 file");
  EXPECT_EQ(Kit::WholeText(RunNow(record_.ErrorPage("500", true))),
            Header("HTTP/1.0 200 OK", "Content-Type: text/html\r\nContent-Length: 8\r\n") + "404 file");
}

TEST_F(ErrorFileTest, WithoutAnyFileAHeaderAloneIsTheAnswer) {
  record_.SSIEnable(true);
  EXPECT_EQ(Kit::WholeText(RunNow(record_.ErrorPage("500", true))),
            Header("HTTP/1.0 404 Not Found", "Content-Type: text/html\r\n"));
}

TEST_F(ErrorFileTest, ItsPageKnowsTheServerButNotTheRequest) {
  tree_.Write("html/errors/http404.html", "<%=SERVER_NAME%>|<%=DOCUMENT_URI%>|<%=REMOTE_ADDR%>|<%=PATH_INFO%>");
  record_.SSIEnable(true);
  record_.VirtualPath("/srv/www");
  record_.ServerName("www.example.test");
  RequestInfo info;
  info.DocumentURI = "/missing.htm";
  info.RemoteAddr = "192.0.2.7";
  record_.SetRequestInfo(info);
  EXPECT_EQ(PageOf("404"), "www.example.test|||" + tree_.Text() + "\\html");
  EXPECT_EQ(record_.VirtualPath(), "/srv/www") << "the record itself is as it was";
  EXPECT_EQ(record_.Request().DocumentURI, "/missing.htm");
}

TEST_F(ErrorFileTest, ItsPageObeysTheSwitchesButForPrograms) {
  const char* page = "<%=SERVER_PROTOCOL%><!--#execcgi=a.exe--><%=FunctionF()%>";
  tree_.Write("html/errors/http404.html", page);
  record_.CGIEnable(true);
  record_.CGIWarningEnable(true);
  EXPECT_EQ(PageOf("404"), page) << "all other switches off";
  record_.SSIEnable(true);
  EXPECT_EQ(PageOf("404"), "HTTP/1.0<!--#execcgi=a.exe--><%=FunctionF()%>");
  record_.HTMLFunctionsEnable(true);
  EXPECT_EQ(PageOf("404"), "HTTP/1.0<!--#execcgi=a.exe-->") << "no control answers";
  EXPECT_TRUE(record_.CGIEnable());
}

TEST_F(ErrorFileTest, ItsPageIncludesWhatLiesInItsOwnFolders) {
  tree_.Write("html/errors/http404.html",
              "<!--#includefile=part.htm-->|<!--#include=top.htm-->|<!--#include=page.htm-->|"
              "<!--#includefile=../../secret.htm-->|<!--#include=/errors/part.htm-->");
  tree_.Write("html/errors/part.htm", "part");
  tree_.Write("html/top.htm", "top");
  tree_.Write("secret.htm", "secret");
  const Kit::TemporaryTree root;
  root.Write("page.htm", "a page of the site");
  record_.VirtualPath(root.Text());
  record_.Root(std::make_shared<RootFolder>(root.Text()));
  record_.SSIEnable(true);
  EXPECT_EQ(PageOf("404"), "part|top|<!--#include=page.htm-->|<!--#includefile=../../secret.htm-->|part");
}

TEST_F(ErrorFileTest, AFailureInsideItAsksForNoOtherErrorPage) {
  tree_.Write("html/errors/http404.html", "404 <!--#include=missing.htm-->");
  tree_.Write("html/errors/http500.html", "500 <!--#include=errors/http500.html--><!--#include=errors/http404.html-->");
  record_.SSIEnable(true);
  EXPECT_EQ(PageOf("500"), "500 <!--#include=errors/http500.html-->404 <!--#include=missing.htm-->");
}

}  // namespace
}  // namespace TesselServer
