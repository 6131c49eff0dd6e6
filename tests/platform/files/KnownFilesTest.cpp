#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "platform/files/FileSystem.h"
#include "platform/files/KnownFiles.h"
#include "platform/files/NeighbourFile.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/Settling.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

// Every test has files in a folder of its own; they are written before the first test and have settled by then.
class KnownFilesTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    tree_ = std::make_unique<Kit::TemporaryTree>();
    for (const char* test : {"same", "cut", "renamed", "removed", "hidden", "folder", "link", "root/site", "mapped",
                             "way/site/moved", "way/site/linked", "way/site/twin", "moving/first", "beside/folder"}) {
      tree_->Write(std::string(test) + "/a.txt", "first");
      tree_->Write(std::string(test) + "/b.txt", "other");
    }
    tree_->Write("root/next/a.txt", "next!");
    tree_->Write("sizes/largest", std::string(KnownFiles::kMaxFileBytes, 'x'));
    tree_->Write("sizes/larger", std::string(KnownFiles::kMaxFileBytes + 1, 'x'));
    tree_->Write("sizes/empty", "");
    Kit::LetFilesSettle();
  }
  static void TearDownTestSuite() { tree_.reset(); }
  void SetUp() override {
    const UniqueDescriptor folder(open(tree_->Text().c_str(), O_PATH | O_CLOEXEC));
    if (!KeepsContentChangeTimes(folder.Get())) GTEST_SKIP() << "a temporary folder of which nothing is remembered";
  }

  static std::string PathOf(const std::string& name) { return tree_->Text() + "/" + name; }
  static std::string BytesOf(const FoundEntry& found) {
    std::string bytes;
    return found.file.ReadAll(bytes, KnownFiles::kMaxFileBytes + 1) ? bytes : "nothing";
  }
  static bool IsRemembered(const FoundEntry& found) { return found.file.Contents() != nullptr; }

  static std::unique_ptr<Kit::TemporaryTree> tree_;
};

std::unique_ptr<Kit::TemporaryTree> KnownFilesTest::tree_;

TEST_F(KnownFilesTest, AFileThatIsTheSameIsServedWithoutADescriptor) {
  const RootFolder root(PathOf("same"));
  const FoundEntry first = root.Find("a.txt");
  const FoundEntry second = root.Find("//./A.TXT/../a.txt");
  for (const FoundEntry* found : {&first, &second}) {
    EXPECT_EQ(found->kind, EntryKind::kFile);
    EXPECT_TRUE(found->readable);
    EXPECT_TRUE(found->file.IsOpen());
    EXPECT_EQ(found->name, "a.txt");
    EXPECT_EQ(found->file.Size(), 5);
    EXPECT_EQ(found->file.Descriptor(), -1);
    EXPECT_EQ(found->file.CanonicalPath(), fs::canonical(PathOf("same/a.txt")).string());
    ASSERT_TRUE(IsRemembered(*found));
    EXPECT_EQ(*found->file.Contents(), "first");
    EXPECT_EQ(BytesOf(*found), "first");
  }
  EXPECT_EQ(first.file.Contents(), second.file.Contents()) << "read once";
  struct stat status;
  ASSERT_EQ(stat(PathOf("same/a.txt").c_str(), &status), 0);
  EXPECT_EQ(second.file.Identity(), (FileIdentity{status.st_dev, status.st_ino}));
  EXPECT_EQ(root.Find("a.txt/").kind, EntryKind::kNone) << "a file is no folder";
}

TEST_F(KnownFilesTest, ReadingObeysItsLimit) {
  const RootFolder root(PathOf("same"));
  const FoundEntry found = root.Find("b.txt");
  ASSERT_TRUE(IsRemembered(found));
  std::string bytes;
  EXPECT_FALSE(found.file.ReadAll(bytes, 4));
  EXPECT_EQ(bytes, "othe");
  EXPECT_TRUE(found.file.ReadAll(bytes, 5));
  EXPECT_EQ(bytes, "other");
}

TEST_F(KnownFilesTest, ANewContentOfTheSameLengthIsSeenAtOnceAndEachTime) {
  const RootFolder root(PathOf("cut"));
  ASSERT_TRUE(IsRemembered(root.Find("a.txt")));
  for (int i = 0; i < 200; ++i) {
    const std::string bytes = std::to_string(10000 + i);
    std::ofstream(PathOf("cut/a.txt"), std::ios::in | std::ios::binary) << bytes;  // in place, the length stays
    ASSERT_EQ(BytesOf(root.Find("a.txt")), bytes);
  }
}

TEST_F(KnownFilesTest, AFileThatTakesItsPlaceIsSeenAtOnce) {
  const RootFolder root(PathOf("renamed"));
  ASSERT_TRUE(IsRemembered(root.Find("a.txt")));
  fs::rename(PathOf("renamed/b.txt"), PathOf("renamed/a.txt"));
  EXPECT_EQ(BytesOf(root.Find("a.txt")), "other");
}

TEST_F(KnownFilesTest, ARemovedFileIsGoneAtOnce) {
  const RootFolder root(PathOf("removed"));
  const FoundEntry before = root.Find("a.txt");
  ASSERT_TRUE(IsRemembered(before));
  fs::remove(PathOf("removed/a.txt"));
  EXPECT_EQ(root.Find("a.txt").kind, EntryKind::kNone);
  EXPECT_EQ(BytesOf(before), "first") << "whoever has it keeps it";
}

TEST_F(KnownFilesTest, AFileThatIsHiddenIsGoneAtOnce) {
  const RootFolder root(PathOf("hidden"));
  ASSERT_TRUE(IsRemembered(root.Find("a.txt")));
  if (!Kit::SetDosAttributes(PathOf("hidden/a.txt"), "0x2")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  EXPECT_EQ(root.Find("a.txt").kind, EntryKind::kNone);
}

TEST_F(KnownFilesTest, AFolderOrALinkInItsPlaceIsSeenAtOnce) {
  const RootFolder root(PathOf("folder"));
  ASSERT_TRUE(IsRemembered(root.Find("a.txt")));
  fs::remove(PathOf("folder/a.txt"));
  fs::create_directory(PathOf("folder/a.txt"));
  EXPECT_EQ(root.Find("a.txt").kind, EntryKind::kDirectory);

  const RootFolder linked(PathOf("link"));
  ASSERT_TRUE(IsRemembered(linked.Find("a.txt")));
  fs::remove(PathOf("link/a.txt"));
  fs::create_symlink("b.txt", PathOf("link/a.txt"));
  EXPECT_EQ(BytesOf(linked.Find("a.txt")), "other");
  fs::remove(PathOf("link/a.txt"));
  fs::create_symlink(PathOf("same/a.txt"), PathOf("link/a.txt"));
  EXPECT_EQ(linked.Find("a.txt").kind, EntryKind::kNone) << "it leads outside";
}

// The file is the same one, under another name or in another folder: whether it may be served is decided anew.
TEST_F(KnownFilesTest, AnotherFolderOnTheWayToTheSameFileIsSeenAtOnce) {
  const RootFolder root(PathOf("way/site"));
  for (const char* name : {"moved/a.txt", "linked/a.txt", "twin/a.txt"}) ASSERT_TRUE(IsRemembered(root.Find(name)));

  fs::rename(PathOf("way/site/moved"), PathOf("way/outside"));
  fs::create_directory_symlink(PathOf("way/outside"), PathOf("way/site/moved"));
  EXPECT_EQ(root.Find("moved/a.txt").kind, EntryKind::kNone) << "the link leads outside";

  fs::rename(PathOf("way/site/linked"), PathOf("way/site/elsewhere"));
  fs::create_directory_symlink("elsewhere", PathOf("way/site/linked"));
  const FoundEntry linked = root.Find("linked/a.txt");
  EXPECT_EQ(linked.kind, EntryKind::kFile);
  EXPECT_EQ(linked.file.CanonicalPath(), fs::canonical(PathOf("way/site/elsewhere/a.txt")).string());

  fs::create_directory(PathOf("way/site/other"));
  fs::create_hard_link(PathOf("way/site/twin/a.txt"), PathOf("way/site/other/a.txt"));
  fs::rename(PathOf("way/site/twin"), PathOf("way/site/former"));
  fs::rename(PathOf("way/site/other"), PathOf("way/site/twin"));
  const FoundEntry twin = root.Find("twin/a.txt");
  EXPECT_EQ(twin.file.CanonicalPath(), fs::canonical(PathOf("way/site/twin/a.txt")).string());
}

TEST_F(KnownFilesTest, AFileBehindALinkIsNotRemembered) {
  fs::create_symlink("a.txt", PathOf("same/link.txt"));
  fs::create_directory_symlink("../same", PathOf("root/linked"));
  const RootFolder same(PathOf("same"));
  EXPECT_EQ(BytesOf(same.Find("link.txt")), "first");
  EXPECT_FALSE(IsRemembered(same.Find("link.txt")));
  const RootFolder above(tree_->Text());
  EXPECT_EQ(BytesOf(above.Find("root/linked/a.txt")), "first");
  EXPECT_FALSE(IsRemembered(above.Find("root/linked/a.txt")));
  const RootFolder linked(PathOf("root/linked"));
  EXPECT_TRUE(IsRemembered(linked.Find("a.txt"))) << "the root itself may be one";
}

TEST_F(KnownFilesTest, AnotherFolderInTheRootsPlaceIsSeenAtOnce) {
  const RootFolder root(PathOf("root/site"));
  ASSERT_TRUE(IsRemembered(root.Find("a.txt")));
  fs::rename(PathOf("root/site"), PathOf("root/old"));
  EXPECT_EQ(root.Find("a.txt").kind, EntryKind::kNone);
  fs::rename(PathOf("root/next"), PathOf("root/site"));
  EXPECT_EQ(BytesOf(root.Find("a.txt")), "next!");
}

TEST_F(KnownFilesTest, WhereItLiesIsAskedAnewThoughItsRootHasMoved) {
  fs::create_directory_symlink("first", PathOf("moving/site"));
  const RootFolder root(PathOf("moving/site"));
  ASSERT_TRUE(IsRemembered(root.Find("a.txt")));
  fs::rename(PathOf("moving/first"), PathOf("moving/second"));
  tree_->Write("moving/first/a.txt", "another");
  fs::remove(PathOf("moving/site"));
  fs::create_directory_symlink("second", PathOf("moving/site"));
  const FoundEntry found = root.Find("a.txt");
  EXPECT_EQ(BytesOf(found), "first");
  EXPECT_EQ(found.file.CanonicalPath(), fs::canonical(PathOf("moving/second/a.txt")).string());
  EXPECT_EQ(BytesOf({EntryKind::kFile, "", true, FindBeside(found.file, "b.txt").file}), "other");
}

TEST_F(KnownFilesTest, WhereItLiesCannotBeToldOnceItHasGone) {
  const RootFolder root(PathOf("beside"));
  const FoundEntry found = root.Find("folder/a.txt");
  ASSERT_TRUE(IsRemembered(found));
  EXPECT_EQ(FindBeside(found.file, "b.txt").state, NeighbourFile::State::kFound);
  EXPECT_EQ(FindBeside(found.file, "c.txt").state, NeighbourFile::State::kMissing);
  tree_->Write("beside/folder/new", "newer");
  fs::rename(PathOf("beside/folder/new"), PathOf("beside/folder/a.txt"));
  EXPECT_EQ(FindBeside(found.file, "c.txt").state, NeighbourFile::State::kMissing)
      << "a new version beside the folder's files";
  fs::rename(PathOf("beside/folder"), PathOf("beside/moved"));
  EXPECT_EQ(FindBeside(found.file, "c.txt").state, NeighbourFile::State::kUnknown);
  EXPECT_EQ(found.file.CanonicalPath(), "");
  tree_->Write("beside/folder/a.txt", "first");
  EXPECT_EQ(FindBeside(found.file, "c.txt").state, NeighbourFile::State::kUnknown)
      << "another folder, and file, of that name";
  EXPECT_EQ(found.file.CanonicalPath(), "");
}

TEST_F(KnownFilesTest, RemembersUpToItsLengthAndNoFolder) {
  const RootFolder root(PathOf("sizes"));
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(IsRemembered(root.Find("largest")));
    EXPECT_TRUE(IsRemembered(root.Find("empty")));
    EXPECT_FALSE(IsRemembered(root.Find("larger")));
    EXPECT_FALSE(IsRemembered(root.Find("")));
  }
  EXPECT_EQ(BytesOf(root.Find("empty")), "");
  EXPECT_EQ(BytesOf(root.Find("larger")), std::string(KnownFiles::kMaxFileBytes + 1, 'x'));
}

TEST_F(KnownFilesTest, WhatChangedJustNowIsNotRemembered) {
  const Kit::TemporaryTree fresh;
  fresh.Write("a", "fresh");
  const RootFolder root(fresh.Text());
  EXPECT_FALSE(IsRemembered(root.Find("a")));
  EXPECT_EQ(BytesOf(root.Find("a")), "fresh");
}

TEST_F(KnownFilesTest, FilesInMemoryAreNotRemembered) {
  struct statfs facts;
  constexpr auto kMemoryFiles = 0x01021994;
  if (statfs("/dev/shm", &facts) != 0 || facts.f_type != kMemoryFiles) GTEST_SKIP() << "no tmpfs here";
  const Kit::TemporaryTree memory("/dev/shm");
  memory.Write("a", "bytes");
  Kit::LetFilesSettle();
  const RootFolder root(memory.Text());
  root.Find("a");
  EXPECT_FALSE(IsRemembered(root.Find("a")));
}

TEST_F(KnownFilesTest, WhatIsWrittenThroughAMappingIsSeenWithinASecond) {
  const int file = open(PathOf("mapped/a.txt").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(file, 0);
  auto* const bytes = static_cast<char*>(mmap(nullptr, 5, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
  ASSERT_NE(bytes, MAP_FAILED);
  bytes[0] = 'F';  // from here on the page is one that may be written without a word
  Kit::LetFilesSettle();
  const RootFolder root(PathOf("mapped"));
  root.Find("a.txt");
  bytes[1] = 'I';
  std::this_thread::sleep_for(std::chrono::milliseconds(KnownFiles::kOpenAgainMilliseconds));
  EXPECT_EQ(BytesOf(root.Find("a.txt")), "FIrst");
  munmap(bytes, 5);
  close(file);
}

TEST_F(KnownFilesTest, TakesABoundedNumberOfBytes) {
  KnownFiles files(PathOf("sizes"));
  const OpenFile file(open(PathOf("sizes/largest").c_str(), O_RDONLY | O_CLOEXEC));
  const auto nameOf = [](int i) { return std::string(static_cast<std::size_t>(i), '/') + "largest"; };
  constexpr int kMoreThanFit = KnownFiles::kMaxBytes / KnownFiles::kMaxFileBytes + 10;
  for (int i = 0; i < kMoreThanFit; ++i) ASSERT_NE(files.Remember(nameOf(i), file), nullptr) << i;
  EXPECT_LE(files.Bytes(), KnownFiles::kMaxBytes);
  EXPECT_GT(files.Bytes(), KnownFiles::kMaxBytes / 2);
  EXPECT_EQ(files.Find(nameOf(0)), nullptr);
  EXPECT_NE(files.Find(nameOf(kMoreThanFit - 1)), nullptr);
}

TEST_F(KnownFilesTest, ARootThatNamesNothingHasNothing) {
  const RootFolder root(std::string("a\0b", 3));
  EXPECT_EQ(root.Find("a.txt").kind, EntryKind::kNone);
  EXPECT_EQ(root.Find("a.txt").kind, EntryKind::kNone);
}

}  // namespace
}  // namespace TesselServer
