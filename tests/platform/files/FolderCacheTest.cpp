#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/DirectoryReader.h"
#include "platform/files/FileSystem.h"
#include "platform/files/FolderCache.h"
#include "platform/files/PathWalk.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/Child.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/SystemCallFilter.h"
#include "tests/kit/SystemCalls.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

const std::vector<long> kReadingNames = {SYS_getdents64};
const std::vector<long> kAskingAttributes = {Kit::kGetAttribute, Kit::kGetAttributeAt};
constexpr int kNoCallFilter = 201;  // of a child: this kernel takes no filter of system calls

class FolderCacheTest : public testing::Test {
 protected:
  void SetUp() override {
    const UniqueDescriptor folder(open(tree_.Text().c_str(), O_PATH | O_CLOEXEC));
    if (!KeepsChangeTimes(folder.Get(), ReadFrom::kNames)) GTEST_SKIP() << "nothing is remembered of this folder";
    for (const char* folderOfTest : {"site", "site/sub", "site/deep/One/two", "outside"}) {
      tree_.Write(std::string(folderOfTest) + "/Page.htm", folderOfTest);
    }
    world_.LetFilesSettle();
  }

  RootFolder Root() const { return RootFolder(At("site"), world_); }
  FolderCache Cache(std::size_t maxBytes = FolderCache::kMaxBytes) const {
    return FolderCache(tree_.Text(), world_, maxBytes);
  }
  std::string At(std::string_view name) const { return tree_.Text() + "/" + std::string(name); }

  static std::string NameOf(const RootFolder& root, std::string_view asked) {
    const FoundEntry found = root.Find(asked);
    return found.kind == EntryKind::kNone ? "nothing" : found.name;
  }
  // Until it comes from memory.
  static void ExpectMissing(const RootFolder& root, std::string_view asked) {
    for (int i = 0; i < 4; ++i) EXPECT_EQ(NameOf(root, asked), "nothing") << asked;
  }

  // Every entry of the folder below the tree, with its facts, but for "..", whose times others change; `cache` nullptr:
  // as without one.
  std::vector<std::string> Entries(const std::string& name, FolderCache* cache) const {
    std::vector<std::string> entries;
    const OpenFile folder = OpenPath(At(name));
    const auto names = cache != nullptr ? cache->NamesOf(name, folder.Descriptor()) : nullptr;
    for (const EntryKind kind : {EntryKind::kDirectory, EntryKind::kFile}) {
      DirectoryReader reader(folder, kind, names);
      while (const auto entry = reader.Next()) {
        if (entry->name == "..") continue;
        const FileFacts& facts = entry->facts;
        entries.push_back(std::string(entry->name) + "|" + std::to_string(static_cast<int>(facts.kind)) + "|" +
                          std::to_string(facts.attributes) + "|" + std::to_string(facts.size) + "|" +
                          std::to_string(facts.modified) + "|" + std::to_string(facts.identity.inode) + "|" +
                          (entry->isLink ? "link" : ""));
      }
    }
    return entries;
  }
  std::vector<std::string> Entries(FolderCache* cache) const { return Entries("", cache); }

  // Lists often enough for the folder to be remembered.
  void Remember(const std::string& name, FolderCache& cache) const {
    Entries(name, &cache);
    Entries(name, &cache);
  }

  // Whether the entries are the same in a process to which these system calls are refused.
  bool AreKnownWithout(const std::vector<long>& calls, FolderCache& cache) const {
    const auto expected = Entries(nullptr);
    const int status = Kit::InChild([&] {
      for (const long number : calls) {
        if (!Kit::RefuseSystemCall(number, EIO)) return kNoCallFilter;
      }
      return Entries(&cache) == expected ? 0 : 1;
    });
    EXPECT_NE(status, kNoCallFilter);
    return status == 0;
  }

  Kit::TemporaryTree tree_;
  Kit::FakeWorld world_;
};

// ---- Look-ups.

TEST_F(FolderCacheTest, ALookUpRemembersTheNamesItReadsAtTheSecondRequest) {
  const std::string path = At("site");
  const UniqueDescriptor root(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  FolderCache folders(path, world_);
  const auto spell = [&](std::string_view name) { return TrueSpelling(&OpenBeneath, root.Get(), name, &folders); };
  EXPECT_EQ(spell("PAGE.HTM"), "Page.htm");
  EXPECT_EQ(folders.Find(""), nullptr);
  EXPECT_EQ(folders.Count(), 0u);
  world_.Advance(LruCache<int>::kAskedAgainMilliseconds);
  EXPECT_EQ(spell("PAGE.HTM"), "Page.htm");
  EXPECT_EQ(folders.Find(""), nullptr) << "a minute later it is the first one again";
  EXPECT_EQ(spell("PAGE.HTM"), "Page.htm");
  const auto names = folders.Find("");
  ASSERT_NE(names, nullptr);
  EXPECT_EQ(names->FirstEqual("page.htm"), "Page.htm");
  EXPECT_EQ(spell("page.HTM"), "Page.htm");
  EXPECT_EQ(spell("missing"), std::nullopt);
}

// The number that the head of FolderCache.h gives.
TEST_F(FolderCacheTest, ANameThatIsMissingCostsOneQuestionWhereItsFolderIsRemembered) {
  const RootFolder root = Root();
  for (const char* name : {"missing.htm", "deep/One/two/missing.htm"}) {
    ExpectMissing(root, name);
    const auto calls = Kit::SystemCallsOf([&] { root.Find(name); });
    if (!calls) GTEST_SKIP() << "no process may be traced";
    EXPECT_EQ(*calls, std::vector<long>{SYS_newfstatat}) << name;
  }
}

TEST_F(FolderCacheTest, OnlyTheDeepestFoldersOfAPathAreLookedFor) {
  FolderCache folders(At("site"), world_);
  const OpenFile root = OpenPath(At("site"));
  for (int i = 0; i < 2; ++i) folders.NamesOf("", root.Descriptor());
  ASSERT_NE(folders.Find(""), nullptr);
  folders.Find("")->FirstEqual("sorts them");
  std::string path = "missing";
  for (int depth = 1; depth < FolderCache::kMaxFoldersLookedFor; ++depth) path += "/a";
  EXPECT_TRUE(folders.Lacks(path)) << "the root is the last one that is looked for";
  EXPECT_FALSE(folders.Lacks(path + "/a")) << "and here one too far";
}

TEST_F(FolderCacheTest, AFileThatIsThereCostsNoMoreWhereItsFolderIsRemembered) {
  const RootFolder root = Root();
  ExpectMissing(root, "missing.htm");
  const auto calls = Kit::SystemCallsOf([&] { root.Find("Page.htm"); });
  if (!calls) GTEST_SKIP() << "no process may be traced";
  EXPECT_EQ(*calls, (std::vector<long>{SYS_openat2, SYS_newfstatat, SYS_fgetxattr, SYS_close}));
}

TEST_F(FolderCacheTest, AListingAndALookUpShareOneReading) {
  const RootFolder root = Root();
  const FoundEntry folder = root.Find("");
  EXPECT_EQ(RunNow(root.NamesInTurns(folder, nullptr)), nullptr);
  const auto names = RunNow(root.NamesInTurns(folder, nullptr));
  ASSERT_NE(names, nullptr);
  EXPECT_EQ(NameOf(root, "PAGE.htm"), "Page.htm");
  EXPECT_TRUE(names->IsSorted()) << "the look-up took them from there";
  EXPECT_EQ(RunNow(root.NamesInTurns(folder, nullptr)), names);
}

TEST_F(FolderCacheTest, ANewNameIsSeenAtOnceAndEachTime) {
  const RootFolder root = Root();
  ExpectMissing(root, "new.htm");
  for (int i = 0; i < 200; ++i) {
    const std::string name = "New" + std::to_string(i) + ".htm";
    ASSERT_EQ(NameOf(root, "NEW" + std::to_string(i) + ".htm"), "nothing");
    tree_.Write("site/" + name, "new");
    ASSERT_EQ(NameOf(root, "NEW" + std::to_string(i) + ".htm"), name);
  }
  ExpectMissing(root, "new.htm");
}

TEST_F(FolderCacheTest, AnotherSpellingIsSeenAtOnce) {
  const RootFolder root = Root();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(NameOf(root, "PAGE.htm"), "Page.htm");
  fs::rename(At("site/Page.htm"), At("site/pagE.htm"));
  EXPECT_EQ(NameOf(root, "PAGE.htm"), "pagE.htm");
  fs::rename(At("site/pagE.htm"), At("site/PAGE.htm"));
  EXPECT_EQ(NameOf(root, "PAGE.htm"), "PAGE.htm");
  ExpectMissing(root, "other.htm");
  fs::rename(At("site/PAGE.htm"), At("site/Other.htm"));
  EXPECT_EQ(NameOf(root, "other.htm"), "Other.htm");
  EXPECT_EQ(NameOf(root, "PAGE.htm"), "nothing");
}

TEST_F(FolderCacheTest, ARemovedFolderHasNothingAndANewOneWhatItHas) {
  const RootFolder root = Root();
  ExpectMissing(root, "x.htm");
  fs::rename(At("site"), At("away"));
  EXPECT_EQ(NameOf(root, "x.htm"), "nothing");
  tree_.Write("site/X.htm", "x");
  EXPECT_EQ(NameOf(root, "x.htm"), "X.htm");
}

TEST_F(FolderCacheTest, AFolderInTheFoldersPlaceIsSeenAtOnce) {
  const RootFolder root = Root();
  ExpectMissing(root, "sub/x.htm");
  fs::rename(At("site/sub"), At("site/old"));
  ExpectMissing(root, "sub/x.htm");
  tree_.Write("site/other/X.htm", "x");
  fs::rename(At("site/other"), At("site/sub"));
  EXPECT_EQ(NameOf(root, "sub/x.htm"), "sub/X.htm");
}

TEST_F(FolderCacheTest, NamesAreKnownAtEveryDepth) {
  const RootFolder root(At("site/deep"), world_);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(NameOf(root, "ONE/TWO/page.htm"), "One/two/Page.htm");
    EXPECT_EQ(NameOf(root, "One/two/page.htm"), "One/two/Page.htm");
    EXPECT_EQ(NameOf(root, "One/two/none.htm"), "nothing");
    EXPECT_EQ(NameOf(root, "One/none/page.htm"), "nothing");
    EXPECT_EQ(NameOf(root, "none/two/page.htm"), "nothing");
    EXPECT_EQ(NameOf(root, "none/"), "nothing");
    EXPECT_EQ(NameOf(root, "one/"), "One");
    EXPECT_EQ(NameOf(root, ""), "");
  }
}

TEST_F(FolderCacheTest, ALinkThatLeadsOutsideStaysWithoutNames) {
  fs::create_symlink(At("outside"), At("site/out"));
  ExpectMissing(Root(), "out/page.htm");
}

TEST_F(FolderCacheTest, WhatChangedWhileItWasReadIsReadAgain) {
  const UniqueDescriptor folder(open(At("site").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  FolderCache folders = Cache();
  folders.NamesOf("site", folder.Get());
  const auto first = folders.NamesOf("site", folder.Get());
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(folders.Find("site"), first);
  tree_.Write("site/new", "x");
  EXPECT_EQ(folders.Find("site"), nullptr);
  EXPECT_NE(folders.NamesOf("site", folder.Get()), first) << "what changed just now is read";
  EXPECT_EQ(folders.Find("site"), nullptr) << "and not trusted";
}

// Copying and sorting all names for a look-up pays only where the next one can use them.
TEST_F(FolderCacheTest, ALookUpOfAFolderThatHasJustChangedReadsItWithoutARecord) {
  const RootFolder root = Root();
  tree_.Write("site/New.htm", "x");
  ExpectMissing(root, "missing.htm");
  EXPECT_EQ(NameOf(root, "new.htm"), "New.htm");
  const auto calls = Kit::SystemCallsOf([&] { root.Find("missing.htm"); });
  if (!calls) GTEST_SKIP() << "no process may be traced";
  for (const long ofARecord : {SYS_fstatfs, SYS_ioctl}) {
    EXPECT_EQ(std::count(calls->begin(), calls->end(), ofARecord), 0) << ofARecord;
  }
  EXPECT_NE(std::count(calls->begin(), calls->end(), SYS_getdents64), 0) << "it is read all the same";
}

TEST_F(FolderCacheTest, NamesAreReadAnewAfterAMinute) {
  const UniqueDescriptor folder(open(At("site").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  FolderCache folders = Cache();
  folders.NamesOf("site", folder.Get());
  const auto first = folders.NamesOf("site", folder.Get());
  world_.Advance(Reading::kMaxAgeMilliseconds - 1);
  EXPECT_EQ(folders.Find("site"), first);
  world_.Advance(1);
  EXPECT_EQ(folders.Find("site"), nullptr);
  const auto second = folders.NamesOf("site", folder.Get());
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, first);
  EXPECT_EQ(folders.Count(), 1u);
  world_.Advance(LruCache<int>::kAskedAgainMilliseconds);
  EXPECT_EQ(folders.NamesOf("site", folder.Get()), nullptr) << "not asked for in a minute";
}

// ---- Listings.

TEST_F(FolderCacheTest, AFolderThatHasBeenReadIsNotReadAgain) {
  tree_.Write("a", "x");
  tree_.Write("folder/b", "x");
  fs::create_symlink("a", At("link"));
  world_.LetFilesSettle();
  FolderCache cache = Cache();
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(AreKnownWithout(kReadingNames, cache)) << "nothing has been read";
    EXPECT_EQ(cache.Count(), 0U);
    EXPECT_EQ(Entries(&cache), Entries(nullptr));
  }
  EXPECT_EQ(cache.Count(), 1U);
  EXPECT_TRUE(AreKnownWithout(kReadingNames, cache));
}

TEST_F(FolderCacheTest, AttributesThatHaveBeenAskedForAreNotAskedForAgain) {
  tree_.Write("plain", "x");
  if (!Kit::SetDosAttributes(tree_.Write("hidden", "x"), "0x2")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  world_.LetFilesSettle();
  FolderCache cache = Cache();
  EXPECT_FALSE(AreKnownWithout(kAskingAttributes, cache)) << "nobody has asked";
  Remember("", cache);
  EXPECT_TRUE(AreKnownWithout(kAskingAttributes, cache));
  tree_.Write("a new file", "x");
  fs::remove(At("plain"));
  Entries(&cache);
  world_.LetFilesSettle();
  Entries(&cache);
  EXPECT_TRUE(AreKnownWithout(kAskingAttributes, cache)) << "names that come and go leave the others known";
}

TEST_F(FolderCacheTest, WhatHasJustChangedIsReadEachTime) {
  Kit::SetDosAttributes(tree_.Write("hidden", "x"), "0x2");
  FolderCache cache = Cache();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Entries(&cache), Entries(nullptr));
  EXPECT_FALSE(AreKnownWithout(kReadingNames, cache));
  if (Kit::DosAttributes(At("hidden")) == "none") GTEST_SKIP() << Kit::kNoExtendedAttributes;
  EXPECT_FALSE(AreKnownWithout(kAskingAttributes, cache));
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

TEST_F(FolderCacheTest, EveryChangeIsSeenByTheNextPass) {
  tree_.Write("a", "12345");
  tree_.Write("other", "12345");
  FolderCache cache = Cache();
  for (const Change& change : kChanges) {
    world_.LetFilesSettle();
    Remember("", cache);
    EXPECT_EQ(Entries(&cache), Entries(nullptr));
    change.make(tree_.Path());
    EXPECT_EQ(Entries(&cache), Entries(nullptr)) << change.what;
  }
}

TEST_F(FolderCacheTest, ChangesWithinOneTickAreSeenToo) {
  constexpr int kRounds = 5;
  FolderCache cache = Cache();
  for (int round = 0; round < kRounds; ++round) {
    tree_.Write("a", "12345");
    for (const Change& change : kChanges) {
      Remember("", cache);
      change.make(tree_.Path());
      EXPECT_EQ(Entries(&cache), Entries(nullptr)) << change.what;
    }
    fs::remove(At("sub"));
  }
}

TEST_F(FolderCacheTest, AnotherFolderInItsPlaceIsAnother) {
  tree_.Write("folder/a", "x");
  tree_.Write("other/b", "x");
  world_.LetFilesSettle();
  FolderCache cache = Cache();
  for (const char* name : {"folder", "other", "moved"}) Remember(name, cache);
  fs::rename(At("folder"), At("moved"));
  fs::rename(At("other"), At("folder"));
  for (const char* name : {"folder", "moved"}) EXPECT_EQ(Entries(name, &cache), Entries(name, nullptr));
  fs::remove_all(At("folder"));
  tree_.Write("folder/c", "x");
  EXPECT_EQ(Entries("folder", &cache), Entries("folder", nullptr));
}

TEST_F(FolderCacheTest, AFolderThatIsRemovedHasNoEntries) {
  tree_.Write("folder/a", "x");
  world_.LetFilesSettle();
  FolderCache cache = Cache();
  const OpenFile folder = OpenPath(At("folder"));
  cache.NamesOf("folder", folder.Descriptor());
  const auto names = cache.NamesOf("folder", folder.Descriptor());
  ASSERT_NE(names, nullptr);
  DirectoryReader before(folder, EntryKind::kFile, names);
  ASSERT_TRUE(before.Next());
  fs::remove_all(At("folder"));
  EXPECT_FALSE(before.Next());
  DirectoryReader reader(folder, EntryKind::kFile, cache.NamesOf("folder", folder.Descriptor()));
  EXPECT_FALSE(reader.Next());
}

TEST_F(FolderCacheTest, NothingIsRememberedOfFileSystemsThatAreNotKnown) {
  FolderCache cache("/", world_);
  const OpenFile made = OpenPath("/proc/self");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(cache.NamesOf("proc/self", made.Descriptor()), nullptr);
  EXPECT_EQ(cache.Count(), 0U);
  EXPECT_EQ(cache.Bytes(), 0U);
}

TEST_F(FolderCacheTest, ItsSizeIsBoundedAndWhatIsUsedStays) {
  constexpr std::size_t kLimit = 64 * 1024;
  constexpr int kFolders = 100;
  const auto folder = [](int i) { return "folder" + std::to_string(i); };
  for (int i = 0; i < kFolders; ++i) {
    for (const char letter : std::string_view("abcdefghij")) {
      tree_.Write("folder" + std::to_string(i) + "/" + std::string(200, letter), "");
    }
  }
  world_.LetFilesSettle();
  FolderCache cache = Cache(kLimit);
  for (int i = 0; i < kFolders; ++i) {
    Remember(folder(i), cache);
    Entries(folder(0), &cache);
    EXPECT_LE(cache.Bytes(), kLimit);
    EXPECT_GT(cache.Bytes(), cache.Count() * 2000) << "names are counted";
  }
  EXPECT_GT(cache.Count(), 5U);
  EXPECT_LT(cache.Count(), 40U);
  const auto isKnown = [&](int i) {
    return Kit::InChild([&] {
      if (!Kit::RefuseSystemCall(SYS_getdents64, EIO)) return kNoCallFilter;
      return Entries(folder(i), &cache).empty() ? 1 : 0;
    });
  };
  EXPECT_EQ(isKnown(0), 0) << "used again and again";
  EXPECT_EQ(isKnown(kFolders - 1), 0) << "the newest";
  EXPECT_EQ(isKnown(1), 1) << "not used for longest";
}

TEST_F(FolderCacheTest, AFolderThatIsTooLongIsReadAllTheSame) {
  constexpr std::size_t kLimit = 4096;
  constexpr int kFiles = 200;
  tree_.Write("small/a", "x");
  for (int i = 0; i < kFiles; ++i) tree_.Write("large/" + std::to_string(i), "");
  FolderCache cache = Cache(kLimit);
  Remember("small", cache);
  Remember("large", cache);
  EXPECT_EQ(Entries("large", &cache), Entries("large", nullptr));
  EXPECT_EQ(cache.Count(), 1U) << "nothing had to go for it";
}

TEST_F(FolderCacheTest, AFolderThatIsTooLongIsNotTriedAgainForAMinute) {
  constexpr std::size_t kLimit = 4096;
  constexpr int kFiles = 200;
  for (int i = 0; i < kFiles; ++i) tree_.Write("large/" + std::to_string(i), "");
  world_.LetFilesSettle();
  FolderCache cache = Cache(kLimit);
  const OpenFile folder = OpenPath(At("large"));
  const auto readings = [&] {
    const auto calls = Kit::SystemCallsOf([&] { cache.NamesOf("large", folder.Descriptor()); });
    return calls ? std::count(calls->begin(), calls->end(), SYS_getdents64) : -1;
  };
  cache.NamesOf("large", folder.Descriptor());
  const auto first = readings();
  if (first < 0) GTEST_SKIP() << "no process may be traced";
  EXPECT_GT(first, 0) << "the second request tries";
  cache.NamesOf("large", folder.Descriptor());
  EXPECT_EQ(readings(), 0);
  world_.Advance(Reading::kMaxAgeMilliseconds - 1);
  cache.NamesOf("large", folder.Descriptor());
  EXPECT_EQ(readings(), 0);
  for (int i = 0; i < kFiles; ++i) fs::remove(At("large/" + std::to_string(i)));
  world_.LetFilesSettle();
  world_.Advance(1);
  EXPECT_NE(cache.NamesOf("large", folder.Descriptor()), nullptr) << "a minute later it may have become shorter";
}

TEST_F(FolderCacheTest, APassGoesOnWhenItsFolderIsForgotten) {
  constexpr std::size_t kLimit = 2500;
  for (int i = 0; i < 30; ++i) tree_.Write("first/" + std::to_string(i), "");
  for (int i = 0; i < 30; ++i) tree_.Write("second/" + std::to_string(i), "");
  FolderCache cache = Cache(kLimit);
  const OpenFile folder = OpenPath(At("first"));
  cache.NamesOf("first", folder.Descriptor());
  DirectoryReader reader(folder, EntryKind::kFile, cache.NamesOf("first", folder.Descriptor()));
  ASSERT_TRUE(reader.Next());
  EXPECT_GE(reader.ExpectedEntries(), 30U);
  Remember("second", cache);
  EXPECT_EQ(cache.Count(), 1U);
  int more = 0;
  while (reader.Next()) ++more;
  EXPECT_EQ(more, 29);
}

}  // namespace
}  // namespace TesselServer
