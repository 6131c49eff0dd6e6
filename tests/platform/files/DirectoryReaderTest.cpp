#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "platform/files/DirectoryReader.h"
#include "platform/files/FolderCache.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class DirectoryReaderTest : public testing::Test {
 protected:
  std::vector<std::string> Names(const OpenFile& folder, EntryKind wanted) const {
    std::vector<std::string> names;
    DirectoryReader reader(folder, wanted);
    while (const auto entry = reader.Next()) names.emplace_back(entry->name);
    const Kit::FakeWorld world;
    const auto record =
        FolderRecord::Read(folder.Descriptor(), Reading(folder.Stamp(), world), nullptr, FolderCache::kMaxBytes);
    DirectoryReader again(folder, wanted, record);
    for (const std::string& name : names) {
      const auto entry = again.Next();
      EXPECT_TRUE(entry && entry->name == name) << name << " is there in a record as well";
    }
    EXPECT_FALSE(again.Next());
    return names;
  }
  std::vector<std::string> Names(EntryKind wanted) const { return Names(OpenPath(tree_.Text()), wanted); }
  std::string At(std::string_view name) const { return tree_.Text() + "/" + std::string(name); }

  Kit::TemporaryTree tree_;
};

TEST_F(DirectoryReaderTest, TellsEntriesOfOneKind) {
  tree_.Write("a.txt", "1");
  tree_.Write(".hidden by name", "1");
  tree_.MakeFolder("folder");
  EXPECT_THAT(Names(EntryKind::kFile), UnorderedElementsAre("a.txt", ".hidden by name"));
  EXPECT_THAT(Names(EntryKind::kDirectory), UnorderedElementsAre("folder", ".", ".."));
}

TEST_F(DirectoryReaderTest, TellsTheFacts) {
  tree_.Write("a.txt", "12345");
  Kit::SetModified(At("a.txt"), 1794766805);
  const OpenFile folder = OpenPath(tree_.Text());
  DirectoryReader reader(folder, EntryKind::kFile);
  const auto entry = reader.Next();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name, "a.txt");
  EXPECT_EQ(entry->facts.size, 5);
  EXPECT_EQ(entry->facts.modified, 1794766805);
  EXPECT_EQ(entry->facts.attributes, FileAttribute::kArchive);
  EXPECT_EQ(entry->facts.identity, OpenPath(At("a.txt")).Identity());
  EXPECT_FALSE(entry->isLink);
  EXPECT_FALSE(reader.Next());
  EXPECT_FALSE(reader.Next()) << "the end stays the end";
}

TEST_F(DirectoryReaderTest, NamesAreRawBytes) {
  const std::set<std::string> names = {std::string(255, 'n'), "a b",         "100%",        "#1?x=y&z",
                                       "\"quoted\" 'name'",   "<b>bold",     "caf\xC3\xA9", "\xFF\x80",
                                       "two\nlines",          "back\\slash", " ",           "\x01"};
  for (const std::string& name : names) tree_.Write(name, "x");
  const auto found = Names(EntryKind::kFile);
  EXPECT_EQ(std::set<std::string>(found.begin(), found.end()), names);
  EXPECT_EQ(found.size(), names.size());
}

TEST_F(DirectoryReaderTest, KeepsTheOrderOfTheSystem) {
  for (int i = 0; i < 50; ++i) tree_.Write("file" + std::to_string(i * 7919 % 50), "x");
  std::vector<std::string> expected;
  for (const auto& entry : fs::directory_iterator(tree_.Path())) expected.push_back(entry.path().filename());
  EXPECT_EQ(Names(EntryKind::kFile), expected);
}

TEST_F(DirectoryReaderTest, ALinkCountsAsItsTarget) {
  tree_.Write("outside/target", "12345");
  tree_.MakeFolder("listed");
  fs::create_symlink("../outside/target", At("listed/file"));
  fs::create_symlink("../outside", At("listed/folder"));
  fs::create_symlink("nowhere", At("listed/broken"));
  fs::create_symlink("loop", At("listed/loop"));
  fs::create_symlink("/dev/null", At("listed/device"));
  const OpenFile folder = OpenPath(At("listed"));
  DirectoryReader files(folder, EntryKind::kFile);
  const auto file = files.Next();
  ASSERT_TRUE(file);
  EXPECT_EQ(file->name, "file");
  EXPECT_EQ(file->facts.size, 5);
  EXPECT_TRUE(file->isLink);
  EXPECT_FALSE(files.Next());
  EXPECT_THAT(Names(folder, EntryKind::kDirectory), UnorderedElementsAre(".", "..", "folder"));
}

TEST_F(DirectoryReaderTest, PipesAreNoEntries) {
  ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
  EXPECT_THAT(Names(EntryKind::kFile), IsEmpty());
  EXPECT_THAT(Names(EntryKind::kDirectory), UnorderedElementsAre(".", ".."));
}

TEST_F(DirectoryReaderTest, TellsHiddenFilesWithoutOpeningThem) {
  tree_.Write("hidden", "x");
  tree_.Write("plain", "x");
  if (!Kit::SetDosAttributes(At("hidden"), "0x6")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  fs::create_symlink("hidden", At("link"));
  const OpenFile folder = OpenPath(tree_.Text());
  DirectoryReader reader(folder, EntryKind::kFile);
  std::set<std::string> seen;
  while (const auto entry = reader.Next()) {
    const std::uint32_t kept = entry->facts.attributes & ~FileAttribute::kArchive;
    EXPECT_EQ(kept, entry->name == "plain" ? 0U : 6U) << entry->name;
    seen.emplace(entry->name);
  }
  EXPECT_THAT(seen, UnorderedElementsAre("hidden", "plain", "link"));
}

TEST_F(DirectoryReaderTest, ALinkToAFileSystemWithoutExtendedAttributesSaysNothingOfTheOthers) {
  constexpr int kEach = 20;  // in whatever order they come, some file comes behind a link
  for (int i = 0; i < kEach; ++i) {
    tree_.Write("hidden" + std::to_string(i), "x");
    if (!Kit::SetDosAttributes(At("hidden" + std::to_string(i)), "0x2")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
    fs::create_symlink("/proc/self/status", At("link" + std::to_string(i)));
  }
  const OpenFile folder = OpenPath(tree_.Text());
  DirectoryReader reader(folder, EntryKind::kFile);
  int hidden = 0;
  while (const auto entry = reader.Next()) hidden += (entry->facts.attributes & FileAttribute::kHidden) != 0 ? 1 : 0;
  EXPECT_EQ(hidden, kEach);
}

TEST_F(DirectoryReaderTest, NorDoesASingleFileThatIsMountedFromThere) {
  constexpr int kEach = 20;
  constexpr int kCannotMount = 100;
  for (int i = 0; i < kEach; ++i) {
    tree_.Write("mounted" + std::to_string(i), "x");
    tree_.Write("hidden" + std::to_string(i), "x");
    if (!Kit::SetDosAttributes(At("hidden" + std::to_string(i)), "0x2")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  }
  const int result = Kit::InChild([&] {
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      return kCannotMount;
    for (int i = 0; i < kEach; ++i) {
      const std::string place = At("mounted" + std::to_string(i));
      if (mount("/proc/self/status", place.c_str(), nullptr, MS_BIND, nullptr) != 0) return kCannotMount;
    }
    const OpenFile folder = OpenPath(tree_.Text());
    DirectoryReader reader(folder, EntryKind::kFile);
    int hidden = 0;
    while (const auto entry = reader.Next()) hidden += (entry->facts.attributes & FileAttribute::kHidden) != 0 ? 1 : 0;
    return hidden;
  });
  if (result == kCannotMount) GTEST_SKIP() << "no right to mount a file over another";
  EXPECT_EQ(result, kEach);
}

TEST_F(DirectoryReaderTest, AFileSystemWithoutExtendedAttributesIsReadAllTheSame) {
  const OpenFile folder = OpenPath("/proc/self");
  DirectoryReader reader(folder, EntryKind::kFile);
  int files = 0;
  while (const auto entry = reader.Next()) {
    ++files;
    EXPECT_EQ(entry->facts.attributes & FileAttribute::kHidden, 0U);
  }
  EXPECT_GT(files, 10);
}

TEST_F(DirectoryReaderTest, AFolderThatIsRemovedHasNoMoreEntries) {
  for (int i = 0; i < 1500; ++i) tree_.Write("folder/" + std::to_string(i), "");
  const OpenFile folder = OpenPath(At("folder"));
  DirectoryReader reader(folder, EntryKind::kFile);
  ASSERT_TRUE(reader.Next());
  fs::remove_all(At("folder"));
  int more = 0;
  while (reader.Next()) ++more;
  EXPECT_EQ(more, 0) << "names that were read ahead are gone too";
  EXPECT_THAT(Names(folder, EntryKind::kFile), IsEmpty());
}

TEST_F(DirectoryReaderTest, AFolderThatIsMovedIsStillTheOneThatWasOpened) {
  tree_.Write("folder/a", "12345");
  const OpenFile folder = OpenPath(At("folder"));
  fs::rename(At("folder"), At("moved"));
  tree_.Write("folder/other", "x");
  EXPECT_THAT(Names(folder, EntryKind::kFile), ElementsAre("a"));
}

TEST_F(DirectoryReaderTest, OneOpenFolderCarriesSeveralPasses) {
  for (int i = 0; i < 2000; ++i) tree_.Write(std::to_string(i), "");
  const OpenFile folder = OpenPath(tree_.Text());
  DirectoryReader first(folder, EntryKind::kFile);
  ASSERT_TRUE(first.Next());
  EXPECT_EQ(Names(folder, EntryKind::kFile).size(), 2000U);
  int rest = 0;
  while (first.Next()) ++rest;
  EXPECT_EQ(rest, 1999);
}

TEST_F(DirectoryReaderTest, WhatIsNoFolderHasNoEntries) {
  const OpenFile file = OpenPath(tree_.Write("a", "x")), nothing;
  for (const OpenFile* each : {&file, &nothing}) {
    DirectoryReader reader(*each, EntryKind::kFile);
    EXPECT_FALSE(reader.IsOpen());
    EXPECT_FALSE(reader.Next());
  }
}

TEST_F(DirectoryReaderTest, AFolderThatMayNotBeSearchedHasNoEntries) {
  tree_.Write("folder/a", "x");
  fs::permissions(tree_.Path(), fs::perms(0755));
  fs::permissions(At("folder"), fs::perms(0444));
  const int status = Kit::InUnprivilegedChild([this] {
    const OpenFile folder = OpenPath(At("folder"));
    if (!folder.IsOpen()) return 1;
    return Names(folder, EntryKind::kFile).empty() ? 0 : 2;
  });
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "no other user to change to";
  EXPECT_EQ(status, 0);
}

TEST_F(DirectoryReaderTest, LeavesNoDescriptorOpen) {
  tree_.Write("a", "x");
  const OpenFile folder = OpenPath(tree_.Text());
  const std::size_t before = Kit::CountDescriptors();
  {
    DirectoryReader reader(folder, EntryKind::kFile);
    EXPECT_EQ(Kit::CountDescriptors(), before + 1);
    reader.Next();
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

}  // namespace
}  // namespace TesselServer
