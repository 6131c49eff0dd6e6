// Nothing but what lies in the root is ever in an answer.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>

#include <cerrno>
#include <filesystem>

#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;

constexpr std::string_view kSecret = "the-secret-beside-the-root";

class SecurityTest : public Kit::WireTest {
 protected:
  SecurityTest() {
    control.tree.Write("secret.txt", kSecret);
    control.tree.Write("rootling/secret.txt", kSecret);  // a folder whose name begins like the root's
    control.tree.Write("index.html", kSecret);
    page = control.Write("index.html", "<html><body>the root</body></html>");
    control.Write("docs/page.htm", "a page in a folder");
    control.Write("docs/htaccess.txt", kSecret.data());
    control.Write("htaccess.txt", kSecret.data());
    control.Start(4);
    notFound = Ask("GET /nothing HTTP/1.0\r\n\r\n");
    EXPECT_NE(notFound.find("File Not Found"), std::string::npos) << notFound;
  }

  std::string Ask(std::string_view request) {
    std::string answer = Kit::WithoutDate(control.Ask(request));
    EXPECT_EQ(answer.find(kSecret), std::string::npos) << request;
    EXPECT_EQ(answer.find("root:x:0:0"), std::string::npos) << request;
    return answer;
  }
  std::string Get(std::string_view path) { return Ask("GET " + std::string(path) + " HTTP/1.0\r\n\r\n"); }

  std::filesystem::path Root() const { return control.root; }

  std::string page, notFound;
};

TEST_F(SecurityTest, NoSpellingLeavesTheRoot) {
  const std::string spellings[] = {
      "/../secret.txt",
      "/../root/../secret.txt",
      "/../rootling/secret.txt",
      "/../root/index.html",
      "/docs/../../secret.txt",
      "/docs/../../root/index.html",
      "/./../secret.txt",
      "//../secret.txt",
      "/..//secret.txt",
      "/.././secret.txt",
      "/../../../../../../../../../../etc/passwd",
      "/docs/../../../../../../../../../etc/passwd",
      "../secret.txt",
      "..",
      "/..",
      "/../",
      "/../.",
      "/\\..\\secret.txt",
      "\\..\\secret.txt",
      "/..\\secret.txt",
      "/docs\\..\\..\\secret.txt",
      "/docs/..\\../secret.txt",
      "/..\\/secret.txt",
      "\\\\localhost\\share\\secret.txt",
      "C:\\secret.txt",
      "/C:/secret.txt",
      "/%2e%2e/secret.txt",
      "/%2E%2E/secret.txt",
      "/.%2e/secret.txt",
      "/%2e./secret.txt",
      "/%2e%2e%2fsecret.txt",
      "/..%2fsecret.txt",
      "/..%2Fsecret.txt",
      "/..%5csecret.txt",
      "/..%5Csecret.txt",
      "/%2e%2e%5csecret.txt",
      "/docs%2f..%2f..%2fsecret.txt",
      "/%252e%252e/secret.txt",
      "/%252e%252e%252fsecret.txt",
      "/..%252fsecret.txt",
      "/..%c0%afsecret.txt",
      "/..%c1%9csecret.txt",
      "/%c0%ae%c0%ae/secret.txt",
      "/%e0%80%ae%e0%80%ae/secret.txt",
      "/%u002e%u002e/secret.txt",
      "/..%20/secret.txt",
      "/.. /secret.txt",
      "/%20../secret.txt",
      "/...//secret.txt",
      "/....//secret.txt",
      "/..;/secret.txt",
      "/..%00/secret.txt",
      "/..%0d%0a/secret.txt",
      "/..%01/secret.txt",
      "http://localhost/../secret.txt",
      "http://localhost/%2e%2e/secret.txt",
      "https://../secret.txt",
      "http://../../secret.txt",
      "file:///etc/passwd",
      "//etc/passwd",
      "/etc/passwd",
      "///etc/passwd",
      "/docs/page.htm/../../../secret.txt",
      "/docs/nothing/../../../secret.txt",
      "/proc/self/root/etc/passwd",
      "/" + std::string(3000, '.') + "/secret.txt",
      "/" + std::string(255, 'a') + "/../../secret.txt",
      control.tree.Text() + "/secret.txt",
  };
  for (const std::string& spelling : spellings) {
    EXPECT_EQ(Get(spelling), notFound) << spelling;
    EXPECT_EQ(Get(spelling + "?x=1"), notFound) << spelling;
  }
  std::string climb;
  for (int i = 0; i < 400; ++i) {
    climb += "/..";
    if (i % 50 != 0) continue;
    EXPECT_EQ(Get(climb + "/secret.txt"), notFound) << climb;
  }
}

TEST_F(SecurityTest, DotsThatStayInsideAreServed) {
  for (const char* spelling : {"/docs/../index.html", "/./index.html", "//index.html", "/docs/./../docs/../index.html",
                               "/docs\\..\\index.html", "/nothing/../index.html"}) {
    EXPECT_EQ(BodyOf(Get(spelling)), page) << spelling;
  }
}

TEST_F(SecurityTest, CurlGetsNothingByPathsAsTheyAre) {
  for (const char* spelling : {"/../secret.txt", "/docs/../../secret.txt", "/%2e%2e/secret.txt", "/..%2fsecret.txt"}) {
    const std::string body = RunWell({"curl", "-sS", "--path-as-is", control.Url(spelling)});
    EXPECT_NE(body.find("File Not Found"), std::string::npos) << spelling;
  }
}

TEST_F(SecurityTest, LinksThatLeaveTheRootLeadNowhere) {
  namespace fs = std::filesystem;
  fs::create_symlink("../secret.txt", Root() / "relative.txt");
  fs::create_symlink(control.tree.Path() / "secret.txt", Root() / "absolute.txt");
  fs::create_symlink("/etc/passwd", Root() / "passwd.txt");
  fs::create_directory_symlink("..", Root() / "above");
  fs::create_directory_symlink(control.tree.Path(), Root() / "tree");
  fs::create_directory_symlink("/", Root() / "slash");
  fs::create_directory_symlink("/proc/self/fd", Root() / "fd");
  fs::create_symlink("docs/../../secret.txt", Root() / "around.txt");
  fs::create_symlink("absolute.txt", Root() / "chained.txt");
  fs::create_symlink("loop.txt", Root() / "loop.txt");
  fs::create_symlink("nothing", Root() / "dangling.txt");
  for (const char* path : {"/relative.txt", "/RELATIVE.TXT", "/absolute.txt", "/passwd.txt", "/above", "/above/",
                           "/above/secret.txt", "/tree/secret.txt", "/tree/index.html", "/slash/etc/passwd", "/fd/0",
                           "/fd/3", "/around.txt", "/chained.txt", "/loop.txt", "/dangling.txt"}) {
    EXPECT_EQ(Get(path), notFound) << path;
  }
  fs::create_symlink("docs/page.htm", Root() / "inside.htm");
  fs::create_symlink(Root() / "docs/page.htm", Root() / "inside-absolute.htm");
  fs::create_directory_symlink("docs", Root() / "folder");
  for (const char* path : {"/inside.htm", "/inside-absolute.htm", "/folder/page.htm"}) {
    EXPECT_EQ(BodyOf(Get(path)), "a page in a folder") << path;
  }
}

TEST_F(SecurityTest, WhatIsNoFileIsNotThere) {
  ASSERT_EQ(mkfifo((Root() / "fifo.txt").c_str(), 0666), 0);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  const std::string path = (Root() / "socket.txt").string();
  ASSERT_LT(path.size(), sizeof name.sun_path);
  path.copy(name.sun_path, path.size());
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  for (const char* each : {"/fifo.txt", "/FIFO.TXT", "/socket.txt"}) EXPECT_EQ(Get(each), notFound) << each;
  close(listener);
}

TEST_F(SecurityTest, DevicesAreNotThere) {
  const std::string zero = (Root() / "zero.bin").string();
  if (mknod(zero.c_str(), S_IFCHR | 0666, makedev(1, 5)) != 0) {
    GTEST_SKIP() << "this user may not make devices, error " << errno;
  }
  EXPECT_EQ(Get("/zero.bin"), notFound);
}

TEST_F(SecurityTest, PasswordFilesAreNotThere) {
  for (const char* path : {"/htaccess.txt", "/HTACCESS.TXT", "/htaccess%2Etxt", "/docs/htaccess.txt",
                           "/docs/../htaccess.txt", "/docs//htaccess.txt", "/%68taccess.txt", "\\htaccess.txt",
                           "/docs\\HtAccess.txt", "/htaccess.txt/", "/htaccess.txt.", "/htaccess.txt%20"}) {
    EXPECT_EQ(Get(path), notFound) << path;
  }
  const std::string passwords = control.tree.Write("root/users.lst", kSecret);
  control.tessel.AuthenticationSourceFile(passwords);
  std::filesystem::create_hard_link(passwords, Root() / "other-name.lst");
  for (const char* path : {"/users.lst", "/USERS.LST", "/other-name.lst"}) {
    EXPECT_EQ(Get(path), notFound) << path;
  }
  control.tessel.IndexPageNames("htaccess.txt,users.lst,index.html");
}

TEST_F(SecurityTest, ControlBytesInAPathNameNothing) {
  using namespace std::string_literals;
  const std::string paths[] = {
      "/index.html\0"s,    "/index.html\0.exe"s, "/\0index.html"s,  "/\0"s,
      "/docs\0/page.htm"s, "/../secret.txt\0"s,  "/index.html%00"s, "/index.html%00.exe",
      "/%00index.html",    "/index.html\x01",    "/index.html\t",   "/index\x7f.html",
      "/index.html%0a",    "/index.html%0D%0A",  "/index.html%1f",  "/secret.txt\0/../.."s,
  };
  for (const std::string& path : paths) EXPECT_EQ(Get(path), notFound) << testing::PrintToString(path);
}

TEST_F(SecurityTest, NothingOfARequestComesBackInAHeader) {
  const std::string marker = "X-Injected";
  for (const std::string& request : {
           "GET /index.html%0d%0a" + marker + ":1 HTTP/1.0\r\n\r\n",
           "GET /nothing\r" + marker + ":1 HTTP/1.0\r\n\r\n",
           "GET /index.html HTTP/1.0\r\nReferer: a\r" + marker + ": 1\r\n\r\n",
           "POST / HTTP/1.0\r\n" + marker + ": 1\r\n\r\n",
       }) {
    EXPECT_EQ(Ask(request).find(marker), std::string::npos) << request;
  }
  for (const std::string& line : control.log) {
    for (const char byte : line) EXPECT_GE(static_cast<unsigned char>(byte), 0x20) << line;
  }
}

}  // namespace
}  // namespace TesselServer
