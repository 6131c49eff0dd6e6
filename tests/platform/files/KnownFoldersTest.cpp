#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "platform/files/FileSystem.h"
#include "platform/files/KnownFolders.h"
#include "platform/files/KnownPath.h"
#include "platform/files/PathWalk.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/Settling.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

class KnownFoldersTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    tree_ = std::make_unique<Kit::TemporaryTree>();
    for (const char* test : {"walk", "made", "renamed", "gone", "swapped", "swapped/sub", "deep/One/two", "linked"}) {
      tree_->Write(std::string(test) + "/Page.htm", test);
    }
    tree_->MakeFolder("swapped/other");
    Kit::LetFilesSettle();
  }
  static void TearDownTestSuite() { tree_.reset(); }
  void SetUp() override {
    const UniqueDescriptor folder(open(tree_->Text().c_str(), O_PATH | O_CLOEXEC));
    if (!KeepsChangeTimes(folder.Get())) GTEST_SKIP() << "a temporary folder of which nothing is remembered";
  }

  static std::string PathOf(const std::string& name) { return tree_->Text() + "/" + name; }
  static std::string NameOf(const RootFolder& root, std::string_view asked) {
    const FoundEntry found = root.Find(asked);
    return found.kind == EntryKind::kNone ? "nothing" : found.name;
  }
  // Twice: the second time from memory.
  static void ExpectMissing(const RootFolder& root, std::string_view asked) {
    for (int i = 0; i < 2; ++i) EXPECT_EQ(NameOf(root, asked), "nothing") << asked;
  }

  static std::unique_ptr<Kit::TemporaryTree> tree_;
};

std::unique_ptr<Kit::TemporaryTree> KnownFoldersTest::tree_;

TEST_F(KnownFoldersTest, AWalkRemembersTheNamesItReads) {
  const std::string path = PathOf("walk");
  const UniqueDescriptor root(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  KnownFolders folders(path);
  EXPECT_EQ(folders.Find(""), nullptr);
  EXPECT_EQ(TrueSpelling(&OpenBeneath, root.Get(), "PAGE.HTM", &folders), "Page.htm");
  const FolderNames* names = folders.Find("");
  ASSERT_NE(names, nullptr);
  EXPECT_EQ(names->FirstEqual("page.htm"), "Page.htm");
  EXPECT_EQ(names->FirstEqual("."), "");
  EXPECT_EQ(names->FirstEqual(".."), "");
  EXPECT_EQ(TrueSpelling(&OpenBeneath, root.Get(), "page.HTM", &folders), "Page.htm");
  EXPECT_EQ(TrueSpelling(&OpenBeneath, root.Get(), "missing", &folders), std::nullopt);
}

TEST_F(KnownFoldersTest, ANewNameIsSeenAtOnceAndEachTime) {
  const RootFolder root(PathOf("made"));
  ExpectMissing(root, "new.htm");
  for (int i = 0; i < 200; ++i) {
    const std::string name = "New" + std::to_string(i) + ".htm";
    ASSERT_EQ(NameOf(root, "NEW" + std::to_string(i) + ".htm"), "nothing");
    tree_->Write("made/" + name, "new");
    ASSERT_EQ(NameOf(root, "NEW" + std::to_string(i) + ".htm"), name);
  }
  ExpectMissing(root, "new.htm");
}

TEST_F(KnownFoldersTest, AnotherSpellingIsSeenAtOnce) {
  const RootFolder root(PathOf("renamed"));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(NameOf(root, "PAGE.htm"), "Page.htm");
  fs::rename(PathOf("renamed/Page.htm"), PathOf("renamed/pagE.htm"));
  EXPECT_EQ(NameOf(root, "PAGE.htm"), "pagE.htm");
  fs::rename(PathOf("renamed/pagE.htm"), PathOf("renamed/PAGE.htm"));
  EXPECT_EQ(NameOf(root, "PAGE.htm"), "PAGE.htm");
  ExpectMissing(root, "other.htm");
  fs::rename(PathOf("renamed/PAGE.htm"), PathOf("renamed/Other.htm"));
  EXPECT_EQ(NameOf(root, "other.htm"), "Other.htm");
  EXPECT_EQ(NameOf(root, "PAGE.htm"), "nothing");
}

TEST_F(KnownFoldersTest, ARemovedFolderHasNothingAndANewOneWhatItHas) {
  const RootFolder root(PathOf("gone"));
  ExpectMissing(root, "x.htm");
  fs::rename(PathOf("gone"), PathOf("gone-away"));
  EXPECT_EQ(NameOf(root, "x.htm"), "nothing");
  tree_->Write("gone/X.htm", "x");
  EXPECT_EQ(NameOf(root, "x.htm"), "X.htm");
}

TEST_F(KnownFoldersTest, AFolderInTheFoldersPlaceIsSeenAtOnce) {
  const RootFolder root(PathOf("swapped"));
  ExpectMissing(root, "sub/x.htm");
  fs::rename(PathOf("swapped/sub"), PathOf("swapped/old"));
  ExpectMissing(root, "sub/x.htm");
  tree_->Write("swapped/other/X.htm", "x");
  fs::rename(PathOf("swapped/other"), PathOf("swapped/sub"));
  EXPECT_EQ(NameOf(root, "sub/x.htm"), "sub/X.htm");
}

TEST_F(KnownFoldersTest, NamesAreKnownAtEveryDepth) {
  const RootFolder root(PathOf("deep"));
  for (int i = 0; i < 2; ++i) {
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

TEST_F(KnownFoldersTest, ALinkThatLeadsOutsideStaysWithoutNames) {
  fs::create_symlink(PathOf("walk"), PathOf("linked/out"));
  const RootFolder root(PathOf("linked"));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(NameOf(root, "out/page.htm"), "nothing");
}

TEST_F(KnownFoldersTest, WhatChangedJustNowOrWhileItWasReadIsNotRemembered) {
  const std::string path = tree_->MakeFolder("fresh");
  const UniqueDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  KnownFolders folders(path);
  folders.Remember("", folder.Get(), StampOfDescriptor(folder.Get()).value(), FileClockNow(), {"a"});
  EXPECT_EQ(folders.Find(""), nullptr);

  const UniqueDescriptor settled(open(PathOf("walk").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  FileStamp before = StampOfDescriptor(settled.Get()).value();
  KnownFolders others(PathOf("walk"));
  before.modified -= 1;
  others.Remember("", settled.Get(), before, FileClockNow(), {"a"});
  EXPECT_EQ(others.Find(""), nullptr);
  before.modified += 1;
  others.Remember("", settled.Get(), before, FileClockNow(), {"a"});
  EXPECT_NE(others.Find(""), nullptr);
}

TEST_F(KnownFoldersTest, NamesAreReadAnewWhenASecondHasPassed) {
  const UniqueDescriptor folder(open(PathOf("walk").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const FileStamp stamp = StampOfDescriptor(folder.Get()).value();
  KnownFolders folders(PathOf("walk"));
  folders.Remember("", folder.Get(), stamp, FileClockNow() - kFreshNanoseconds, {"a"});
  EXPECT_EQ(folders.Find(""), nullptr);
  EXPECT_EQ(folders.Bytes(), 0u);
}

TEST_F(KnownFoldersTest, TakesABoundedNumberOfBytes) {
  const UniqueDescriptor folder(open(PathOf("walk").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const FileStamp stamp = StampOfDescriptor(folder.Get()).value();
  const std::string path = PathOf("walk");
  KnownFolders folders(path);
  const std::vector<std::string> names(4000, std::string(250, 'n'));  // a megabyte
  const auto key = [](int i) { return std::string(static_cast<std::size_t>(i), '.'); };
  for (int i = 0; i < 20; ++i) folders.Remember("./" + key(i), folder.Get(), stamp, FileClockNow(), names);
  EXPECT_LE(folders.Bytes(), KnownFolders::kMaxBytes);
  const std::vector<std::string> tooMany(40000, std::string(250, 'n'));
  KnownFolders fewer(path);
  fewer.Remember("", folder.Get(), stamp, FileClockNow(), tooMany);
  EXPECT_EQ(fewer.Bytes(), 0u);
}

}  // namespace
}  // namespace TesselServer
