#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "control/answer/Authentication.h"
#include "tests/kit/Child.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

constexpr const char* kFolderFile = "htaccess.txt";

class AuthenticationTest : public testing::Test {
 protected:
  Admission To(const std::string& name, const std::string& user = "", const std::string& password = "") {
    return To(RootFolder(tree_.Text()).Find(name), user, password);
  }
  Admission To(const FoundEntry& target, const std::string& user, const std::string& password) {
    return RunNow(AdmissionTo(target, {settings_.AuthenticationSource, settings_.AuthenticationSourceFile, kFolderFile},
                              user, password, nullptr));
  }

  Kit::TemporaryTree tree_;
  Settings settings_;
};

TEST_F(AuthenticationTest, WithoutAPasswordFileEverybodyIsAdmitted) {
  tree_.Write("a.html", "a");
  for (const auto source :
       {e_AuthSource::GolbalFile, e_AuthSource::DirectoryFile, e_AuthSource::LocalACL, e_AuthSource::DomainACL}) {
    settings_.AuthenticationSource = source;
    EXPECT_TRUE(To("a.html").granted);
    EXPECT_TRUE(To("").granted) << "the folder";
  }
  settings_.AuthenticationSource = e_AuthSource::GolbalFile;
  settings_.AuthenticationSourceFile = tree_.Text() + "/missing.txt";
  EXPECT_TRUE(To("a.html").granted);
  settings_.AuthenticationSourceFile = tree_.MakeFolder("folder.txt");
  EXPECT_TRUE(To("a.html").granted) << "a folder is no file";
}

TEST_F(AuthenticationTest, TheGlobalFileGuardsEverything) {
  tree_.Write("sub/a.html", "a");
  settings_.AuthenticationSourceFile = tree_.Write("users.txt", "realm: Members\nann:secret\n");
  EXPECT_FALSE(To("sub/a.html").granted);
  EXPECT_EQ(To("sub/a.html").realm, "Members");
  EXPECT_FALSE(To("sub").granted);
  EXPECT_FALSE(To("sub/a.html", "ann", "wrong").granted);
  EXPECT_TRUE(To("sub/a.html", "ann", "secret").granted);
}

TEST_F(AuthenticationTest, AFoldersFileGuardsThatFolderOnly) {
  settings_.AuthenticationSource = e_AuthSource::DirectoryFile;
  tree_.Write("sub/htaccess.txt", "realm: Sub\nann:secret");
  tree_.Write("sub/a.html", "a");
  tree_.Write("sub/deeper/b.html", "b");
  tree_.Write("c.html", "c");
  EXPECT_FALSE(To("sub/a.html").granted);
  EXPECT_EQ(To("sub/a.html").realm, "Sub");
  EXPECT_FALSE(To("sub").granted) << "the folder itself";
  EXPECT_TRUE(To("sub/a.html", "ann", "secret").granted);
  EXPECT_TRUE(To("sub/deeper/b.html").granted) << "kept: not the folders below it";
  EXPECT_TRUE(To("c.html").granted);
}

TEST_F(AuthenticationTest, NoSpellingAndNoLinkGetsAroundAFoldersFile) {
  settings_.AuthenticationSource = e_AuthSource::DirectoryFile;
  tree_.Write("sub/HTACCESS.txt", "ann:secret");
  tree_.Write("sub/a.html", "a");
  tree_.MakeFolder("other");
  std::filesystem::create_symlink("../sub/a.html", tree_.Path() / "other/link.html");
  std::filesystem::create_directory_symlink("sub", tree_.Path() / "alias");
  for (const char* name : {"SUB/A.HTML", "sub/./a.html", "sub//a.html", "other/../sub/a.html", "sub\\a.html",
                           "other/link.html", "alias/a.html", "alias"}) {
    EXPECT_FALSE(To(name).granted) << name;
    EXPECT_TRUE(To(name, "ann", "secret").granted) << name;
  }
}

TEST_F(AuthenticationTest, AFileThatExistsButCannotBeReadRefusesEveryClient) {
  tree_.Write("a.html", "a");
  const std::string large = tree_.Write("large.txt", "ann:secret\n");
  std::filesystem::resize_file(large, static_cast<std::uintmax_t>(kMaxPasswordFileBytes) + 1);
  settings_.AuthenticationSourceFile = large;
  EXPECT_FALSE(To("a.html", "ann", "secret").granted);
  EXPECT_EQ(To("a.html").realm, "Tessel");
  std::filesystem::resize_file(large, static_cast<std::uintmax_t>(kMaxPasswordFileBytes));
  EXPECT_TRUE(To("a.html", "ann", "secret").granted);
}

TEST_F(AuthenticationTest, APasswordFileThatIsNoReadableFileRefusesEveryClient) {
  settings_.AuthenticationSource = e_AuthSource::DirectoryFile;
  for (const char* folder : {"dangling", "loop", "fifo", "empty"}) tree_.Write(std::string(folder) + "/a.html", "a");
  std::filesystem::create_symlink("/nonexistent/passwords", tree_.Path() / "dangling/htaccess.txt");
  std::filesystem::create_symlink("htaccess.txt", tree_.Path() / "loop/htaccess.txt");
  ASSERT_EQ(mkfifo((tree_.Path() / "fifo/HTACCESS.txt").c_str(), 0600), 0);
  for (const char* name : {"dangling/a.html", "loop/a.html", "fifo/a.html", "dangling", "loop", "fifo"}) {
    EXPECT_FALSE(To(name, "ann", "secret").granted) << name;
  }
  EXPECT_TRUE(To("empty/a.html").granted);
  settings_.AuthenticationSource = e_AuthSource::GolbalFile;
  settings_.AuthenticationSourceFile = (tree_.Path() / "dangling/htaccess.txt").string();
  EXPECT_FALSE(To("empty/a.html").granted) << "a link that leads nowhere just now";
}

TEST_F(AuthenticationTest, PermissionsThatHideThePasswordFileRefuseEveryClient) {
  settings_.AuthenticationSource = e_AuthSource::DirectoryFile;
  tree_.Write("closed/htaccess.txt", "ann:secret");
  tree_.Write("closed/a.html", "a");
  tree_.Write("searched/HTACCESS.TXT", "ann:secret");
  tree_.Write("searched/a.html", "a");
  std::filesystem::permissions(tree_.Path(), std::filesystem::perms(0755));
  std::filesystem::permissions(tree_.Path() / "closed/htaccess.txt", std::filesystem::perms(0));
  std::filesystem::permissions(tree_.Path() / "searched", std::filesystem::perms(0311));
  const int status = Kit::InUnprivilegedChild([this] {
    return (To("closed/a.html", "ann", "secret").granted ? 1 : 0) +
           (To("searched/a.html", "ann", "secret").granted ? 2 : 0);
  });
  std::filesystem::permissions(tree_.Path() / "searched", std::filesystem::perms(0755));
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "no second user to change to";
  EXPECT_EQ(status, 0);
}

TEST_F(AuthenticationTest, ABackslashInTheTrueNameOfAFolderHidesNothing) {
  settings_.AuthenticationSource = e_AuthSource::DirectoryFile;
  tree_.Write("guarded/a\\b/htaccess.txt", "ann:secret");
  tree_.Write("guarded/a\\b/page.html", "a");
  std::filesystem::create_directory_symlink("guarded/a\\b", tree_.Path() / "alias");
  std::filesystem::create_symlink("guarded/a\\b/page.html", tree_.Path() / "link.html");
  for (const char* name : {"alias", "alias/page.html", "link.html"}) {
    EXPECT_FALSE(To(name).granted) << name;
    EXPECT_TRUE(To(name, "ann", "secret").granted) << name;
  }
}

TEST_F(AuthenticationTest, AFileThatRepeatsItselfIsSearchedInLinearTime) {
  tree_.Write("a.html", "a");
  settings_.AuthenticationSourceFile = tree_.Write("users.txt", std::string(16'000'000, 'a'));
  EXPECT_FALSE(To("a.html", std::string(3000, 'a'), std::string(3000, 'a')).granted);
}

TEST_F(AuthenticationTest, AFolderOfThatNameIsNoPasswordFile) {
  settings_.AuthenticationSource = e_AuthSource::DirectoryFile;
  tree_.MakeFolder("htaccess.txt");
  tree_.Write("a.html", "a");
  EXPECT_TRUE(To("a.html").granted);
}

TEST_F(AuthenticationTest, AChangeHoldsForTheVeryNextRequest) {
  tree_.Write("a.html", "a");
  settings_.AuthenticationSourceFile = tree_.Write("users.txt", "ann:one");
  EXPECT_TRUE(To("a.html", "ann", "one").granted);
  tree_.Write("users.txt", "ann:two");
  EXPECT_FALSE(To("a.html", "ann", "one").granted);
  EXPECT_TRUE(To("a.html", "ann", "two").granted);
  std::filesystem::remove(tree_.Path() / "users.txt");
  EXPECT_TRUE(To("a.html").granted);
}

TEST_F(AuthenticationTest, AnEntryWhoseFolderIsUnknownIsRefused) {
  settings_.AuthenticationSource = e_AuthSource::DirectoryFile;
  FoundEntry unreadable;
  unreadable.kind = EntryKind::kFile;
  unreadable.name = "a.html";
  EXPECT_FALSE(To(unreadable, "ann", "secret").granted);
}

}  // namespace
}  // namespace TesselServer
