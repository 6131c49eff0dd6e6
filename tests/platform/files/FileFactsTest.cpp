#include <gtest/gtest.h>
#include <limits.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/files/FileFacts.h"
#include "platform/files/FileSystem.h"
#include "tests/kit/Child.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

class FileFactsTest : public testing::Test {
 protected:
  FileFacts Facts(std::string_view name) const { return FactsOfPath(At(name)).facts; }
  std::string At(std::string_view name) const { return tree_.Text() + "/" + std::string(name); }
  mode_t Mode(std::string_view name) const {
    struct stat status;
    return stat(At(name).c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  }
  bool KeepsAttributes() { return Kit::SetDosAttributes(tree_.Write("probe", ""), "0x0"); }

  Kit::TemporaryTree tree_;
};

TEST_F(FileFactsTest, TellsSizeTimeAndKind) {
  tree_.Write("a.txt", "12345");
  tree_.MakeFolder("folder");
  Kit::SetModified(At("a.txt"), 1794766805, 999'999'999);
  Kit::SetModified(At("folder"), -1, 1);
  const FileFacts file = Facts("a.txt");
  EXPECT_EQ(file.kind, EntryKind::kFile);
  EXPECT_EQ(file.size, 5);
  EXPECT_EQ(file.modified, 1794766805) << "whole seconds, the rest dropped";
  EXPECT_EQ(file.attributes, FileAttribute::kArchive);
  EXPECT_EQ(file.identity, OpenPath(At("a.txt")).Identity());
  const FileFacts folder = Facts("folder");
  EXPECT_EQ(folder.kind, EntryKind::kDirectory);
  EXPECT_EQ(folder.size, 0);
  EXPECT_EQ(folder.modified, -1) << "before 1970 too";
  EXPECT_EQ(folder.attributes, FileAttribute::kDirectory);
}

TEST_F(FileFactsTest, FindsNamesInAnySpellingAndTellsTheTrueOne) {
  tree_.Write("Docs/Read Me.txt", "x");
  tree_.Write("docs2/a", "x");
  for (const char* name : {"Docs/Read Me.txt", "DOCS\\READ ME.TXT", "docs/read me.TXT"}) {
    EXPECT_EQ(FactsOfPath(At(name)).spelling, At("Docs/Read Me.txt")) << name;
  }
  tree_.Write("docs2/A", "yy");
  EXPECT_EQ(Facts("docs2/a").size, 1) << "its own spelling first";
  EXPECT_EQ(Facts("docs2/A").size, 2);
  EXPECT_EQ(FactsOfPath(At("DOCS/")).spelling, At("Docs")) << "a folder may have a separator behind it";
}

TEST_F(FileFactsTest, OnlyRegularFilesAndFoldersAreThere) {
  tree_.Write("a", "x");
  ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
  fs::create_symlink("nowhere", At("broken"));
  fs::create_symlink("loop", At("loop"));
  for (const std::string& path : {At("pipe"), At("broken"), At("loop"), At("missing"), At("a/"), At("A\\"), At("a/b"),
                                  std::string("/dev/null"), std::string(), At(std::string_view("a\0b", 3))}) {
    const PathFacts found = FactsOfPath(path);
    EXPECT_EQ(found.facts.kind, EntryKind::kNone) << path;
    EXPECT_EQ(found.spelling, "") << path;
  }
}

TEST_F(FileFactsTest, ALinkCountsAsItsTarget) {
  tree_.Write("a", "12345");
  Kit::SetModified(At("a"), 1000);
  fs::create_symlink("a", At("link"));
  Kit::SetModified(At("link"), 2000);
  const PathFacts found = FactsOfPath(At("LINK"));
  EXPECT_EQ(found.spelling, At("link"));
  EXPECT_EQ(found.facts.size, 5);
  EXPECT_EQ(found.facts.modified, 1000);
}

TEST_F(FileFactsTest, ReadsTheAttributesThatCount) {
  tree_.Write("a", "x");
  tree_.MakeFolder("folder");
  chmod(At("a").c_str(), 0466);
  EXPECT_EQ(Facts("a").attributes, FileAttribute::kArchive | FileAttribute::kReadOnly)
      << "the owner's permission counts";
  if (!Kit::SetDosAttributes(At("a"), "0xffff")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  EXPECT_EQ(Facts("a").attributes, 1U + 2 + 4 + 32 + 256);
  chmod(At("a").c_str(), 0644);
  EXPECT_EQ(Facts("a").attributes, 2U + 4 + 32 + 256) << "read-only is told by the permissions alone";
  ASSERT_TRUE(Kit::SetDosAttributes(At("folder"), "0x2"));
  EXPECT_EQ(Facts("folder").attributes, 2U + 16);
}

TEST_F(FileFactsTest, WritesReadOnlyOnAnyFileSystem) {
  tree_.Write("a", "x");
  chmod(At("a").c_str(), 0664);
  EXPECT_TRUE(WriteFileAttributes(At("A"), FileAttribute::kReadOnly));
  EXPECT_EQ(Mode("a"), 0444U);
  EXPECT_TRUE(WriteFileAttributes(At("a"), FileAttribute::kArchive));
  EXPECT_EQ(Mode("a"), 0644U) << "the owner may write again, the group no more";
  EXPECT_TRUE(WriteFileAttributes(At("a"), 0));
  EXPECT_EQ(Mode("a"), 0644U);
  EXPECT_EQ(Kit::DosAttributes(At("a")), "none") << "not touched when it would not change";
}

TEST_F(FileFactsTest, WritesHiddenSystemAndTemporaryAndNoOtherBit) {
  if (!KeepsAttributes()) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  tree_.Write("a", "x");
  EXPECT_TRUE(WriteFileAttributes(At("a"), 0xFFFFFFFE));
  EXPECT_EQ(Kit::DosAttributes(At("a")), "0x106");
  EXPECT_EQ(Mode("a"), 0644U);
  EXPECT_TRUE(WriteFileAttributes(At("a"), FileAttribute::kHidden | FileAttribute::kReadOnly));
  EXPECT_EQ(Kit::DosAttributes(At("a")), "0x2");
  EXPECT_EQ(Mode("a"), 0444U);
  EXPECT_TRUE(WriteFileAttributes(At("a"), 0));
  EXPECT_EQ(Facts("a").attributes, FileAttribute::kArchive);
}

TEST_F(FileFactsTest, AReadOnlyFileOfAnOrdinaryUserCanBeHidden) {
  if (!KeepsAttributes()) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  tree_.Write("a", "x");
  tree_.Write("other", "x");
  chmod(At("a").c_str(), 0444);
  fs::permissions(tree_.Path(), fs::perms(0755));
  ASSERT_TRUE(geteuid() != 0 || chown(At("a").c_str(), 65534, 65534) == 0);
  const int status = Kit::InUnprivilegedChild([this] {
    if (!WriteFileAttributes(At("a"), FileAttribute::kReadOnly | FileAttribute::kHidden)) return 1;
    if (Facts("a").attributes != (FileAttribute::kReadOnly | FileAttribute::kHidden | FileAttribute::kArchive))
      return 2;
    return 0;
  });
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "no other user to change to";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Mode("a"), 0444U);
}

TEST_F(FileFactsTest, WhatBelongsToAnotherIsNotWritten) {
  if (geteuid() != 0) GTEST_SKIP() << "only root has a file of another's";
  tree_.Write("a", "x");
  Kit::SetModified(At("a"), 1000);
  fs::permissions(tree_.Path(), fs::perms(0755));
  chmod(At("a").c_str(), 0666);
  const int status = Kit::InUnprivilegedChild([this] {
    if (WriteFileAttributes(At("a"), FileAttribute::kReadOnly)) return 1;
    if (WriteFileTime(At("a"), FileTime::kLastWrite, 2000)) return 2;
    return 0;
  });
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "no other user to change to";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Mode("a"), 0666U);
  EXPECT_EQ(Facts("a").modified, 1000);
}

TEST_F(FileFactsTest, WithoutExtendedAttributesNothingOfAWriteIsDone) {
  struct stat before, after;
  ASSERT_EQ(stat("/proc/self/status", &before), 0);
  EXPECT_FALSE(WriteFileAttributes("/proc/self/status", FileAttribute::kHidden | FileAttribute::kReadOnly));
  ASSERT_EQ(stat("/proc/self/status", &after), 0);
  EXPECT_EQ(before.st_mode, after.st_mode);
}

TEST_F(FileFactsTest, WritesOneTimeAndLeavesTheOther) {
  tree_.Write("a", "x");
  tree_.MakeFolder("folder");
  for (const char* name : {"a", "folder"}) {
    EXPECT_TRUE(WriteFileTime(At(name), FileTime::kLastWrite, 1'000'000'000));
    EXPECT_TRUE(WriteFileTime(At(name), FileTime::kLastAccess, -5));
    struct stat status;
    ASSERT_EQ(stat(At(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mtim.tv_sec, 1'000'000'000) << name;
    EXPECT_EQ(status.st_mtim.tv_nsec, 0) << name;
    EXPECT_EQ(status.st_atim.tv_sec, -5) << name;
  }
  EXPECT_FALSE(WriteFileTime(At("missing"), FileTime::kLastWrite, 0));
  EXPECT_FALSE(WriteFileTime(At("a/"), FileTime::kLastWrite, 0));
  ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(WriteFileTime(At("pipe"), FileTime::kLastWrite, 0)) << "never opened, so it cannot block";
}

TEST(FullPathOfTest, MakesAPathFromTheRoot) {
  const std::string here = fs::current_path().string();
  struct {
    std::string_view text;
    std::string path;
    const char* why;
  } const cases[] = {
      {"/srv/www", "/srv/www", "full already"},
      {"\\srv\\www", "/srv/www", "the other separator"},
      {"/srv//www///a", "/srv/www/a", "empty components"},
      {"/srv/./www/.", "/srv/www", "the folder itself"},
      {"/srv/x/../www", "/srv/www", "one up"},
      {"/srv/..", "/", "up to the top"},
      {"/../../srv", "/srv", "not above the top"},
      {"/srv/www/", "/srv/www/", "a separator at the end stays"},
      {"/srv\\", "/srv/", "of either kind"},
      {"/", "/", "the top"},
      {"//", "/", "the top twice"},
      {"/..a/...", "/..a/...", "names with dots"},
      {"a", here + "/a", "below the working folder"},
      {".", here, "the working folder"},
      {"./", here + "/", "with a separator"},
      {"C:\\x", here + "/C:/x", "no drives"},
      {"/a*b?", "/a*b?", "no wildcards"},
      {" ", here + "/ ", "a blank is a name"},
      {"", "", "nothing"},
      {std::string_view("/a\0b", 4), "", "an end in the middle"},
  };
  for (const auto& c : cases) EXPECT_EQ(FullPathOf(c.text), c.path) << c.why;
}

TEST(FullPathOfTest, EndsAtTheLongestPathOfTheSystem) {
  const std::string longest = "/" + std::string(PATH_MAX - 2, 'a');
  EXPECT_EQ(FullPathOf(longest), longest);
  EXPECT_EQ(FullPathOf(longest + "a"), "");
  EXPECT_EQ(FullPathOf(longest + "aaa/.."), "/") << "what counts is the result";
}

TEST(FullPathOfTest, NeedsAWorkingFolderForARelativePathOnly) {
  const Kit::TemporaryTree tree;
  const std::string gone = tree.MakeFolder("gone");
  const int status = Kit::InChild([&gone] {
    if (chdir(gone.c_str()) != 0 || rmdir(gone.c_str()) != 0) return 1;
    if (!FullPathOf("a").empty()) return 2;
    return FullPathOf("/a") == "/a" ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
}

TEST(FullPathOfTest, BelowTheTopNoSeparatorIsDoubled) {
  const int status = Kit::InChild([] { return chdir("/") == 0 && FullPathOf("a") == "/a" ? 0 : 1; });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace TesselServer
