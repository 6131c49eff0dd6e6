// Paths that a client should not get far with: out of the root, to password files, past a name's end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using testing::HasSubstr;

class DispatchHostileTest : public Kit::ControlTest {
 protected:
  DispatchHostileTest() {
    outside.Write("secret.txt", "SECRET");
    outside.Write("root/index.html", "index");
    outside.Write("root/a.txt", "text");
    outside.Write("root/docs/b.txt", "deep");
    tessel.VirtualPath(outside.Text() + "/root");
    control.Start();
  }

  void ExpectNotFound(const std::string& url) {
    const std::string answer = control.Get(url);
    EXPECT_THAT(answer, HasSubstr("HTTP 404: File Not Found")) << testing::PrintToString(url);
  }

  Kit::TemporaryTree outside;
};

TEST_F(DispatchHostileTest, NoSpellingLeavesTheRoot) {
  for (const char* url : {
           "/../secret.txt",
           "/..\\secret.txt",
           "\\..\\secret.txt",
           "../secret.txt",
           "/docs/../../secret.txt",
           "/docs/..\\..\\secret.txt",
           "/./../secret.txt",
           "//../secret.txt",
           "/docs/b.txt/../../../secret.txt",
           "/missing/../../secret.txt",
           "/%2e%2e/secret.txt",
           "/%2E%2E%2fsecret.txt",
           "/..%2fsecret.txt",
           "/..%5csecret.txt",
           "/%2e%2e%5Csecret.txt",
           "/docs/%2e%2e/%2e%2e/secret.txt",
           "/%252e%252e/secret.txt",
           "/%252e%252e%252fsecret.txt",
           "/..%c0%afsecret.txt",
           "/..%00/secret.txt",
           "/../../../../../../../../etc/passwd",
           "/etc/passwd",
           "http://host/../secret.txt",
           "C:/secret.txt",
           "\\\\host\\share\\secret.txt",
           "file:///etc/passwd",
       }) {
    ExpectNotFound(url);
  }
  EXPECT_EQ(BodyOf(control.Get("/docs/../a.txt")), "text") << "within the root two dots are allowed";
}

TEST_F(DispatchHostileTest, LinksAreFollowedOnlyWithinTheRoot) {
  const auto root = outside.Path() / "root";
  std::filesystem::create_symlink(outside.Path() / "secret.txt", root / "out.txt");
  std::filesystem::create_symlink("../secret.txt", root / "up.txt");
  std::filesystem::create_directory_symlink(outside.Path(), root / "outside");
  std::filesystem::create_symlink("docs/b.txt", root / "in.txt");
  std::filesystem::create_symlink(root / "docs" / "b.txt", root / "absolute.txt");
  ExpectNotFound("/out.txt");
  ExpectNotFound("/up.txt");
  ExpectNotFound("/outside/secret.txt");
  EXPECT_EQ(BodyOf(control.Get("/in.txt")), "deep");
  EXPECT_EQ(BodyOf(control.Get("/absolute.txt")), "deep");
}

TEST_F(DispatchHostileTest, NULAndControlBytesNameNothing) {
  ExpectNotFound(std::string("/a.txt\0", 7));
  ExpectNotFound(std::string("/a.txt\0.exe", 11));
  ExpectNotFound("/a.txt%00");
  ExpectNotFound("/a.txt%00.exe");
  ExpectNotFound("/a.txt\x01");
  ExpectNotFound("/a\t.txt");
  ExpectNotFound("/a.txt\x7F");
  ExpectNotFound("/a.txt%0d%0aX:%201");
}

TEST_F(DispatchHostileTest, NamesThatOnlyLookAlikeAreOthers) {
  for (const char* url :
       {"/a.txt.", "/a.txt%20", "/a.txt/", "/a.txt::$DATA", "/a.tx", "/a.tx?", "/*.txt", "/A~1.TXT"}) {
    ExpectNotFound(url);
  }
}

TEST_F(DispatchHostileTest, OverlongPathsAreNotFound) {
  ExpectNotFound("/" + std::string(256, 'a'));
  std::string deep;
  for (int i = 0; i < 3000; ++i) deep += "/a";
  ExpectNotFound(deep);
  ExpectNotFound("/" + std::string(60000, 'a'));
  std::string dots;
  for (int i = 0; i < 10000; ++i) dots += "/..";
  ExpectNotFound(dots);
}

TEST_F(DispatchHostileTest, APathAboveFourKiBIsNotFoundEvenWhereItsPartsVanish) {
  const auto path = [](std::size_t bytes) {
    const std::string name = bytes % 2 == 0 ? "index.html" : "/index.html";
    std::string text;
    while (text.size() + name.size() < bytes) text += "./";
    return "/" + text + name;  // the first "/" is not counted
  };
  EXPECT_EQ(BodyOf(control.Get(path(4096))), BodyOf(control.Get("/index.html")));
  ExpectNotFound(path(4097));
  ExpectNotFound(path(4098));
}

TEST_F(DispatchHostileTest, FolderPasswordFilesAreNeverServed) {
  outside.Write("root/htaccess.txt", "user:pw");
  outside.Write("root/docs/HTACCESS.TXT", "user:pw");
  std::filesystem::create_symlink("htaccess.txt", outside.Path() / "root/link.txt");
  for (const char* url : {"/htaccess.txt", "/HTACCESS.TXT", "/HtAccess.Txt", "/docs/htaccess.txt", "/docs/HTACCESS.TXT",
                          "/docs/../htaccess.txt", "/htaccess%2Etxt", "/%68taccess.txt", "/link.txt", "/htaccess.txt?x",
                          "/./htaccess.txt"}) {
    ExpectNotFound(url);
  }
  tessel.IndexPageNames("htaccess.txt,index.html");
  EXPECT_EQ(BodyOf(control.Get("/")), "index") << "nor are they index pages";
}

TEST_F(DispatchHostileTest, TheControlsOwnPasswordFileIsServedUnderNoName) {
  const std::string users = outside.Write("root/docs/users.lst", "user:pw");
  std::filesystem::create_symlink("docs/users.lst", outside.Path() / "root/link.txt");
  std::filesystem::create_hard_link(users, outside.Path() / "root/hard.txt");
  EXPECT_EQ(BodyOf(control.Get("/docs/users.lst")), "user:pw") << "a file like any other until it is named";
  tessel.AuthenticationSourceFile(users);
  for (const char* url : {"/docs/users.lst", "/DOCS/USERS.LST", "/link.txt", "/hard.txt", "/docs/users%2Elst"}) {
    ExpectNotFound(url);
  }
  tessel.IndexPageNames("users.lst");
  EXPECT_THAT(control.Get("/docs/"), HasSubstr("HTPP 403: Forbidden"));
  EXPECT_EQ(BodyOf(control.Ask("GET /a.txt HTTP/1.0\r\nAuthorization: Basic dXNlcjpwdw==\r\n\r\n")), "text");
}

TEST_F(DispatchHostileTest, NothingOfTheRequestComesBackInAnErrorPage) {
  const std::string answer = control.Ask("GET /<script>alert(1)</script> HTTP/1.0\r\nX: <script>\r\n\r\n");
  EXPECT_THAT(answer, HasSubstr("404"));
  EXPECT_EQ(answer.find("script"), std::string::npos);
}

TEST_F(DispatchHostileTest, AClientCannotForgeALogLine) {
  control.log.clear();
  control.Ask("GET /\x1B[2J\x01\"x\" HTTP/1.0\r\nUser-Agent: a\rb\nc\r\n\r\n");
  ASSERT_EQ(control.log.size(), 1u);
  EXPECT_THAT(control.log[0], HasSubstr("\"GET /\\x1B[2J\\x01\"x\" HTTP/1.0\""));
  EXPECT_EQ(control.log[0].find_first_of("\r\n\x1B"), std::string::npos);
}

}  // namespace
}  // namespace TesselServer
