// Which answer a request gets, byte for byte, and what the log is told of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// The header of an answer in the world of the tests.
std::string Head(const std::string& status, const std::string& type, std::size_t length) {
  return "HTTP/1.0 " + status +
         "\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\nContent-Type: " + type + "\r\n" +
         (length == 0 ? "" : "Content-Length: " + std::to_string(length) + "\r\n") + "\r\n";
}

std::string WholeAnswer(const std::string& type, const std::string& bytes) {
  return Head("200 OK", type, bytes.size()) + bytes;
}

// The page of an error; its announced length is one too small.
std::string ErrorPage(const std::string& title, const std::string& heading, const std::string& lines) {
  const std::string html =
      "<html><head><meta http-equiv=\"Content-Type\" content=\"text/html; charset=iso-8859-1\"><title>" + title +
      "</title></head><body bgcolor=\"#FFFFFF\"><p><font color=\"#FF0000\" face=\"Arial\"><strong>" + heading +
      "</strong></font></p><dl>" + lines + "</dl></body></html>";
  return Head("200 OK", "text/html", html.size() - 1) + html;
}

const std::string kSpacer = "<dt>&nbsp;</dt>";
std::string Line(const std::string& text) { return "<dt><font face=\"Arial\">" + text + "</font></dt>"; }

const std::string kNotFound =
    ErrorPage("HTTP Error 404", "HTTP 404: File Not Found",
              Line("Sorry, the requested page does not exist on this server.") +
                  Line("It is possible you typed the address incorrectly or that the page no longer exists. "));
const std::string kForbidden =
    ErrorPage("HTTP Error 403", "HTPP 403: Forbidden",
              Line("Sorry, you do not have permission to access the page you requested.") + kSpacer);
const std::string kBadRequest =
    ErrorPage("HTTP Error 501", "HTPP 501: Not Implemented",
              Line("Sorry, your valid request has not been displayed since this server does not support the requested "
                   "feature."));

class DispatchTest : public Kit::ControlTest {
 protected:
  void Start() { control.Start(); }
};

TEST_F(DispatchTest, AFileIsSentWithItsTypeAndLength) {
  struct {
    const char *name, *type;
  } const cases[] = {
      {"a.txt", "text/plain"},
      {"a.htm", "text/html"},
      {"a.HTML", "text/html"},
      {"a.css", "text/css"},
      {"a.png", "image/png"},
      {"a.unknown", "application/octet-stream"},
      {"a", "application/octet-stream"},
      {"txt", "text/plain"},
      {"dir.txt/a", "application/octet-stream"},
  };
  Start();
  for (const auto& c : cases) {
    tree.Write(c.name, std::string("bytes of ") + c.name);
    EXPECT_EQ(Get(std::string("/") + c.name), WholeAnswer(c.type, std::string("bytes of ") + c.name));
  }
}

TEST_F(DispatchTest, AnyBytesAndAnySizeGoOutUnchanged) {
  Start();
  std::string bytes;
  for (std::uint32_t x = 1; bytes.size() < 300000; x = x * 1664525u + 1013904223u) bytes += static_cast<char>(x >> 24);
  for (const std::size_t size :
       {std::size_t{1}, std::size_t{65535}, std::size_t{65536}, std::size_t{65537}, bytes.size()}) {
    tree.Write("a.bin", bytes.substr(0, size));
    EXPECT_TRUE(BodyOf(Get("/a.bin")) == bytes.substr(0, size)) << size;
  }
  tree.Write("empty.txt", "");
  EXPECT_EQ(Get("/empty.txt"), Head("200 OK", "text/plain", 0)) << "an empty file has no length line";
}

TEST_F(DispatchTest, AFolderIsServedByItsIndexPage) {
  tree.Write("index.html", "root index");
  tree.Write("docs/index.html", "docs index");
  tree.Write("docs/default.htm", "docs default");
  tree.Write("other/default.htm", "other default");
  Start();
  EXPECT_EQ(BodyOf(Get("/")), "root index");
  EXPECT_EQ(BodyOf(Get("/docs")), "docs index");
  EXPECT_EQ(BodyOf(Get("/docs/")), "docs index");
  EXPECT_EQ(BodyOf(Get("")), "") << "no URL";
  EXPECT_EQ(BodyOf(Get("http://host/docs/")), "docs index") << "an absolute URL";
  EXPECT_EQ(BodyOf(Get("https://host")), "root index") << "an absolute URL without a path";
  EXPECT_EQ(BodyOf(Get("?x=1")), "root index") << "a query to the root";
  tessel.IndexPageNames(" default.htm , index.html ");
  EXPECT_EQ(BodyOf(Get("/docs/")), "docs default") << "the first name wins";
  EXPECT_EQ(BodyOf(Get("/")), "root index") << "then the second";
  EXPECT_EQ(BodyOf(Get("/other/")), "other default");
  tessel.IndexPageNames("");
  EXPECT_EQ(Get("/docs/"), kForbidden) << "no names, no index page";
}

TEST_F(DispatchTest, PathsAreFoundInAnyCaseAndWithTheirBlanks) {
  tree.Write("docs/a b.htm", "blank");
  tree.Write("docs/my-file_1.htm", "dash");
  Start();
  struct {
    const char *url, *body;
  } const cases[] = {
      {"/docs/a%20b.htm", "blank"},
      {"/DOCS/A%20B.HTM", "blank"},
      {"/docs\\a%20b.htm", "blank"},
      {"\\docs\\a%20b.htm", "blank"},
      {"docs/a%20b.htm", "blank"},
      {"//docs///a%20b.htm", "blank"},
      {"/./docs/../docs/a%20b.htm", "blank"},
      {"/docs/a%20b.htm?query/../x", "blank"},
      {"/docs/my%2Dfile%5F1%2Ehtm", "dash"},
      {"/%64%6F%63%73/my-file_1.htm", "dash"},
  };
  for (const auto& c : cases) EXPECT_EQ(BodyOf(Get(c.url)), c.body) << c.url;
}

TEST_F(DispatchTest, WhatIsNotThereIs404) {
  Start();
  EXPECT_EQ(Get("/missing"), kNotFound);
  tessel.VerboseErrorsEnable(false);
  EXPECT_EQ(Get("/missing"), Head("404 Not Found", "text/html", 0));
}

TEST_F(DispatchTest, AFolderWithoutAnIndexPageIs403) {
  tree.MakeFolder("empty");
  Start();
  for (const char* url : {"/", "/empty", "/empty/"}) EXPECT_EQ(Get(url), kForbidden) << url;
  tessel.VerboseErrorsEnable(false);
  for (const char* url : {"/", "/empty", "/empty/"}) EXPECT_EQ(Get(url), Head("403 Forbidden", "text/html", 0)) << url;
}

TEST_F(DispatchTest, WhatMayNotBeReadIs403) {
  tree.Write("closed.txt", "closed");
  tree.MakeFolder("closed");
  chmod((tree.Text() + "/closed.txt").c_str(), 0);
  chmod((tree.Text() + "/closed").c_str(), 0);
  chmod(tree.Text().c_str(), 0755);
  Start();
  const auto owner = static_cast<uid_t>(setfsuid(65534));  // root reads everything; this thread now does not
  const std::string file = Get("/closed.txt");
  const std::string folder = Get("/closed/");
  setfsuid(owner);
  EXPECT_EQ(file, kForbidden);
  EXPECT_EQ(folder, kForbidden);
  EXPECT_EQ(control.log.size(), 2u);
  chmod((tree.Text() + "/closed").c_str(), 0700);
}

TEST_F(DispatchTest, OnlyFilesAndFoldersExist) {
  mkfifo((tree.Text() + "/fifo").c_str(), 0600);
  std::filesystem::create_symlink("/dev/zero", tree.Path() / "zero");
  std::filesystem::create_symlink("loop", tree.Path() / "loop");
  std::filesystem::create_symlink("missing", tree.Path() / "dangling");
  Start();
  for (const char* url : {"/fifo", "/zero", "/loop", "/dangling"}) EXPECT_EQ(Get(url), kNotFound) << url;
}

TEST_F(DispatchTest, ErrorPagesComeFromFilesWhenTheHostWantsIt) {
  Kit::TemporaryTree application;
  application.Write("html/errors/http404.html", "my 404");
  application.Write("html/errors/http403.html", "my 403");
  tessel.ApplicationFolder(application.Text());
  tessel.ErrorFilesEnable(true);
  Start();
  EXPECT_EQ(Get("/missing"), WholeAnswer("text/html", "my 404"));
  EXPECT_EQ(Get("/"), WholeAnswer("text/html", "my 403"));
  EXPECT_EQ(control.Ask("HEAD / HTTP/1.0\r\n\r\n"), WholeAnswer("text/html", "my 404")) << "400 has none of its own";
  tessel.VerboseErrorsEnable(false);
  EXPECT_EQ(Get("/missing"), Head("404 Not Found", "text/html", 0)) << "no page at all";
  tessel.VerboseErrorsEnable(true);
  tessel.ApplicationFolder("/nonexistent");
  EXPECT_EQ(Get("/missing"), Head("404 Not Found", "text/html", 0)) << "no file: the header alone";
}

TEST_F(DispatchTest, AProgramIsNeverSent) {
  tree.Write("run.exe", "program");
  tree.Write("folder.exe/index.html", "index");
  Start();
  const std::string warning =
      "HTTP/1.0 200 OKContent-Type: text/html\r\n\r\n<HTML><BODY><TITLE>CGI Warning</TITLE><h1>CGI Warning</h1>"
      "<p>CGI Script Processing is not enabled on this server.</p>\r\n\r\n<p>;nbsp</p></BODY></HTML>";
  for (const char* url : {"/run.exe", "/RUN.EXE", "/run.exe?x=1"}) EXPECT_EQ(Get(url), warning) << url;
  EXPECT_EQ(Get("/missing.exe"), kNotFound) << "404 comes first";
  EXPECT_EQ(BodyOf(Get("/folder.exe/")), "index") << "a folder is no program";
  ASSERT_EQ(control.log.size(), 5u);
  EXPECT_THAT(control.log[0], HasSubstr("\"GET /run.exe HTTP/1.0\" 200 " + std::to_string(warning.size()) + " "));
}

TEST_F(DispatchTest, ABadRequestIs400WithoutALogLine) {
  Start();
  for (const char* request : {"HEAD / HTTP/1.0\r\n\r\n", "get / HTTP/1.0\r\n\r\n", "POST / HTTP/1.0\r\n\r\n",
                              "nonsense\r\n\r\n", "POST / HTTP/1.0\r\nContent-Length: abc\r\n\r\n"}) {
    EXPECT_EQ(control.Ask(request), kBadRequest) << request;
  }
  tessel.VerboseErrorsEnable(false);
  EXPECT_EQ(control.Ask("HEAD / HTTP/1.0\r\n\r\n"), Head("400 Bad Request", "text/html", 0));
  EXPECT_THAT(control.log, IsEmpty());
  EXPECT_EQ(tessel.Stats_BytesSent(), "0K");
  EXPECT_EQ(tessel.Stats_Requests(), "6");
}

TEST_F(DispatchTest, EveryAnswerIsFollowedByACloseWithoutAReset) {
  tree.Write("a.txt", "text");
  Start();
  for (const char* request : {"GET /a.txt HTTP/1.0\r\n\r\n", "GET /missing HTTP/1.0\r\n\r\n", "GET  HTTP/1.0\r\n\r\n",
                              "HEAD /a.txt HTTP/1.0\r\n\r\n", "nonsense\r\n\r\n", "POST\r\n\r\n", "POST  \r\n\r\n",
                              "GET /a.txt HTTP/1.0\r\n\r\nGET /a.txt HTTP/1.0\r\n\r\n"}) {
    for (const bool verbose : {true, false}) {
      tessel.VerboseErrorsEnable(verbose);
      Kit::RawClient client(tessel.ListeningPort());
      client.Send(control.loop, request);
      client.ReceiveAll(control.loop);
      EXPECT_TRUE(client.Ended()) << request;
      EXPECT_FALSE(client.WasReset()) << request;
    }
  }
}

TEST_F(DispatchTest, ARequestForNothingIsClosedWithoutAnAnswer) {
  Start();
  EXPECT_EQ(control.Ask("GET  HTTP/1.0\r\n\r\n"), "");
  EXPECT_THAT(control.log, IsEmpty());
  EXPECT_THAT(control.errors, IsEmpty());
  tree.Write("a.txt", "next");
  EXPECT_EQ(BodyOf(Get("/a.txt")), "next") << "the slot is free";
}

TEST_F(DispatchTest, EveryLoggedAnswerHasItsLine) {
  tree.Write("a.txt", "text");
  tree.MakeFolder("empty");
  Start();
  std::vector<std::string> expected;
  struct {
    const char *url, *status;
  } const cases[] = {{"/a.txt", "200"}, {"/missing", "404"}, {"/empty", "403"}, {"/A.TXT?q=1", "200"}};
  for (const bool verbose : {true, false}) {
    tessel.VerboseErrorsEnable(verbose);
    for (const auto& c : cases) {
      const std::string line = std::string("GET ") + c.url + " HTTP/1.0";
      const std::string answer = control.Ask(line + "\r\nReferer: http://from/\r\nUser-Agent: agent 1\r\n\r\n");
      expected.push_back("127.0.0.1 - - [15/11/2026:18:20:05 -0000] \"" + line + "\" " + c.status + " " +
                         std::to_string(answer.size()) + " \"http://from/\" \"agent 1\"");
    }
  }
  const std::string answer = Get("/a.txt");
  expected.push_back("127.0.0.1 - - [15/11/2026:18:20:05 -0000] \"GET /a.txt HTTP/1.0\" 200 " +
                     std::to_string(answer.size()) + " \"\" \"\"");
  EXPECT_EQ(control.log, expected);
}

TEST_F(DispatchTest, LogStampsFollowTheZone) {
  control.world.bias = [](std::int64_t) { return -120; };
  tree.Write("a.txt", "text");
  Start();
  Get("/a.txt");
  ASSERT_EQ(control.log.size(), 1u);
  EXPECT_THAT(control.log[0], StartsWith("127.0.0.1 - - [15/11/2026:20:20:05 +0200] \"GET "));
}

TEST_F(DispatchTest, AChangedSettingHoldsForTheNextRequest) {
  tree.Write("one/a.txt", "one");
  tree.Write("two/a.txt", "two");
  tessel.VirtualPath(tree.Text() + "/one");
  Start();
  EXPECT_EQ(BodyOf(Get("/a.txt")), "one");
  tessel.VirtualPath(tree.Text() + "/two/");
  EXPECT_EQ(BodyOf(Get("/a.txt")), "two");
  EXPECT_EQ(tessel.VirtualPath(), tree.Text() + "/two/") << "never altered";
  tessel.ServerSoftware("Other/2\r\nX: 1");
  EXPECT_THAT(Get("/a.txt"), StartsWith("HTTP/1.0 200 OK\r\nServer: Other/2\r\nDate: "));
  tessel.ContentTypeSource(e_ContentTypeSource::File);
  tessel.ContentTypeSourceFile(tree.Write("types.txt", "txt,text/x-mine\n"));
  EXPECT_THAT(Get("/a.txt"), HasSubstr("Content-Type: text/x-mine\r\n"));
  tessel.VirtualPath("/nonexistent");
  EXPECT_EQ(BodyOf(Get("/a.txt")).find("two"), std::string::npos);
}

TEST_F(DispatchTest, ARegistryFileHoldsFromTheNextRequestOn) {
  tree.Write("a.txt", "text");
  Start();
  EXPECT_EQ(Get("/a.txt"), WholeAnswer("text/plain", "text"));
  tessel.LoadRegistryFile(tree.Write("types.reg", "HKEY_CLASSES_ROOT\\.txt\\Content Type=text/x-own\n"));
  EXPECT_EQ(Get("/a.txt"), WholeAnswer("text/x-own", "text"));
}

TEST_F(DispatchTest, APasswordFileNamedWhileServingIsHiddenFromTheNextRequestOn) {
  const std::string path = tree.Write("secrets.txt", "user:password");
  tree.Write("page.html", "[<!--#include=secrets.txt-->]");
  tessel.SSIEnable(true);
  tessel.AuthenticationSource(e_AuthSource::DomainACL);  // nobody is asked for a password
  Start();
  EXPECT_EQ(BodyOf(Get("/secrets.txt")), "user:password");
  EXPECT_EQ(BodyOf(Get("/page.html")), "[user:password]");
  tessel.AuthenticationSourceFile(path);
  EXPECT_EQ(Get("/secrets.txt"), kNotFound);
  EXPECT_EQ(BodyOf(Get("/page.html")), "[<!--#include=secrets.txt-->]");
  tessel.AuthenticationSourceFile(tree.Write("other.txt", ""));
  EXPECT_EQ(BodyOf(Get("/secrets.txt")), "user:password") << "no longer";
  EXPECT_EQ(BodyOf(Get("/page.html")), "[user:password]");
}

TEST_F(DispatchTest, ARootThatIsReplacedIsSeenByTheNextRequest) {
  tree.Write("site/page.html", "<!--#include=part.html-->");
  tree.Write("site/part.html", "before");
  tessel.SSIEnable(true);
  tessel.VirtualPath(tree.Text() + "/site");
  Start();
  EXPECT_EQ(BodyOf(Get("/page.html")), "before");
  std::filesystem::rename(tree.Path() / "site", tree.Path() / "old");
  EXPECT_EQ(Get("/page.html"), kNotFound);
  tree.Write("site/page.html", "(<!--#include=part.html-->)");
  tree.Write("site/part.html", "after");
  EXPECT_EQ(BodyOf(Get("/page.html")), "(after)");
}

TEST_F(DispatchTest, AFileChangedIsSeenByTheNextRequest) {
  Start();
  for (const char* text : {"first", "second, longer", "3"}) {
    tree.Write("a.txt", text);
    EXPECT_EQ(Get("/a.txt"), WholeAnswer("text/plain", text));
  }
  std::filesystem::remove(tree.Path() / "a.txt");
  EXPECT_EQ(Get("/a.txt"), kNotFound);
}

TEST_F(DispatchTest, ContentTypesNamedInABagAreReadAtTheStart) {
  MemoryPropertyBag bag;
  bag.Put("ServerIP", "127.0.0.1");
  bag.Put("ServerPort", "0");
  bag.Put("VirtualPath", tree.Text());
  bag.Put("ContentTypeSource", "1");
  const std::string types = tree.Write("types.txt", "txt,text/x-mine\n");
  bag.Put("ContentTypeSourceFile", types);
  tessel.ReadProperties(bag);
  tree.Write("a.txt", "text");
  Start();
  EXPECT_EQ(Get("/a.txt"), WholeAnswer("text/x-mine", "text"));
}

TEST_F(DispatchTest, ContentTypesNamedInABagReplaceThoseOfAnotherFile) {
  tessel.ContentTypeSource(e_ContentTypeSource::File);
  tessel.ContentTypeSourceFile(tree.Write("old.txt", "txt,text/x-old\n"));
  tree.Write("a.txt", "text");
  Start();
  EXPECT_EQ(Get("/a.txt"), WholeAnswer("text/x-old", "text"));
  tessel.StopServer();
  const auto readBag = [&](const std::string& types) {
    MemoryPropertyBag bag;
    tessel.WriteProperties(bag);
    bag.Put("ContentTypeSourceFile", types);
    tessel.ReadProperties(bag);
    Start();
  };
  readBag(tree.Write("new.txt", "txt,text/x-new\n"));
  EXPECT_EQ(Get("/a.txt"), WholeAnswer("text/x-new", "text"));
  tessel.StopServer();
  readBag(tree.Text() + "/missing.txt");
  EXPECT_EQ(Get("/a.txt"), WholeAnswer("application/octet-stream", "text")) << "no types of a file that is not named";
}

TEST_F(DispatchTest, AChangedFileOfContentTypesIsSeenAtTheNextStart) {
  const std::string types = tree.Write("types.txt", "txt,text/x-old\n");
  tessel.ContentTypeSource(e_ContentTypeSource::File);
  tessel.ContentTypeSourceFile(types);
  tree.Write("a.txt", "text");
  Start();
  tree.Write("types.txt", "txt,text/x-new\n");
  EXPECT_EQ(Get("/a.txt"), WholeAnswer("text/x-old", "text")) << "not before";
  tessel.StopServer();
  Start();
  EXPECT_EQ(Get("/a.txt"), WholeAnswer("text/x-new", "text"));
  tessel.StopServer();
  std::filesystem::remove(types);
  Start();
  EXPECT_EQ(Get("/a.txt"), WholeAnswer("text/x-new", "text")) << "a file that has gone leaves what was read of it";
}

TEST_F(DispatchTest, ATableOfContentTypesThatWasEmptyIsReadAgainAtTheStart) {
  const std::string types = tree.Write("types.txt", "");
  tessel.ContentTypeSource(e_ContentTypeSource::File);
  tessel.ContentTypeSourceFile(types);
  tree.Write("types.txt", "txt,text/x-mine\n");
  tree.Write("a.txt", "text");
  Start();
  EXPECT_EQ(Get("/a.txt"), WholeAnswer("text/x-mine", "text"));
}

}  // namespace
}  // namespace TesselServer
