// What a file, a folder and their absence are answered with.
#include <gtest/gtest.h>

#include <string>

#include "tests/kit/ModernControl.h"

namespace TesselServer::Modern {
namespace {

class ModernFilesTest : public Kit::ModernTest {
 protected:
  ModernFilesTest() {
    tree.Write("a.txt", "0123456789");
    tree.Write("folder/index.html", "<p>index</p>");
    tree.Write("folder/b c.txt", "blank");
    tree.Write("empty.txt", "");
    tree.Write(".hidden", "hidden");
    tree.Write(".git/config", "hidden");
    tree.Write(".well-known/security.txt", "contact");
    tree.MakeFolder("bare");
  }

  std::string Ask(std::string_view method, std::string_view target, std::string_view fields = {}) {
    return control.Ask(std::string(method)
                           .append(" ")
                           .append(target)
                           .append(" HTTP/1.1\r\nHost: h\r\nConnection: close\r\n")
                           .append(fields)
                           .append("\r\n"));
  }
};

TEST_F(ModernFilesTest, AreFoundByTheirExactNames) {
  const struct {
    const char *target, *status, *why;
  } cases[] = {
      {"/a.txt", "200", "as it is spelled"},
      {"/A.txt", "404", "another case is another name"},
      {"/a.txt/", "404", "a file is no folder"},
      {"/folder/b%20c.txt", "200", "decoded once"},
      {"/folder/b%2520c.txt", "404", "and not twice"},
      {"/folder/b+c.txt", "404", "a plus is a plus"},
      {"/%61.txt", "200", "any byte may be encoded"},
      {"/folder/../a.txt", "200", "dot segments are removed"},
      {"/folder/%2e%2e/a.txt", "200", "decoded ones too"},
      {"/../a.txt", "400", "beyond the root"},
      {"/folder%2Fb%20c.txt", "400", "an encoded slash"},
      {"/a.txt%00", "400", "NUL"},
      {"/a%5Cb", "400", "a backslash"},
      {"/%zz", "400", "no percent code"},
      {"/.hidden", "404", "a name with a dot in front"},
      {"/.git/config", "404", "and what lies below one"},
      {"/.well-known/security.txt", "200", "but for this one"},
      {"/folder/.well-known/x", "404", "which is meant in front only"},
      {"/none", "404", "not there"},
      {"/folder/", "200", "an index page"},
      {"/folder", "301", "a folder without its slash"},
      {"/bare/", "403", "a folder that is not listed"},
      {"http://h/a.txt", "200", "an absolute target"},
      {"/a.txt?x=%zz", "200", "a query is not decoded"},
  };
  Start();
  for (const auto& c : cases) {
    EXPECT_EQ(StatusOf(Fetch(c.target)), c.status) << c.target << ": " << c.why;
  }
}

TEST_F(ModernFilesTest, AFolderIsShownWhereItIs) {
  Start();
  EXPECT_EQ(FieldOf(Fetch("/folder"), "Location"), "/folder/");
  EXPECT_EQ(FieldOf(Fetch("//folder?x=1&y"), "Location"), "/folder/?x=1&y");
  tree.MakeFolder("a b%");
  EXPECT_EQ(FieldOf(Fetch("/a%20b%25"), "Location"), "/a%20b%25/");
}

TEST_F(ModernFilesTest, SayWhatTheyAre) {
  Start();
  const std::string answer = Fetch("/a.txt");
  EXPECT_EQ(Kit::BodyOf(answer), "0123456789");
  EXPECT_EQ(FieldOf(answer, "Content-Length"), "10");
  EXPECT_EQ(FieldOf(answer, "Content-Type"), "text/plain; charset=utf-8");
  EXPECT_EQ(FieldOf(answer, "Accept-Ranges"), "bytes");
  EXPECT_EQ(FieldOf(answer, "X-Content-Type-Options"), "nosniff");
  EXPECT_NE(FieldOf(answer, "Date"), "");
  EXPECT_NE(FieldOf(answer, "Last-Modified"), "");
  EXPECT_EQ(FieldOf(answer, "ETag").size(), 18u);
  EXPECT_EQ(FieldOf(Fetch("/empty.txt"), "Content-Length"), "0");
}

TEST_F(ModernFilesTest, HeadHasTheHeaderOfGet) {
  Start();
  for (const char* target : {"/a.txt", "/none", "/folder", "/folder/", "/bare/", "/empty.txt"}) {
    const std::string get = Fetch(target);
    EXPECT_EQ(Ask("HEAD", target), Kit::HeadOf(get)) << target;
  }
}

TEST_F(ModernFilesTest, AreSentAgainOnlyWhereTheyAreOthers) {
  Start();
  const std::string first = Fetch("/a.txt");
  const std::string tag = FieldOf(first, "ETag");
  const std::string date = FieldOf(first, "Last-Modified");
  const struct {
    std::string fields;
    const char *status, *why;
  } cases[] = {
      {"If-None-Match: " + tag + "\r\n", "304", "the client has it"},
      {"If-None-Match: W/" + tag + "\r\n", "304", "weak comparison"},
      {"If-None-Match: \"other\", " + tag + "\r\n", "304", "one of a list"},
      {"If-None-Match: \"other\"\r\nIf-None-Match: " + tag + "\r\n", "304", "a list in two lines"},
      {"If-None-Match: *\r\n", "304", "there is one"},
      {"If-None-Match: \"other\"\r\n", "200", "another one"},
      {"If-Modified-Since: " + date + "\r\n", "304", "not since then"},
      {"If-None-Match: \"other\"\r\nIf-Modified-Since: " + date + "\r\n", "200", "the tag counts, not the date"},
      {"If-Modified-Since: Sun, 06 Nov 1994 08:49:37 GMT\r\n", "200", "since then"},
      {"If-Modified-Since: yesterday\r\n", "200", "no date"},
      {"If-Match: " + tag + "\r\n", "200", "as expected"},
      {"If-Match: \"other\"\r\n", "412", "not as expected"},
      {"If-Match: *\r\n", "200", "there is one"},
      {"If-Unmodified-Since: " + date + "\r\n", "200", "not since then"},
      {"If-Unmodified-Since: Sun, 06 Nov 1994 08:49:37 GMT\r\n", "412", "since then"},
  };
  for (const auto& c : cases) {
    const std::string answer = Fetch("/a.txt", c.fields);
    EXPECT_EQ(StatusOf(answer), c.status) << c.fields << c.why;
    if (StatusOf(answer) == "304") {
      EXPECT_EQ(Kit::BodyOf(answer), "");
      EXPECT_EQ(FieldOf(answer, "ETag"), tag);
      EXPECT_EQ(FieldOf(answer, "Content-Length"), "");
    }
  }
  tree.Write("a.txt", "other text");
  EXPECT_EQ(StatusOf(Fetch("/a.txt", "If-None-Match: " + tag + "\r\n")), "200") << "seen by the very next request";
}

TEST_F(ModernFilesTest, AreSentInParts) {
  Start();
  const std::string tag = FieldOf(Fetch("/a.txt"), "ETag");
  const struct {
    std::string fields;
    const char *status, *body, *range, *why;
  } cases[] = {
      {"Range: bytes=2-4\r\n", "206", "234", "bytes 2-4/10", "a part"},
      {"Range: bytes=7-\r\n", "206", "789", "bytes 7-9/10", "the rest"},
      {"Range: bytes=-3\r\n", "206", "789", "bytes 7-9/10", "the end"},
      {"Range: bytes=0-99\r\n", "206", "0123456789", "bytes 0-9/10", "as far as it goes"},
      {"Range: bytes=1-3,4-5\r\n", "206", "12345", "bytes 1-5/10", "two that touch"},
      {"Range: bytes=0-1,8-9\r\n", "200", "0123456789", "", "two with a gap"},
      {"Range: bytes=5-2\r\n", "200", "0123456789", "", "no range"},
      {"Range: lines=1-2\r\n", "200", "0123456789", "", "another unit"},
      {"Range: bytes=2-4\r\nIf-Range: " + tag + "\r\n", "206", "234", "bytes 2-4/10", "it is the same"},
      {"Range: bytes=2-4\r\nIf-Range: \"other\"\r\n", "200", "0123456789", "", "it is another one"},
      {"Range: bytes=2-4\r\nIf-None-Match: " + tag + "\r\n", "304", "", "", "the condition comes first"},
  };
  for (const auto& c : cases) {
    const std::string answer = Fetch("/a.txt", c.fields);
    EXPECT_EQ(StatusOf(answer), c.status) << c.fields << c.why;
    EXPECT_EQ(Kit::BodyOf(answer), c.body) << c.fields << c.why;
    EXPECT_EQ(FieldOf(answer, "Content-Range"), c.range) << c.fields << c.why;
  }
  const std::string beyond = Fetch("/a.txt", "Range: bytes=10-\r\n");
  EXPECT_EQ(StatusOf(beyond), "416");
  EXPECT_EQ(FieldOf(beyond, "Content-Range"), "bytes */10");
  EXPECT_EQ(StatusOf(Ask("HEAD", "/a.txt", "Range: bytes=2-4\r\n")), "200") << "GET alone has parts";
}

TEST_F(ModernFilesTest, PartsOfALargeOneComeFromItsMiddle) {
  std::string bytes;
  for (int i = 0; i < 200'000; ++i) bytes += std::to_string(i) + " ";
  tree.Write("large.bin", bytes);
  Start();
  for (const std::size_t first : {std::size_t{1}, std::size_t{65'536}, bytes.size() - 300'000, bytes.size() - 1}) {
    const std::size_t last = std::min(first + 299'999, bytes.size() - 1);
    const std::string fields = "Range: bytes=" + std::to_string(first) + "-" + std::to_string(last) + "\r\n";
    EXPECT_EQ(Kit::BodyOf(Fetch("/large.bin", fields)), bytes.substr(first, last - first + 1)) << fields;
  }
}

TEST_F(ModernFilesTest, APartOfARememberedOneIsThatPart) {
  Start();
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(Kit::BodyOf(Fetch("/a.txt", "Range: bytes=3-5\r\n")), "345") << i;
    EXPECT_EQ(Kit::BodyOf(Fetch("/a.txt")), "0123456789") << i;
  }
}

TEST_F(ModernFilesTest, TakeTheMethodsThatReadThem) {
  Start();
  const struct {
    const char *method, *target, *status, *allow;
  } cases[] = {
      {"POST", "/a.txt", "405", "GET, HEAD, OPTIONS"},
      {"PUT", "/a.txt", "405", "GET, HEAD, OPTIONS"},
      {"DELETE", "/folder/", "405", "GET, HEAD, OPTIONS"},
      {"PATCH", "/bare/", "405", "GET, HEAD, OPTIONS"},
      {"OPTIONS", "/a.txt", "204", "GET, HEAD, OPTIONS"},
      {"OPTIONS", "*", "204", "GET, HEAD, OPTIONS"},
      {"TRACE", "/a.txt", "405", "GET, HEAD, OPTIONS"},
      {"CONNECT", "h:80", "405", "GET, HEAD, OPTIONS"},
      {"PROPFIND", "/a.txt", "501", ""},
      {"get", "/a.txt", "501", ""},
      {"POST", "/none", "404", ""},
      {"OPTIONS", "/none", "404", ""},
      {"TRACE", "/none", "405", "GET, HEAD, OPTIONS"},
  };
  for (const auto& c : cases) {
    const std::string answer = Ask(c.method, c.target);
    EXPECT_EQ(StatusOf(answer), c.status) << c.method << " " << c.target;
    EXPECT_EQ(FieldOf(answer, "Allow"), c.allow) << c.method << " " << c.target;
  }
}

TEST_F(ModernFilesTest, ErrorsHaveTheirCodesAndTheirPages) {
  Start();
  const std::string page = Fetch("/none");
  EXPECT_EQ(FieldOf(page, "Content-Length"), std::to_string(Kit::BodyOf(page).size()));
  EXPECT_NE(Kit::BodyOf(page).find("HTTP 404: File Not Found"), std::string::npos);
  EXPECT_EQ(FieldOf(page, "Content-Security-Policy"), "default-src 'none'; style-src 'unsafe-inline'");
  tessel.VerboseErrorsEnable(false);
  const std::string bare = Fetch("/none");
  EXPECT_EQ(StatusOf(bare), "404");
  EXPECT_EQ(FieldOf(bare, "Content-Length"), "0");
  EXPECT_EQ(Kit::BodyOf(bare), "");
}

TEST_F(ModernFilesTest, ErrorPagesOfTheSiteHaveTheTrueCode) {
  tree.Write("app/html/errors/http404.html", "<p>not here</p>");
  tessel.ApplicationFolder(tree.Text() + "/app");
  tessel.ErrorFilesEnable(true);
  Start();
  const std::string answer = Fetch("/none");
  EXPECT_EQ(StatusOf(answer), "404");
  EXPECT_EQ(Kit::BodyOf(answer), "<p>not here</p>");
}

TEST_F(ModernFilesTest, APageIsProcessedOnlyWhereSomethingProcessesIt) {
  tree.Write("page.html", "<!--#echo var=\"SERVER_PORT\" -->");
  tessel.SSIEnable(false);
  Start();
  const std::string plain = Fetch("/page.html");
  EXPECT_EQ(Kit::BodyOf(plain), "<!--#echo var=\"SERVER_PORT\" -->");
  EXPECT_NE(FieldOf(plain, "ETag"), "");
  tessel.SSIEnable(true);
  const std::string made = Fetch("/page.html");
  EXPECT_EQ(Kit::BodyOf(made), std::to_string(tessel.ListeningPort()));
  EXPECT_EQ(FieldOf(made, "ETag"), "");
  EXPECT_EQ(FieldOf(made, "Cache-Control"), "no-cache");
}

}  // namespace
}  // namespace TesselServer::Modern
