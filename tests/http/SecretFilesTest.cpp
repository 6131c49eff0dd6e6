#include <gtest/gtest.h>

#include <filesystem>

#include "http/SecretFiles.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

class SecretFilesTest : public testing::Test {
 protected:
  SecretFilesTest() {
    passwords_ = tree_.Write("docs/users.txt", "user:password");
    tree_.Write("docs/htaccess.txt", "user:password");
    tree_.Write("docs/page.htm", "page");
  }

  FoundEntry Find(std::string_view name) const { return RootFolder(tree_.Text()).Find(name); }

  static bool IsSecret(const SecretFiles& secrets, const FoundEntry& entry) {
    return RunNow(secrets.ContainsInTurns(entry, nullptr));
  }

  Kit::TemporaryTree tree_;
  std::string passwords_;
};

TEST_F(SecretFilesTest, AFoldersPasswordFileIsSecretByEveryName) {
  std::filesystem::create_symlink("htaccess.txt", tree_.Path() / "docs/link.txt");
  std::filesystem::create_symlink("docs/link.txt", tree_.Path() / "linked.txt");
  std::filesystem::create_symlink("docs/page.htm", tree_.Path() / "HTAccess.txt");
  const SecretFiles secrets("HtAccess.txt", e_AuthSource::DirectoryFile, "");
  for (const char* name : {"docs/htaccess.txt", "DOCS/HTACCESS.TXT", "docs/link.txt", "linked.txt", "HTAccess.txt"}) {
    EXPECT_TRUE(IsSecret(secrets, Find(name))) << name;
  }
  for (const char* name : {"docs/page.htm", "docs/users.txt", "docs", ""}) {
    EXPECT_FALSE(IsSecret(secrets, Find(name))) << name;
  }
}

TEST_F(SecretFilesTest, TheControlsPasswordFileIsSecretByEveryName) {
  std::filesystem::create_symlink("users.txt", tree_.Path() / "docs/link.txt");
  std::filesystem::create_hard_link(passwords_, tree_.Path() / "same.txt");
  for (const auto source : {e_AuthSource::GolbalFile, e_AuthSource::DirectoryFile, e_AuthSource::LocalACL}) {
    for (const std::string& path : {passwords_, tree_.Text() + "\\DOCS\\USERS.TXT"}) {
      const SecretFiles secrets("htaccess.txt", source, path);
      for (const char* name : {"docs/users.txt", "docs/link.txt", "same.txt"}) {
        EXPECT_TRUE(IsSecret(secrets, Find(name))) << name;
      }
      EXPECT_FALSE(IsSecret(secrets, Find("docs/page.htm")));
    }
  }
}

TEST_F(SecretFilesTest, AFileThatIsNotThereHidesNothing) {
  const SecretFiles secrets("htaccess.txt", e_AuthSource::GolbalFile, tree_.Text() + "/missing.txt");
  EXPECT_FALSE(IsSecret(secrets, Find("docs/page.htm")));
  EXPECT_FALSE(IsSecret(secrets, Find("missing.txt")));
  EXPECT_TRUE(IsSecret(secrets, Find("docs/htaccess.txt")));
}

TEST_F(SecretFilesTest, ALinkThatLeadsNowhereHidesNothing) {
  const auto link = tree_.Path() / "users";
  std::filesystem::create_symlink("docs/users.txt", link);
  const SecretFiles secrets("htaccess.txt", e_AuthSource::GolbalFile, link.string());
  EXPECT_TRUE(IsSecret(secrets, Find("docs/users.txt")));
  std::filesystem::remove(passwords_);
  EXPECT_FALSE(IsSecret(secrets, Find("docs/page.htm")));
}

TEST_F(SecretFilesTest, ANameIsEnoughWhereTheFileCannotBeRead) {
  const SecretFiles secrets("htaccess.txt", e_AuthSource::GolbalFile, "");
  FoundEntry entry;
  entry.kind = EntryKind::kFile;
  entry.name = "docs/htaccess.txt";
  EXPECT_TRUE(IsSecret(secrets, entry));
  entry.name = "docs/page.htm";
  EXPECT_FALSE(IsSecret(secrets, entry));
}

TEST_F(SecretFilesTest, AreOfTheValuesTheyWereMadeOf) {
  const SecretFiles secrets("a", e_AuthSource::GolbalFile, "b");
  EXPECT_TRUE(secrets.AreOf("a", e_AuthSource::GolbalFile, "b"));
  EXPECT_FALSE(secrets.AreOf("x", e_AuthSource::GolbalFile, "b"));
  EXPECT_FALSE(secrets.AreOf("a", e_AuthSource::DirectoryFile, "b"));
  EXPECT_FALSE(secrets.AreOf("a", e_AuthSource::GolbalFile, "x"));
}

TEST_F(SecretFilesTest, AtOnceAndInTurnsTheAnswerIsTheSame) {
  std::filesystem::create_symlink("nowhere", tree_.Path() / "docs/dangling.txt");
  struct {
    std::string source;
    bool atOnce, isThere;
    const char* why;
  } const cases[] = {
      {"", true, false, "there is none"},
      {passwords_, true, true, "as it is spelled"},
      {tree_.Text() + "/docs/USERS.txt", false, true, "in another spelling"},
      {tree_.Text() + "/docs/missing.txt", false, false, "it may be there in another spelling"},
      {tree_.Text() + "/docs/123", true, false, "no other spelling is possible"},
      {tree_.Text() + "/docs/dangling.txt", true, false, "a link that leads nowhere"},
  };
  for (const auto& c : cases) {
    const SecretFiles secrets("htaccess.txt", e_AuthSource::GolbalFile, c.source);
    for (const char* name : {"docs/users.txt", "docs/page.htm"}) {
      const FoundEntry entry = Find(name);
      const bool expected = c.isThere && name == std::string("docs/users.txt");
      const auto atOnce = secrets.ContainsAtOnce(entry);
      EXPECT_EQ(atOnce.has_value(), c.atOnce) << name << ": " << c.why;
      EXPECT_EQ(atOnce.value_or(expected), expected) << name << ": " << c.why;
      EXPECT_EQ(IsSecret(secrets, entry), expected) << name << ": " << c.why;
    }
    EXPECT_EQ(secrets.ContainsAtOnce(Find("docs/htaccess.txt")), true) << c.why;
    EXPECT_EQ(secrets.ContainsAtOnce(FoundEntry()), false) << c.why;
  }
}

}  // namespace
}  // namespace TesselServer
