#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <limits>

#include "support/cls_WinUtil.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

class cls_WinUtilTest : public testing::Test {
 protected:
  cls_WinUtilTest() {
    tree_.Write("docs/page.htm", "x");
    tree_.Write(".hidden", "x");
    mkfifo((tree_.Text() + "/pipe").c_str(), 0600);
    std::filesystem::create_symlink("docs/page.htm", tree_.Path() / "link");
    std::filesystem::create_symlink("nothing", tree_.Path() / "broken");
    std::filesystem::create_directory_symlink("docs", tree_.Path() / "folderlink");
  }

  Kit::TemporaryTree tree_;
  cls_WinUtil utilities_;
};

TEST_F(cls_WinUtilTest, FilesAndFoldersAreDistinguished) {
  struct {
    std::string_view below;
    bool file, directory;
    const char* why;
  } const cases[] = {
      {"/docs/page.htm", true, true, "a file counts as a folder too"},
      {"/docs", false, true, "a folder is no file"},
      {"/docs/", false, true, "with a separator behind it"},
      {"/docs/page.htm/", false, false, "a file has none behind it"},
      {"\\docs\\page.htm", true, true, "both separators"},
      {"\\docs\\page.htm\\", false, false, "behind a file, the other one"},
      {"/DOCS/PAGE.HTM", true, true, "in another case"},
      {"/docs/none.htm", false, false, "not there"},
      {"/none/page.htm", false, false, "in no folder"},
      {"/docs/*.htm", false, false, "no wildcards"},
      {"/docs/page.ht?", false, false, "no wildcards"},
      {"/.hidden", true, true, "a dot does not hide a file"},
      {"/link", true, true, "a link to a file"},
      {"/folderlink", false, true, "a link to a folder"},
      {"/folderlink/page.htm", true, true, "a file behind it"},
      {"/broken", false, false, "a link to nothing"},
      {"/pipe", false, false, "neither file nor folder"},
      {std::string_view("/docs/page.htm\0", 15), false, false, "NUL is in no name"},
      {std::string_view("/docs\0x", 7), false, false, "nor within one"},
  };
  for (const auto& c : cases) {
    const std::string path = tree_.Text() + std::string(c.below);
    EXPECT_EQ(utilities_.FileExists(path), c.file) << c.why;
    EXPECT_EQ(utilities_.DirectoryExists(path), c.directory) << c.why;
  }
}

TEST_F(cls_WinUtilTest, ABlankPathIsNothing) {
  for (const std::string_view path : {"", " ", "   "}) {
    EXPECT_FALSE(utilities_.FileExists(path));
    EXPECT_FALSE(utilities_.DirectoryExists(path));
  }
}

TEST_F(cls_WinUtilTest, APathCountsFromTheWorkingFolder) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(tree_.Path() / "docs");
  EXPECT_TRUE(utilities_.FileExists("page.htm"));
  EXPECT_TRUE(utilities_.FileExists("..\\docs\\page.htm"));
  EXPECT_FALSE(utilities_.FileExists("other.htm"));
  EXPECT_TRUE(utilities_.DirectoryExists(".."));
  EXPECT_FALSE(utilities_.FileExists(".."));
  std::filesystem::current_path(before);
}

TEST_F(cls_WinUtilTest, VeryLongPathsAreNothing) {
  const std::string name(100'000, 'x');
  std::string deep = tree_.Text();
  for (int i = 0; i < 5000; ++i) deep += "/docs/..";
  for (const std::string& path : {tree_.Text() + "/" + name, name, deep + "/docs/page.htm"}) {
    EXPECT_FALSE(utilities_.FileExists(path));
    EXPECT_FALSE(utilities_.DirectoryExists(path));
  }
}

TEST_F(cls_WinUtilTest, AHiddenFileIsNotSeenButAFolderIs) {
  const std::string file = tree_.Text() + "/docs/page.htm";
  const std::string folder = tree_.Text() + "/docs";
  if (setxattr(file.c_str(), "user.DOSATTRIB", "0x2", 3, 0) != 0) {
    GTEST_SKIP() << "the temporary folder's file system keeps no extended attributes";
  }
  ASSERT_EQ(setxattr(folder.c_str(), "user.DOSATTRIB", "0x2", 3, 0), 0);
  EXPECT_FALSE(utilities_.FileExists(file));
  EXPECT_TRUE(utilities_.DirectoryExists(folder));
}

TEST_F(cls_WinUtilTest, TheUpTimeHasDaysHoursMinutesAndSeconds) {
  struct {
    std::int64_t seconds;
    std::string_view text;
  } const cases[] = {
      {0, "00:00:00:00"},         {1, "00:00:00:01"},      {59, "00:00:00:59"},     {61, "00:00:01:01"},
      {3599, "00:00:59:59"},      {3661, "00:01:01:01"},   {86399, "00:23:59:59"},  {86400, "01:00:00:00"},
      {90061, "01:01:01:01"},     {172800, "02:00:00:00"}, {864000, "10:00:00:00"}, {8640000, "100:00:00:00"},
      {31536000, "365:00:00:00"}, {43200, "00:12:00:00"},  {129600, "01:12:00:00"},
  };
  const Date from = DateFromSeconds(1794766805);
  for (const auto& c : cases) {
    EXPECT_EQ(utilities_.UpTimeText(from, DateFromSeconds(1794766805 + c.seconds)), c.text) << c.seconds;
  }
}

// The parts of an up-time text as seconds, -1 when it is no such text.
std::int64_t SecondsOf(const std::string& text) {
  int days = 0, hours = 0, minutes = 0, seconds = 0;
  if (std::sscanf(text.c_str(), "%d:%d:%d:%d", &days, &hours, &minutes, &seconds) != 4) return -1;
  return ((days * std::int64_t{24} + hours) * 60 + minutes) * 60 + seconds;
}

TEST_F(cls_WinUtilTest, ARoundedSecondMayShowAsSixtyInTheMinuteBefore) {
  bool sixtySeen = false;
  const Date from = DateFromSeconds(1794766805);
  for (std::int64_t seconds = 0; seconds < 200'000; ++seconds) {
    const std::string text = utilities_.UpTimeText(from, DateFromSeconds(1794766805 + seconds));
    ASSERT_EQ(SecondsOf(text), seconds) << text;
    sixtySeen = sixtySeen || text.ends_with(":60");
  }
  EXPECT_TRUE(sixtySeen);
}

TEST_F(cls_WinUtilTest, TimesOutsideEveryCalendarGiveSomeText) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(utilities_.UpTimeText(-kInfinity, kInfinity), "3615900:00:00:00");
  EXPECT_EQ(utilities_.UpTimeText(2, 1), "-01:00:00:00");
  EXPECT_EQ(utilities_.UpTimeText(std::numeric_limits<double>::quiet_NaN(), 1), "01:00:00:00");
}

TEST_F(cls_WinUtilTest, ThePlatformIsOfTheFamilyWithFilePermissions) { EXPECT_EQ(utilities_.PlatformIdText(), "2"); }

}  // namespace
}  // namespace TesselServer
