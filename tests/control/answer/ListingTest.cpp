#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/kit/FileMarks.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::HeadOf;
using testing::HasSubstr;
using testing::Not;

class ListingTest : public Kit::ControlTest {
 protected:
  ListingTest() {
    control.tessel.DirectoryBrowseEnable(true);
    control.tessel.ServerName("shelf");
    control.Start();
  }
};

TEST_F(ListingTest, AFolderWithoutAnIndexPageIsAPageOfItsEntries) {
  control.tree.Write("a/b/two words.txt", std::string(1536, 'x'));
  control.tree.MakeFolder("a/b/deep er");
  const std::string answer = Get("/a/b/");
  const std::string page = BodyOf(answer);
  EXPECT_EQ(HeadOf(answer),
            "HTTP/1.0 200 OK\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\n"
            "Content-Type: text/html\r\nContent-Length: " +
                std::to_string(page.size()) + "\r\n\r\n");
  EXPECT_THAT(page, HasSubstr("<title>Directory Listing: shelf - /a/b/</title>"));
  EXPECT_THAT(page, HasSubstr("<a href = /a/>[Parent Directory]</a>"));
  EXPECT_THAT(page, HasSubstr("<a href = /a/b/deep%20er>deep er</a>"));
  EXPECT_THAT(page, HasSubstr("<a href = /a/b/two words.txt>two words.txt</a>"));
  EXPECT_THAT(page, HasSubstr("1.50KB&nbsp;</td>"));
}

TEST_F(ListingTest, WithoutItsSlashAFolderHasTheSameRows) {
  control.tree.Write("a/x.txt", "x");
  const std::string with = BodyOf(Get("/a/"));
  const std::string without = BodyOf(Get("/a"));
  EXPECT_THAT(without, HasSubstr("<title>Directory Listing: shelf - /a</title>"));
  EXPECT_THAT(without, HasSubstr("<a href = /a/x.txt>x.txt</a>"));
  EXPECT_EQ(with.substr(with.find("[Parent")), without.substr(without.find("[Parent")));
}

TEST_F(ListingTest, TheRootHasNoParentHoweverItIsAskedFor) {
  control.tree.Write("x.txt", "x");
  for (const char* url : {"/", "/?sort=1", "http://shelf.test/", "http://shelf.test"}) {
    const std::string page = BodyOf(Get(url));
    EXPECT_THAT(page, HasSubstr("<title>Directory Listing: shelf - /</title>")) << url;
    EXPECT_THAT(page, HasSubstr("<a href = /x.txt>x.txt</a>")) << url;
    EXPECT_THAT(page, Not(HasSubstr("Parent Directory"))) << url;
  }
}

TEST_F(ListingTest, LinksOfFoldersLeadToThem) {
  for (const char* name : {"plain", "two words", "my-dir_1.x", "100%", "a#b", "a?b", "a+b", "a&b", "a;b=c", "q'uote",
                           "d\"quote", "<less>", "\xC3\xA4", "~", "%41"}) {
    control.tree.Write(std::string("names/") + name + "/inside.txt", "found");
  }
  const std::string page = BodyOf(Get("/names/"));
  const std::string before = "<a href = ";
  int links = 0;
  for (std::size_t at = page.find(before); at != std::string::npos; at = page.find(before, at + 1)) {
    const std::size_t begin = at + before.size();
    const std::string href = page.substr(begin, page.find('>', begin) - begin);
    if (!href.starts_with("/names/")) continue;
    ++links;
    EXPECT_THAT(Get(href), HasSubstr(">inside.txt</a>")) << href;
  }
  EXPECT_EQ(links, 15);
}

TEST_F(ListingTest, PasswordFilesAreNotListed) {
  control.tree.Write("a/htaccess.txt", "x");
  control.tree.Write("a/HTACCESS.TXT", "x");
  const std::string users = control.tree.Write("a/users.txt", "ann:secret\n");
  std::filesystem::create_hard_link(users, control.tree.Path() / "a/again.txt");
  std::filesystem::create_symlink("users.txt", control.tree.Path() / "a/link.txt");
  control.tree.Write("a/seen.txt", "x");
  control.tessel.AuthenticationSourceFile(users);
  const std::string page = BodyOf(control.Ask("GET /a/ HTTP/1.0\r\nAuthorization: Basic YW5uOnNlY3JldA==\r\n\r\n"));
  EXPECT_THAT(page, HasSubstr(">seen.txt<"));
  EXPECT_THAT(page, HasSubstr(">HTACCESS.TXT<")) << "kept: only the exact name is left out";
  for (const char* name : {">htaccess.txt<", ">users.txt<", ">again.txt<", ">link.txt<"}) {
    EXPECT_THAT(page, Not(HasSubstr(name)));
  }
}

TEST_F(ListingTest, ALinkIsListedWhenARequestWouldBeServed) {
  control.tree.Write("a/real.txt", "x");
  std::filesystem::create_symlink("real.txt", control.tree.Path() / "a/inside.txt");
  std::filesystem::create_symlink("/etc/passwd", control.tree.Path() / "a/outside.txt");
  std::filesystem::create_symlink("gone.txt", control.tree.Path() / "a/broken.txt");
  std::filesystem::create_directory_symlink("/etc", control.tree.Path() / "a/etc");
  const std::string page = BodyOf(Get("/a/"));
  EXPECT_THAT(page, HasSubstr(">inside.txt<"));
  for (const char* name : {">outside.txt<", ">broken.txt<", ">etc<"}) EXPECT_THAT(page, Not(HasSubstr(name)));
}

TEST_F(ListingTest, ALinkWithABackslashInItsNameIsNotTakenForAnother) {
  control.tree.Write("a/x/y", "served");
  std::filesystem::create_symlink("/etc/passwd", control.tree.Path() / "a/x\\y");
  EXPECT_THAT(BodyOf(Get("/a/")), Not(HasSubstr("x\\y")));
}

TEST_F(ListingTest, TheNextListingShowsEveryChange) {
  control.tree.Write("a/x.txt", "x");
  EXPECT_THAT(Get("/a/"), HasSubstr("x.txt</a>"));
  control.tree.Write("a/y.txt", "x");
  EXPECT_THAT(Get("/a/"), HasSubstr("y.txt</a>"));
  control.tree.Write("a/y.txt", std::string(2048, 'x'));
  EXPECT_THAT(Get("/a/"), HasSubstr("2.00KB&nbsp;</td>"));
  std::filesystem::remove(control.tree.Path() / "a/x.txt");
  EXPECT_THAT(Get("/a/"), Not(HasSubstr("x.txt</a>")));
  if (!Kit::SetDosAttributes((control.tree.Path() / "a/y.txt").string(), "0x2")) {
    GTEST_SKIP() << Kit::kNoExtendedAttributes;
  }
  EXPECT_THAT(Get("/a/"), Not(HasSubstr("y.txt</a>")));
}

TEST_F(ListingTest, AnIndexPageWinsOverTheListing) {
  control.tree.Write("a/index.html", "the index");
  EXPECT_EQ(BodyOf(Get("/a/")), "the index");
}

TEST_F(ListingTest, IsLoggedWithItsWholeSize) {
  control.tree.Write("a/x.txt", "x");
  control.log.clear();
  const std::string answer = Get("/a/");
  ASSERT_EQ(control.log.size(), 1U);
  EXPECT_THAT(control.log[0], HasSubstr(" 200 " + std::to_string(answer.size())));
  EXPECT_TRUE(control.errors.empty());
}

}  // namespace
}  // namespace TesselServer
