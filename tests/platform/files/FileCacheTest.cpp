#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/files/FileCache.h"
#include "platform/files/FileSystem.h"
#include "platform/files/NeighbourFile.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/ColdFile.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/SystemCalls.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;
using Calls = std::vector<long>;

class FileCacheTest : public testing::Test {
 protected:
  void SetUp() override {
    const UniqueDescriptor folder(open(tree_.Text().c_str(), O_PATH | O_CLOEXEC));
    if (!KeepsChangeTimes(folder.Get(), ReadFrom::kContents)) GTEST_SKIP() << "nothing is remembered of this folder";
    for (const char* each : {"site", "site/deep/er/still", "outside", "next"}) {
      tree_.Write(std::string(each) + "/a.txt", each);
      tree_.Write(std::string(each) + "/b.txt", "other");
    }
    world_.LetFilesSettle();
  }

  RootFolder Root(const std::string& folder = "site") const { return RootFolder(PathOf(folder), world_); }
  std::string PathOf(const std::string& name) const { return tree_.Text() + "/" + name; }
  static std::string BytesOf(const FoundEntry& found) {
    std::string bytes;
    return found.file.ReadAll(bytes, FileCache::kMaxFileBytes + 1) ? bytes : "nothing";
  }
  static bool IsRemembered(const FoundEntry& found) { return found.file.Contents() != nullptr; }

  // What a request does whose answer is that file.
  static FoundEntry Ask(const RootFolder& root, std::string_view name) {
    FoundEntry found = root.Find(name);
    root.Remember(found);
    return found;
  }

  // Asks as often as it takes; whether it is remembered then.
  static bool Remembers(const RootFolder& root, std::string_view name) {
    Ask(root, name);
    return IsRemembered(Ask(root, name));
  }

  Kit::TemporaryTree tree_;
  Kit::FakeWorld world_;
};

TEST_F(FileCacheTest, AFileIsRememberedAtTheSecondRequestWithinAMinute) {
  const RootFolder root = Root();
  EXPECT_FALSE(IsRemembered(Ask(root, "a.txt")));
  world_.Advance(LruCache<int>::kAskedAgainMilliseconds);
  EXPECT_FALSE(IsRemembered(Ask(root, "a.txt"))) << "a minute later it is the first one again";
  EXPECT_FALSE(IsRemembered(Ask(root, "b.txt")));
  world_.Advance(LruCache<int>::kAskedAgainMilliseconds - 1);
  EXPECT_TRUE(IsRemembered(Ask(root, "a.txt")));
}

TEST_F(FileCacheTest, WhatIsAskedForAllTheTimeStaysRememberedThoughItIsReadAnewEachMinute) {
  const RootFolder root = Root();
  ASSERT_TRUE(Remembers(root, "a.txt"));
  const auto first = Ask(root, "a.txt").file.Contents();
  for (int i = 0; i < 10; ++i) {
    world_.Advance(Reading::kMaxAgeMilliseconds / 4);
    EXPECT_TRUE(IsRemembered(Ask(root, "a.txt"))) << i;
  }
  EXPECT_NE(Ask(root, "a.txt").file.Contents(), first);
  world_.Advance(Reading::kMaxAgeMilliseconds);
  EXPECT_FALSE(IsRemembered(Ask(root, "a.txt"))) << "not asked for in a minute";
}

// The numbers that the head of FileCache.h gives.
TEST_F(FileCacheTest, TheFirstRequestCostsWhatReadingAFileCosts) {
  const RootFolder root = Root();
  BytesOf(Ask(root, "b.txt"));  // what a sanitizer looks at once
  for (const char* name : {"a.txt", "deep/er/still/a.txt"}) {
    const auto calls = Kit::SystemCallsOf([&] { BytesOf(Ask(root, name)); });
    if (!calls) GTEST_SKIP() << "no process may be traced";
    EXPECT_EQ(*calls, (Calls{SYS_openat2, SYS_newfstatat, SYS_fgetxattr, SYS_pread64, SYS_close})) << name;
  }
}

TEST_F(FileCacheTest, ARememberedFileCostsOneQuestionAndOneForEachFolder) {
  const RootFolder root = Root();
  struct {
    const char* name;
    std::size_t calls;
  } const cases[] = {{"a.txt", 1}, {"deep/er/still/a.txt", 4}};
  for (const auto& c : cases) {
    ASSERT_TRUE(Remembers(root, c.name));
    const auto calls = Kit::SystemCallsOf([&] { BytesOf(Ask(root, c.name)); });
    if (!calls) GTEST_SKIP() << "no process may be traced";
    EXPECT_EQ(*calls, Calls(c.calls, SYS_newfstatat)) << c.name;
  }
}

TEST_F(FileCacheTest, AFileBelowALinkedRootCostsTwoCallsMore) {
  fs::create_directory_symlink("site", PathOf("link"));
  const RootFolder root = Root("link");
  Ask(root, "b.txt");  // sees the link
  const auto calls = Kit::SystemCallsOf([&] { BytesOf(Ask(root, "a.txt")); });
  if (!calls) GTEST_SKIP() << "no process may be traced";
  EXPECT_EQ(calls->size(), 7u);
}

TEST_F(FileCacheTest, AFileThatIsTheSameIsServedWithoutADescriptor) {
  const RootFolder root = Root();
  Ask(root, "a.txt");
  const FoundEntry first = Ask(root, "a.txt");
  const FoundEntry second = Ask(root, "//./A.TXT/../a.txt");
  for (const FoundEntry* found : {&first, &second}) {
    EXPECT_EQ(found->kind, EntryKind::kFile);
    EXPECT_TRUE(found->readable);
    EXPECT_TRUE(found->file.IsOpen());
    EXPECT_EQ(found->name, "a.txt");
    EXPECT_EQ(found->file.Size(), 4);
    EXPECT_EQ(found->file.Descriptor(), -1);
    EXPECT_EQ(found->file.CanonicalPath(), fs::canonical(PathOf("site/a.txt")).string());
    ASSERT_TRUE(IsRemembered(*found));
    EXPECT_EQ(*found->file.Contents(), "site");
    EXPECT_EQ(BytesOf(*found), "site");
  }
  EXPECT_EQ(first.file.Contents(), second.file.Contents()) << "read once";
  struct stat status;
  ASSERT_EQ(stat(PathOf("site/a.txt").c_str(), &status), 0);
  EXPECT_EQ(second.file.Identity(), (FileIdentity{status.st_dev, status.st_ino}));
  EXPECT_EQ(Ask(root, "a.txt/").kind, EntryKind::kNone) << "a file is no folder";
}

TEST_F(FileCacheTest, ReadingObeysItsLimit) {
  const RootFolder root = Root();
  ASSERT_TRUE(Remembers(root, "b.txt"));
  const FoundEntry found = Ask(root, "b.txt");
  std::string bytes;
  EXPECT_FALSE(found.file.ReadAll(bytes, 4));
  EXPECT_EQ(bytes, "othe");
  EXPECT_TRUE(found.file.ReadAll(bytes, 5));
  EXPECT_EQ(bytes, "other");
}

TEST_F(FileCacheTest, ANewContentOfTheSameLengthIsSeenAtOnceAndEachTime) {
  const RootFolder root = Root();
  ASSERT_TRUE(Remembers(root, "a.txt"));
  for (int i = 0; i < 200; ++i) {
    const std::string bytes = std::to_string(1000 + i);
    std::ofstream(PathOf("site/a.txt"), std::ios::in | std::ios::binary) << bytes;  // in place, the length stays
    ASSERT_EQ(BytesOf(Ask(root, "a.txt")), bytes);
  }
}

TEST_F(FileCacheTest, EveryChangeIsSeenAtOnce) {
  const struct {
    void (*make)(const fs::path& folder);
    const char* why;
  } changes[] = {
      {[](const fs::path& f) { fs::rename(f / "b.txt", f / "a.txt"); }, "another file of that name"},
      {[](const fs::path& f) {
         const auto before = fs::last_write_time(f / "a.txt");
         std::ofstream(f / "a.txt", std::ios::in) << "again";
         fs::last_write_time(f / "a.txt", before);
       },
       "a content of the same length, and the time of before"},
      {[](const fs::path& f) { fs::resize_file(f / "a.txt", 3); }, "another length"},
      {[](const fs::path& f) { chmod((f / "a.txt").c_str(), 0600); }, "other permissions"},
      {[](const fs::path& f) { Kit::SetModified(f / "a.txt", 1'000'000); }, "another time"},
  };
  const RootFolder root = Root();
  for (const auto& change : changes) {
    world_.LetFilesSettle();
    ASSERT_TRUE(Remembers(root, "a.txt")) << change.why;
    change.make(PathOf("site"));
    const FoundEntry now = Ask(root, "a.txt");
    EXPECT_FALSE(IsRemembered(now)) << change.why;
    EXPECT_EQ(BytesOf(now), BytesOf({EntryKind::kFile, "", true, OpenPath(PathOf("site/a.txt"))})) << change.why;
  }
}

TEST_F(FileCacheTest, ARemovedFileIsGoneAtOnce) {
  const RootFolder root = Root();
  ASSERT_TRUE(Remembers(root, "a.txt"));
  const FoundEntry before = Ask(root, "a.txt");
  fs::remove(PathOf("site/a.txt"));
  EXPECT_EQ(Ask(root, "a.txt").kind, EntryKind::kNone);
  EXPECT_EQ(BytesOf(before), "site") << "whoever has it keeps it";
}

TEST_F(FileCacheTest, AFileThatIsHiddenIsGoneAtOnce) {
  const RootFolder root = Root();
  ASSERT_TRUE(Remembers(root, "a.txt"));
  if (!Kit::SetDosAttributes(PathOf("site/a.txt"), "0x2")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  EXPECT_EQ(Ask(root, "a.txt").kind, EntryKind::kNone);
}

TEST_F(FileCacheTest, AFolderOrALinkInItsPlaceIsSeenAtOnce) {
  const RootFolder root = Root();
  ASSERT_TRUE(Remembers(root, "a.txt"));
  fs::remove(PathOf("site/a.txt"));
  fs::create_directory(PathOf("site/a.txt"));
  EXPECT_EQ(Ask(root, "a.txt").kind, EntryKind::kDirectory);

  const RootFolder linked = Root("next");
  ASSERT_TRUE(Remembers(linked, "a.txt"));
  fs::remove(PathOf("next/a.txt"));
  fs::create_symlink("b.txt", PathOf("next/a.txt"));
  EXPECT_EQ(BytesOf(Ask(linked, "a.txt")), "other");
  fs::remove(PathOf("next/a.txt"));
  fs::create_symlink(PathOf("outside/a.txt"), PathOf("next/a.txt"));
  EXPECT_EQ(Ask(linked, "a.txt").kind, EntryKind::kNone) << "it leads outside";
}

// The file is the same one, under another name or in another folder: whether it may be served is decided anew.

TEST_F(FileCacheTest, AnotherFolderOnTheWayToTheSameFileIsSeenAtOnce) {
  for (const char* name : {"moved", "linked", "twin"}) tree_.Write(std::string("way/site/") + name + "/a.txt", "same");
  world_.LetFilesSettle();
  const RootFolder root = Root("way/site");
  for (const char* name : {"moved/a.txt", "linked/a.txt", "twin/a.txt"}) ASSERT_TRUE(Remembers(root, name));

  fs::rename(PathOf("way/site/moved"), PathOf("way/outside"));
  fs::create_directory_symlink(PathOf("way/outside"), PathOf("way/site/moved"));
  EXPECT_EQ(Ask(root, "moved/a.txt").kind, EntryKind::kNone) << "the link leads outside";

  fs::rename(PathOf("way/site/linked"), PathOf("way/site/elsewhere"));
  fs::create_directory_symlink("elsewhere", PathOf("way/site/linked"));
  const FoundEntry linked = Ask(root, "linked/a.txt");
  EXPECT_EQ(linked.kind, EntryKind::kFile);
  EXPECT_EQ(linked.file.CanonicalPath(), fs::canonical(PathOf("way/site/elsewhere/a.txt")).string());

  fs::create_directory(PathOf("way/site/other"));
  fs::create_hard_link(PathOf("way/site/twin/a.txt"), PathOf("way/site/other/a.txt"));
  fs::rename(PathOf("way/site/twin"), PathOf("way/site/former"));
  fs::rename(PathOf("way/site/other"), PathOf("way/site/twin"));
  const FoundEntry twin = Ask(root, "twin/a.txt");
  EXPECT_EQ(twin.file.CanonicalPath(), fs::canonical(PathOf("way/site/twin/a.txt")).string());
}

TEST_F(FileCacheTest, AFileThatALinkLeadsToIsNotCached) {
  fs::create_symlink("a.txt", PathOf("site/link.txt"));
  fs::create_directory_symlink("../site", PathOf("next/linked"));
  const RootFolder root = Root();
  EXPECT_FALSE(Remembers(root, "link.txt"));
  EXPECT_EQ(BytesOf(Ask(root, "link.txt")), "site");
  const RootFolder above = Root("");
  EXPECT_FALSE(Remembers(above, "next/linked/a.txt"));
  EXPECT_EQ(BytesOf(Ask(above, "next/linked/a.txt")), "site");
  EXPECT_TRUE(Remembers(Root("next/linked"), "a.txt")) << "the root itself may be one";
}

TEST_F(FileCacheTest, AnotherFolderInTheRootsPlaceIsSeenAtOnce) {
  const RootFolder root = Root();
  ASSERT_TRUE(Remembers(root, "a.txt"));
  fs::rename(PathOf("site"), PathOf("old"));
  EXPECT_EQ(Ask(root, "a.txt").kind, EntryKind::kNone);
  fs::rename(PathOf("next"), PathOf("site"));
  EXPECT_EQ(BytesOf(Ask(root, "a.txt")), "next");
}

TEST_F(FileCacheTest, WhereItLiesIsAskedAnewThoughItsRootHasMoved) {
  fs::create_directory_symlink("site", PathOf("link"));
  const RootFolder root = Root("link");
  ASSERT_TRUE(Remembers(root, "a.txt"));
  fs::rename(PathOf("site"), PathOf("second"));
  tree_.Write("site/a.txt", "another");
  fs::remove(PathOf("link"));
  fs::create_directory_symlink("second", PathOf("link"));
  const FoundEntry found = Ask(root, "a.txt");
  EXPECT_EQ(BytesOf(found), "site");
  EXPECT_EQ(found.file.CanonicalPath(), fs::canonical(PathOf("second/a.txt")).string());
  EXPECT_EQ(BytesOf({EntryKind::kFile, "", true, FindBeside(found.file, "b.txt").file}), "other");
}

TEST_F(FileCacheTest, AReplacedOrMovedFileHasNoPath) {
  const RootFolder root = Root("");
  ASSERT_TRUE(Remembers(root, "site/a.txt"));
  const FoundEntry found = Ask(root, "site/a.txt");
  EXPECT_EQ(FindBeside(found.file, "b.txt").state, NeighbourFile::State::kFound);
  EXPECT_EQ(FindBeside(found.file, "c.txt").state, NeighbourFile::State::kMissing);
  tree_.Write("site/new", "newer");
  fs::rename(PathOf("site/new"), PathOf("site/a.txt"));
  EXPECT_EQ(FindBeside(found.file, "c.txt").state, NeighbourFile::State::kMissing)
      << "a new version beside the folder's files";
  fs::rename(PathOf("site"), PathOf("moved"));
  EXPECT_EQ(FindBeside(found.file, "c.txt").state, NeighbourFile::State::kUnknown);
  EXPECT_EQ(found.file.CanonicalPath(), "");
  tree_.Write("site/a.txt", "site");
  EXPECT_EQ(FindBeside(found.file, "c.txt").state, NeighbourFile::State::kUnknown)
      << "another folder, and file, of that name";
  EXPECT_EQ(found.file.CanonicalPath(), "");
}

TEST_F(FileCacheTest, RemembersUpToItsLengthAndNoFolder) {
  tree_.Write("site/largest", std::string(FileCache::kMaxFileBytes, 'x'));
  tree_.Write("site/larger", std::string(FileCache::kMaxFileBytes + 1, 'x'));
  tree_.Write("site/empty", "");
  world_.LetFilesSettle();
  const RootFolder root = Root();
  EXPECT_TRUE(Remembers(root, "largest"));
  EXPECT_TRUE(Remembers(root, "empty"));
  EXPECT_FALSE(Remembers(root, "larger"));
  EXPECT_FALSE(Remembers(root, ""));
  EXPECT_FALSE(Remembers(root, "deep"));
  EXPECT_EQ(BytesOf(Ask(root, "empty")), "");
  EXPECT_EQ(BytesOf(Ask(root, "larger")), std::string(FileCache::kMaxFileBytes + 1, 'x'));
}

TEST_F(FileCacheTest, WhatChangedJustNowIsNotRemembered) {
  const RootFolder root = Root();
  tree_.Write("site/new", "fresh");
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(Remembers(root, "new"));
  EXPECT_EQ(BytesOf(Ask(root, "new")), "fresh");
  world_.Advance(kSettledNanoseconds / 1'000'000);
  EXPECT_TRUE(IsRemembered(Ask(root, "new"))) << "two seconds later";
}

TEST_F(FileCacheTest, WhatADiskWouldHaveToBeWaitedForIsNotRemembered) {
  const std::string path = PathOf("site/a.txt");
  bool wasRefused = false;  // a disk may be as fast as memory, now and then
  for (int i = 0; i < 100 && !wasRefused; ++i) {
    const RootFolder fresh = Root();
    Ask(fresh, "a.txt");
    if (!Kit::MakeCold(path)) GTEST_SKIP() << Kit::kNoColdFiles;
    const FoundEntry found = Ask(fresh, "a.txt");
    wasRefused = !IsRemembered(found);
    EXPECT_EQ(BytesOf(found), "site");
    EXPECT_TRUE(IsRemembered(Ask(fresh, "a.txt"))) << "now it is in memory";
  }
  if (!wasRefused) GTEST_SKIP() << Kit::kFastDisk;
}

TEST_F(FileCacheTest, FilesInMemoryAreNotRemembered) {
  struct statfs facts;
  constexpr auto kMemoryFiles = 0x01021994;
  if (statfs("/dev/shm", &facts) != 0 || facts.f_type != kMemoryFiles) GTEST_SKIP() << "no tmpfs here";
  const Kit::TemporaryTree memory("/dev/shm");
  memory.Write("a", "bytes");
  world_.LetFilesSettle();
  const RootFolder root(memory.Text(), world_);
  EXPECT_FALSE(Remembers(root, "a"));
  const auto calls = Kit::SystemCallsOf([&] { Ask(root, "a"); });
  if (!calls) GTEST_SKIP() << "no process may be traced";
  EXPECT_EQ(std::count(calls->begin(), calls->end(), SYS_fstatfs), 0) << "asked once a minute";
}

TEST_F(FileCacheTest, WhatIsOnlyLookedForIsNotRemembered) {
  const RootFolder root = Root();
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(IsRemembered(root.Find("a.txt")));
  EXPECT_FALSE(IsRemembered(Ask(root, "a.txt"))) << "those were no requests";
  EXPECT_TRUE(IsRemembered(Ask(root, "a.txt")));
  EXPECT_TRUE(IsRemembered(root.Find("a.txt")));
}

TEST_F(FileCacheTest, WhatAnotherFolderHasFoundIsNotRemembered) {
  const RootFolder root = Root();
  for (const RootFolder& other : {Root("next"), RootFolder(PathOf("site"))}) {
    FoundEntry found = other.Find("a.txt");
    for (int i = 0; i < 3; ++i) root.Remember(found);
    EXPECT_FALSE(IsRemembered(found)) << other.Path();
  }
  EXPECT_EQ(BytesOf(root.Find("a.txt")), "site");
}

TEST_F(FileCacheTest, WhatIsWrittenThroughAMappingIsSeenWithinAMinute) {
  const int file = open(PathOf("site/a.txt").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(file, 0);
  auto* const bytes = static_cast<char*>(mmap(nullptr, 4, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
  ASSERT_NE(bytes, MAP_FAILED);
  bytes[0] = 'S';  // from here on the page is one that may be written without a word
  world_.LetFilesSettle();
  const RootFolder root = Root();
  ASSERT_TRUE(Remembers(root, "a.txt"));
  bytes[1] = 'I';
  world_.Advance(Reading::kMaxAgeMilliseconds);
  EXPECT_EQ(BytesOf(Ask(root, "a.txt")), "SIte");
  munmap(bytes, 4);
  close(file);
}

TEST_F(FileCacheTest, TakesABoundedNumberOfBytes) {
  const OpenFile file(open(tree_.Write("site/largest", std::string(FileCache::kMaxFileBytes, 'x')).c_str(), O_RDONLY));
  world_.LetFilesSettle();
  FileCache files(PathOf("site"), world_);
  const auto nameOf = [](int i) { return std::string(static_cast<std::size_t>(i), '/') + "largest"; };
  const auto admit = [&](int i) { return files.Admit(nameOf(i), file.Descriptor(), file.Stamp()); };
  constexpr int kMoreThanFit = FileCache::kMaxBytes / FileCache::kMaxFileBytes + 10;
  for (int i = 0; i < kMoreThanFit; ++i) {
    ASSERT_EQ(admit(i), nullptr) << i;
    ASSERT_NE(admit(i), nullptr) << i;
  }
  EXPECT_LE(files.Bytes(), FileCache::kMaxBytes);
  EXPECT_GT(files.Bytes(), FileCache::kMaxBytes / 2);
  EXPECT_EQ(files.Find(nameOf(0)), nullptr);
  EXPECT_NE(files.Find(nameOf(kMoreThanFit - 1)), nullptr);
}

TEST_F(FileCacheTest, ARootThatNamesNothingHasNothing) {
  for (const std::string& path : {std::string("a\0b", 3), std::string()}) {
    const RootFolder root(path, world_);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Ask(root, "etc/passwd").kind, EntryKind::kNone);
  }
}

}  // namespace
}  // namespace TesselServer
