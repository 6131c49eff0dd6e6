#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>

#include "platform/files/FoldersWithout.h"
#include "platform/files/NeighbourFile.h"
#include "platform/loop/EventLoop.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TaskTools.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using FoundState = NeighbourFile::State;

class FindAboveTest : public testing::Test {
 protected:
  OpenFile Open(const std::string& path) const { return OpenPath((tree_.Path() / path).string()); }
  NeighbourFile Above(const std::string& path, const std::string& top = "site") {
    const OpenFile entry = Open(path);
    Kit::TaskUnderWay<NeighbourFile> task(FindAboveInTurns(entry, "notes.txt", Open(top).Identity(), &turns_));
    task.Finish(loop_);
    NeighbourFile inTurns = std::move(task.Get());
    NeighbourFile inCall = RunNow(FindAboveInTurns(entry, "notes.txt", Open(top).Identity(), nullptr));
    EXPECT_EQ(inTurns.state, inCall.state) << path;
    EXPECT_EQ(TextOf(inTurns), TextOf(inCall)) << path;
    return inTurns;
  }
  static std::string TextOf(const NeighbourFile& found) {
    std::string text;
    found.file.ReadAll(text, 100);
    return text;
  }
  bool AtOnce(const std::string& path, const std::string& top = "site") {
    return IsAboveAtOnce(Open(path), "notes.txt", Open(top).Identity());
  }

  Kit::TemporaryTree tree_;
  Kit::FakeWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  Turns turns_{loop_, workers_};
};

TEST_F(FindAboveTest, TheNearestOneIsFound) {
  tree_.Write("site/notes.txt", "of the site");
  tree_.Write("site/a/notes.txt", "of a");
  tree_.Write("site/a/b/c/file", "f");
  tree_.Write("site/x/y/file", "f");
  EXPECT_EQ(TextOf(Above("site/a/b/c/file")), "of a");
  EXPECT_EQ(TextOf(Above("site/a/b/c")), "of a");
  EXPECT_EQ(TextOf(Above("site/a")), "of a");
  EXPECT_EQ(TextOf(Above("site/x/y/file")), "of the site");
  EXPECT_EQ(TextOf(Above("site")), "of the site");
  EXPECT_TRUE(AtOnce("site/a/b/c/file"));
  EXPECT_TRUE(AtOnce("site/x/y"));
}

TEST_F(FindAboveTest, WhatIsKnownOfFoldersHoldsUntilTheyChange) {
  tree_.Write("site/a/b/file", "f");
  const auto find = [&](FoldersWithout& known) {
    const OpenFile entry = Open("site/a/b/file");
    Kit::TaskUnderWay<NeighbourFile> task(
        FindAboveInTurns(entry, "notes.txt", Open("site").Identity(), &turns_, &known));
    task.Finish(loop_);
    return task.Get().state;
  };
  const auto stampOf = [&](const std::string& path) { return Open(path).Stamp(); };
  FoldersWithout known(world_);
  EXPECT_EQ(find(known), FoundState::kMissing);
  EXPECT_FALSE(known.Has(stampOf("site/a"))) << "it has just changed";
  world_.LetFilesSettle();
  EXPECT_EQ(find(known), FoundState::kMissing);
  for (const char* path : {"site/a/b", "site/a", "site"}) EXPECT_TRUE(known.Has(stampOf(path))) << path;
  EXPECT_EQ(find(known), FoundState::kMissing);
  tree_.Write("site/a/Notes.txt", "new");
  EXPECT_EQ(find(known), FoundState::kFound);
  EXPECT_FALSE(known.Has(stampOf("site/a")));
  world_.Advance(Reading::kMaxAgeMilliseconds);
  EXPECT_FALSE(known.Has(stampOf("site/a/b"))) << "a minute later";
}

TEST_F(FindAboveTest, NothingAboveTheTopIsLookedAt) {
  tree_.Write("notes.txt", "outside");
  tree_.Write("site/a/file", "f");
  EXPECT_EQ(Above("site/a/file").state, FoundState::kMissing);
  EXPECT_EQ(Above("site").state, FoundState::kMissing);
  EXPECT_FALSE(AtOnce("site/a/file"));
  EXPECT_EQ(TextOf(Above("site/a/file", "")), "outside");
}

TEST_F(FindAboveTest, AWayThatDoesNotLeadToTheTopIsUnknown) {
  tree_.Write("site/a/file", "f");
  tree_.Write("elsewhere/file", "f");
  EXPECT_EQ(Above("elsewhere/file").state, FoundState::kUnknown);
  EXPECT_EQ(Above("site/none").state, FoundState::kUnknown) << "nothing is open";
  EXPECT_FALSE(AtOnce("elsewhere/file"));
  EXPECT_FALSE(AtOnce("site/none"));
}

TEST_F(FindAboveTest, TheFoldersAreThoseInWhichItReallyLies) {
  tree_.Write("site/guarded/notes.txt", "of guarded");
  tree_.Write("site/guarded/deep/file", "f");
  tree_.MakeFolder("site/open");
  std::filesystem::create_directory_symlink("../guarded/deep", tree_.Path() / "site/open/way");
  std::filesystem::create_symlink("../guarded/deep/file", tree_.Path() / "site/open/link");
  for (const char* path : {"site/open/way", "site/open/way/file", "site/open/link"}) {
    EXPECT_EQ(TextOf(Above(path)), "of guarded") << path;
    EXPECT_TRUE(AtOnce(path)) << path;
  }
  EXPECT_EQ(Above("site/open").state, FoundState::kMissing);
}

TEST_F(FindAboveTest, AnotherSpellingAndADanglingLinkAreFoundAndAFolderIsNot) {
  tree_.Write("site/a/NOTES.TXT", "upper");
  tree_.Write("site/a/b/file", "f");
  tree_.MakeFolder("site/a/b/notes.txt");
  EXPECT_EQ(TextOf(Above("site/a/b/file")), "upper");
  EXPECT_FALSE(AtOnce("site/a/b/file")) << "the names would have to be read";
  tree_.MakeFolder("site/c/d");
  std::filesystem::create_symlink("nowhere", tree_.Path() / "site/c/notes.txt");
  const NeighbourFile dangling = Above("site/c/d");
  EXPECT_NE(dangling.state, FoundState::kMissing);
  EXPECT_FALSE(dangling.file.IsOpen());
}

}  // namespace
}  // namespace TesselServer
