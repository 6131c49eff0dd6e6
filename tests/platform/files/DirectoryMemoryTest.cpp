#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/DirectoryMemory.h"
#include "platform/files/DirectoryReader.h"
#include "platform/files/FileStamp.h"
#include "tests/kit/Child.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/SystemCallFilter.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kNanosecondsPerMinute = 60'000'000'000;
const std::vector<long> kReadingNames = {SYS_getdents64};
const std::vector<long> kAskingAttributes = {Kit::kGetAttribute, Kit::kGetAttributeAt};
constexpr int kNoFilter = 201;  // of a child: this kernel takes no filter of system calls

// A clock by which whatever is on disk is settled, and which stands still but for what a test adds.
std::int64_t passed = 0;
std::int64_t MuchLater() {
  static const std::int64_t began = FileClockNow();
  return began + kNanosecondsPerMinute + passed;
}

// One by which nothing is, for it lies in the future.
std::int64_t LongAgo() { return 0; }

class DirectoryMemoryTest : public testing::Test {
 protected:
  void SetUp() override {
    passed = 0;
    if (!KeepsChangeTimes(OpenPath(tree_.Text()).Descriptor()))
      GTEST_SKIP() << "a file system of which it is not known";
  }

  std::string At(std::string_view name) const { return tree_.Text() + "/" + std::string(name); }

  // Every entry with its facts.
  std::vector<std::string> Entries(const std::string& path, DirectoryMemory* memory) const {
    std::vector<std::string> entries;
    const OpenFile folder = OpenPath(path);
    for (const EntryKind kind : {EntryKind::kDirectory, EntryKind::kFile}) {
      DirectoryReader reader(folder, kind, memory);
      while (const auto entry = reader.Next()) {
        const FileFacts& facts = entry->facts;
        entries.push_back(std::string(entry->name) + "|" + std::to_string(static_cast<int>(facts.kind)) + "|" +
                          std::to_string(facts.attributes) + "|" + std::to_string(facts.size) + "|" +
                          std::to_string(facts.modified) + "|" + std::to_string(facts.identity.inode) + "|" +
                          (entry->isLink ? "link" : ""));
      }
    }
    return entries;
  }
  std::vector<std::string> Entries(DirectoryMemory* memory) const { return Entries(tree_.Text(), memory); }

  // Whether the entries are the same in a process to which these system calls are refused.
  bool AreKnownWithout(const std::vector<long>& calls, DirectoryMemory& memory) const {
    const auto expected = Entries(nullptr);
    const int status = Kit::InChild([&] {
      for (const long number : calls) {
        if (!Kit::RefuseSystemCall(number, EIO)) return kNoFilter;
      }
      return Entries(&memory) == expected ? 0 : 1;
    });
    EXPECT_NE(status, kNoFilter);
    return status == 0;
  }

  // Times are coarse: lets the file system's clock go on, so that what follows bears another one.
  void LetTheClockGoOn() const {
    const std::int64_t before = FileClockNow();
    while (FileClockNow() == before) usleep(500);
  }

  Kit::TemporaryTree tree_;
};

TEST_F(DirectoryMemoryTest, AFolderThatHasBeenReadIsNotReadAgain) {
  tree_.Write("a", "x");
  tree_.Write("folder/b", "x");
  fs::create_symlink("a", At("link"));
  DirectoryMemory memory(&MuchLater);
  EXPECT_FALSE(AreKnownWithout(kReadingNames, memory)) << "nothing has been read";
  EXPECT_EQ(Entries(&memory), Entries(nullptr));
  EXPECT_EQ(memory.Count(), 1U);
  EXPECT_TRUE(AreKnownWithout(kReadingNames, memory));
}

TEST_F(DirectoryMemoryTest, AttributesThatHaveBeenAskedForAreNotAskedForAgain) {
  tree_.Write("plain", "x");
  if (!Kit::SetDosAttributes(tree_.Write("hidden", "x"), "0x2")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  if (!KeepsChangeTimes(OpenPath(tree_.Text()).Descriptor())) GTEST_SKIP() << "not known of this one";
  DirectoryMemory memory(&MuchLater);
  EXPECT_FALSE(AreKnownWithout(kAskingAttributes, memory)) << "nobody has asked";
  Entries(&memory);
  EXPECT_TRUE(AreKnownWithout(kAskingAttributes, memory));
  LetTheClockGoOn();
  tree_.Write("a new file", "x");
  fs::remove(At("plain"));
  EXPECT_TRUE(AreKnownWithout(kAskingAttributes, memory)) << "names that come and go leave the others known";
}

TEST_F(DirectoryMemoryTest, WhatHasJustChangedIsReadEachTime) {
  Kit::SetDosAttributes(tree_.Write("hidden", "x"), "0x2");
  DirectoryMemory memory(&LongAgo);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Entries(&memory), Entries(nullptr));
  EXPECT_FALSE(AreKnownWithout(kReadingNames, memory));
  if (Kit::DosAttributes(At("hidden")) == "none") GTEST_SKIP() << Kit::kNoExtendedAttributes;
  EXPECT_FALSE(AreKnownWithout(kAskingAttributes, memory));
}

struct Change {
  void (*make)(const fs::path& folder);
  const char* what;
};
constexpr Change kChanges[] = {
    {[](const fs::path& f) { fs::copy_file(f / "a", f / "b"); }, "a new file"},
    {[](const fs::path& f) { fs::create_directory(f / "sub"); }, "a new folder"},
    {[](const fs::path& f) { fs::rename(f / "b", f / "B"); }, "another name"},
    {[](const fs::path& f) { fs::rename(f / "B", f / "a"); }, "another file of the same name"},
    {[](const fs::path& f) { fs::resize_file(f / "a", 3); }, "another size"},
    {[](const fs::path& f) { Kit::SetModified(f / "a", 1'000'000); }, "another time"},
    {[](const fs::path& f) { Kit::SetModified(f / "a", 1'000'000, 5); }, "the time once more"},
    {[](const fs::path& f) { Kit::SetDosAttributes(f / "a", "0x2"); }, "hidden"},
    {[](const fs::path& f) { Kit::SetDosAttributes(f / "a", "0x4"); }, "a system file"},
    {[](const fs::path& f) { removexattr((f / "a").c_str(), "user.DOSATTRIB"); }, "none of these"},
    {[](const fs::path& f) { chmod((f / "a").c_str(), 0444); }, "read-only"},
    {[](const fs::path& f) { fs::create_symlink("a", f / "link"); }, "a link"},
    {[](const fs::path& f) {
       fs::remove(f / "link");
       fs::create_symlink("sub", f / "link");
     },
     "a link to a folder"},
    {[](const fs::path& f) {
       fs::remove(f / "a");
       fs::create_directory(f / "a");
     },
     "a folder for a file"},
    {[](const fs::path& f) { fs::remove(f / "a"); }, "less"},
    {[](const fs::path& f) { fs::remove(f / "link"); }, "still less"},
};

TEST_F(DirectoryMemoryTest, EveryChangeIsSeenByTheNextPass) {
  tree_.Write("a", "12345");
  tree_.Write("other", "12345");
  DirectoryMemory memory(&MuchLater);
  for (const Change& change : kChanges) {
    EXPECT_EQ(Entries(&memory), Entries(nullptr));
    LetTheClockGoOn();
    change.make(tree_.Path());
    EXPECT_EQ(Entries(&memory), Entries(nullptr)) << change.what;
  }
}

TEST_F(DirectoryMemoryTest, ChangesWithinOneTickAreSeenToo) {
  constexpr int kRounds = 5;
  DirectoryMemory memory;
  for (int round = 0; round < kRounds; ++round) {
    tree_.Write("a", "12345");
    for (const Change& change : kChanges) {
      Entries(&memory);
      change.make(tree_.Path());
      EXPECT_EQ(Entries(&memory), Entries(nullptr)) << change.what;
    }
    fs::remove(At("sub"));
  }
}

TEST_F(DirectoryMemoryTest, AnotherFolderInItsPlaceIsAnother) {
  tree_.Write("folder/a", "x");
  tree_.Write("other/b", "x");
  DirectoryMemory memory(&MuchLater);
  Entries(At("folder"), &memory);
  Entries(At("other"), &memory);
  LetTheClockGoOn();
  fs::rename(At("folder"), At("moved"));
  fs::rename(At("other"), At("folder"));
  EXPECT_EQ(Entries(At("folder"), &memory), Entries(At("folder"), nullptr));
  EXPECT_EQ(Entries(At("moved"), &memory), Entries(At("moved"), nullptr));
  fs::remove_all(At("folder"));
  tree_.Write("folder/c", "x");
  EXPECT_EQ(Entries(At("folder"), &memory), Entries(At("folder"), nullptr));
}

TEST_F(DirectoryMemoryTest, AFolderThatIsRemovedHasNoEntries) {
  tree_.Write("folder/a", "x");
  DirectoryMemory memory(&MuchLater);
  const OpenFile folder = OpenPath(At("folder"));
  DirectoryReader before(folder, EntryKind::kFile, &memory);
  ASSERT_TRUE(before.Next());
  fs::remove_all(At("folder"));
  EXPECT_FALSE(before.Next());
  DirectoryReader reader(folder, EntryKind::kFile, &memory);
  EXPECT_FALSE(reader.Next());
}

TEST_F(DirectoryMemoryTest, NothingIsRememberedOfFileSystemsThatAreNotKnown) {
  DirectoryMemory memory(&MuchLater);
  const OpenFile made = OpenPath("/proc/self");
  DirectoryReader reader(made, EntryKind::kFile, &memory);
  EXPECT_TRUE(reader.Next());
  EXPECT_EQ(memory.Count(), 0U);
  EXPECT_EQ(memory.Bytes(), 0U);
}

TEST_F(DirectoryMemoryTest, ItsSizeIsBoundedAndWhatIsUsedStays) {
  constexpr std::size_t kLimit = 64 * 1024;
  constexpr int kFolders = 100;
  const auto folder = [this](int i) { return At("folder" + std::to_string(i)); };
  for (int i = 0; i < kFolders; ++i) {
    for (const char letter : std::string_view("abcdefghij")) {
      tree_.Write("folder" + std::to_string(i) + "/" + std::string(200, letter), "");
    }
  }
  DirectoryMemory memory(&MuchLater, kLimit);
  for (int i = 0; i < kFolders; ++i) {
    Entries(folder(i), &memory);
    Entries(folder(0), &memory);
    EXPECT_LE(memory.Bytes(), kLimit);
    EXPECT_GT(memory.Bytes(), memory.Count() * 2000) << "names are counted";
  }
  EXPECT_GT(memory.Count(), 5U);
  EXPECT_LT(memory.Count(), 40U);
  const auto isKnown = [&](int i) {
    return Kit::InChild([&] {
      if (!Kit::RefuseSystemCall(SYS_getdents64, EIO)) return kNoFilter;
      return Entries(folder(i), &memory).empty() ? 1 : 0;
    });
  };
  EXPECT_EQ(isKnown(0), 0) << "used again and again";
  EXPECT_EQ(isKnown(kFolders - 1), 0) << "the newest";
  EXPECT_EQ(isKnown(1), 1) << "not used for longest";
}

TEST_F(DirectoryMemoryTest, AFolderThatIsTooLongIsReadAllTheSame) {
  constexpr std::size_t kLimit = 4096;
  constexpr int kFiles = 200;
  tree_.Write("small/a", "x");
  for (int i = 0; i < kFiles; ++i) tree_.Write("large/" + std::to_string(i), "");
  DirectoryMemory memory(&MuchLater, kLimit);
  Entries(At("small"), &memory);
  EXPECT_EQ(Entries(At("large"), &memory), Entries(At("large"), nullptr));
  EXPECT_EQ(memory.Count(), 1U) << "nothing had to go for it";
}

TEST_F(DirectoryMemoryTest, APassGoesOnWhenItsFolderIsForgotten) {
  constexpr std::size_t kLimit = 2500;
  for (int i = 0; i < 30; ++i) tree_.Write("first/" + std::to_string(i), "");
  for (int i = 0; i < 30; ++i) tree_.Write("second/" + std::to_string(i), "");
  DirectoryMemory memory(&MuchLater, kLimit);
  const OpenFile folder = OpenPath(At("first"));
  DirectoryReader reader(folder, EntryKind::kFile, &memory);
  ASSERT_TRUE(reader.Next());
  EXPECT_GE(reader.ExpectedEntries(), 30U);
  Entries(At("second"), &memory);
  EXPECT_EQ(memory.Count(), 1U);
  int more = 0;
  while (reader.Next()) ++more;
  EXPECT_EQ(more, 29);
}

TEST_F(DirectoryMemoryTest, NamesAreReadAnewWhenASecondHasPassed) {
  tree_.Write("a.txt", "1");
  DirectoryMemory memory(&MuchLater);
  const OpenFile folder = OpenPath(tree_.Text());
  const auto first = memory.NamesOf(folder.Descriptor());
  ASSERT_NE(first, nullptr);
  passed = kFreshNanoseconds - 1;
  EXPECT_EQ(memory.NamesOf(folder.Descriptor()), first);
  passed = kFreshNanoseconds;
  const auto second = memory.NamesOf(folder.Descriptor());
  EXPECT_NE(second, first);
  EXPECT_EQ(memory.Count(), 1u);
  passed -= 1;
  EXPECT_NE(memory.NamesOf(folder.Descriptor()), second) << "a clock that was set back";
}

}  // namespace
}  // namespace TesselServer
