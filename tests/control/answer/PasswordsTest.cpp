#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::HeadOf;
using testing::HasSubstr;

constexpr const char* kAnn = "Authorization: Basic YW5uOnNlY3JldA==\r\n";  // ann:secret
constexpr const char* kBob = "Authorization: Basic Ym9iOmJvYg==\r\n";      // bob:bob

// The whole answer of 401; `field` is how the line is written.
std::string Challenge(const std::string& field, const std::string& realm) {
  return "HTTP/1.0 401 Unauthorized\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\n"
         "Content-Type: text/html\r\n" +
         field + ": Basic realm=" + realm + "\r\n\r\n";
}

class PasswordsTest : public Kit::ControlTest {
 protected:
  PasswordsTest() {
    control.tree.Write("site/members/page.html", "members only");
    control.tree.Write("site/members/list/a.txt", "a");
    control.tree.Write("site/open.txt", "open");
    control.tessel.VirtualPath(control.tree.Text() + "/site");
    control.tessel.DirectoryBrowseEnable(true);
  }

  // Passwords of the whole site.
  void GuardEverything(const std::string& text) {
    control.tessel.AuthenticationSourceFile(control.tree.Write("users.txt", text));
    control.Start();
  }
  // Passwords of the folder "members".
  void GuardMembers(const std::string& text) {
    control.tree.Write("site/members/htaccess.txt", text);
    control.tessel.AuthenticationSource(e_AuthSource::DirectoryFile);
    control.Start();
  }
  std::string Get(const std::string& url, const std::string& headers = "") {
    return control.Ask("GET " + url + " HTTP/1.0\r\n" + headers + "\r\n");
  }
};

TEST_F(PasswordsTest, AFileAsksInItsOwnSpellingOfTheHeader) {
  GuardMembers("realm: Members\r\nann:secret\r\n");
  EXPECT_EQ(Get("/members/page.html"), Challenge("WWW-Authenticate", "Members"));
  EXPECT_EQ(Get("/members/page.html", kBob), Challenge("WWW-Authenticate", "Members"));
  EXPECT_EQ(BodyOf(Get("/members/page.html", kAnn)), "members only");
  EXPECT_EQ(BodyOf(Get("/open.txt")), "open");
}

TEST_F(PasswordsTest, AFolderAsksInAnotherSpelling) {
  GuardMembers("realm: Members\r\nann:secret\r\n");
  EXPECT_EQ(Get("/members/"), Challenge("WWW-authenticate", "Members"));
  EXPECT_EQ(Get("/members"), Challenge("WWW-authenticate", "Members"));
  EXPECT_THAT(Get("/members/", kAnn), HasSubstr(">page.html</a>"));
  EXPECT_THAT(Get("/members/list/"), HasSubstr(">a.txt</a>")) << "kept: not the folders below it";
}

TEST_F(PasswordsTest, WithoutBrowsingAFolderIsForbiddenToEverybody) {
  GuardMembers("ann:secret");
  control.tessel.DirectoryBrowseEnable(false);
  EXPECT_THAT(Get("/members/"), HasSubstr("HTPP 403: Forbidden"));
  EXPECT_THAT(Get("/members/", kAnn), HasSubstr("HTPP 403: Forbidden"));
}

TEST_F(PasswordsTest, TheGlobalFileGuardsTheWholeSite) {
  GuardEverything("ann:secret\n");
  EXPECT_EQ(Get("/open.txt"), Challenge("WWW-Authenticate", "Tessel"));
  EXPECT_EQ(Get("/"), Challenge("WWW-authenticate", "Tessel"));
  EXPECT_EQ(BodyOf(Get("/open.txt", kAnn)), "open");
}

TEST_F(PasswordsTest, AMissingFileIs404BeforeThePasswordIsAskedFor) {
  GuardEverything("ann:secret\n");
  EXPECT_THAT(Get("/missing.txt"), HasSubstr("HTTP 404: File Not Found"));
}

TEST_F(PasswordsTest, ChallengesAreLoggedAndCounted) {
  GuardEverything("ann:secret\n");
  const std::string answer = Get("/open.txt");
  ASSERT_EQ(control.log.size(), 1U);
  EXPECT_THAT(control.log[0], HasSubstr(" 401 " + std::to_string(answer.size())));
  Get("/open.txt", kAnn);
  ASSERT_EQ(control.log.size(), 2U);
  EXPECT_THAT(control.log[1], HasSubstr(" 200 "));
  EXPECT_TRUE(control.errors.empty());
}

TEST_F(PasswordsTest, TheOtherSourcesGuardNothing) {
  GuardEverything("ann:secret\n");
  control.tree.Write("site/htaccess.txt", "ann:secret\n");
  for (const auto source : {e_AuthSource::LocalACL, e_AuthSource::DomainACL}) {
    control.tessel.AuthenticationSource(source);
    EXPECT_EQ(BodyOf(Get("/open.txt")), "open");
  }
}

TEST_F(PasswordsTest, APostIsAskedForItsPasswordToo) {
  GuardEverything("ann:secret\n");
  EXPECT_EQ(control.Ask("POST /open.txt HTTP/1.0\r\nContent-Length: 3\r\n\r\na=b"),
            Challenge("WWW-Authenticate", "Tessel"));
}

TEST_F(PasswordsTest, TheHeadersNameCountsInItsOwnCase) {
  GuardEverything("ann:secret\n");
  EXPECT_EQ(Get("/open.txt", "authorization: Basic YW5uOnNlY3JldA==\r\n"), Challenge("WWW-Authenticate", "Tessel"));
}

TEST_F(PasswordsTest, AProgramIsNotRunForStrangers) {
  GuardEverything("ann:secret\n");
  const std::string program = control.tree.Write("site/tell.exe", "#!/bin/sh\necho run >>\"$0.ran\"\necho told\n");
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  EXPECT_EQ(Get("/tell.exe"), Challenge("WWW-Authenticate", "Tessel"));
  control.tessel.CGIEnable(true);
  EXPECT_EQ(Get("/tell.exe"), Challenge("WWW-Authenticate", "Tessel"));
  EXPECT_FALSE(std::filesystem::exists(program + ".ran"));
  EXPECT_EQ(BodyOf(Get("/tell.exe", kAnn)), "told\n");
}

TEST_F(PasswordsTest, TrappedRequestsAreTheHostsOwnMatterAndHandedBackOnesAreNot) {
  GuardEverything("ann:secret\n");
  control.tessel.TrapFileEnable(true);
  bool handBack = false;
  std::string told;
  control.tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string& authentication) {
    told = authentication;
    control.tessel.TrapFileData(index, "the host's", handBack);
  };
  EXPECT_EQ(BodyOf(Get("/open.txt", kBob)), "the host's");
  EXPECT_EQ(told, "bob:bob");
  handBack = true;
  EXPECT_EQ(Get("/open.txt", kBob), Challenge("WWW-Authenticate", "Tessel"));
}

TEST_F(PasswordsTest, AChangedFileHoldsForTheVeryNextRequest) {
  GuardMembers("realm: One\nann:secret");
  EXPECT_EQ(BodyOf(Get("/members/page.html", kAnn)), "members only");
  control.tree.Write("site/members/htaccess.txt", "realm: Two\nbob:bob");
  EXPECT_EQ(Get("/members/page.html", kAnn), Challenge("WWW-Authenticate", "Two"));
  EXPECT_EQ(BodyOf(Get("/members/page.html", kBob)), "members only");
  std::filesystem::remove(control.tree.Path() / "site/members/htaccess.txt");
  EXPECT_EQ(BodyOf(Get("/members/page.html")), "members only");
}

TEST_F(PasswordsTest, ARealmCannotBreakTheHeader) {
  GuardEverything("realm: a\rX-Evil: 1\nann:secret\n");
  EXPECT_EQ(HeadOf(Get("/open.txt")), Challenge("WWW-Authenticate", "a"));
}

TEST_F(PasswordsTest, NoSpellingGetsAroundAFoldersFile) {
  GuardMembers("ann:secret");
  std::filesystem::create_directory_symlink("members", control.tree.Path() / "site/alias");
  std::filesystem::create_symlink("members/page.html", control.tree.Path() / "site/link.html");
  for (const char* url :
       {"/MEMBERS/PAGE.HTML", "/members//page.html", "/members/./page.html", "/x/../members/page.html",
        "/members%2Fpage.html", "/%6Dembers/page.html", "/members\\page.html", "/alias/page.html", "/link.html"}) {
    EXPECT_THAT(Get(url), testing::Not(HasSubstr("members only"))) << url;
  }
}

}  // namespace
}  // namespace TesselServer
