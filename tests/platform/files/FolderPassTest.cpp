#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/files/FolderCache.h"
#include "platform/files/FolderPass.h"
#include "platform/loop/EventLoop.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/LoopTools.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;
using Step = DirectoryReader::Step;

// A folder that lies on no disk: its files are the kernel's.
constexpr char kNoDisk[] = "/proc/sys/kernel";

class FolderPassTest : public testing::Test {
 protected:
  std::vector<std::string> NamesIn(const OpenFile& folder, EntryKind wanted) {
    DirectoryReader reader(folder, wanted);
    std::vector<std::string> names;
    while (const auto entry = reader.Next()) names.emplace_back(entry->name);
    return names;
  }

  // What a pass finds, and how often it had to fetch.
  Task<void> Walk(FolderPass& pass) {
    for (;;) {
      const auto step = pass.Advance();
      if (step == Step::kEnd) co_return;
      if (step == Step::kEntry) names_.emplace_back(pass.Entry().name);
      if (step) continue;
      ++fetches_;
      auto fetched = pass.Fetch();
      co_await fetched;
    }
  }
  void WalkToTheEnd(FolderPass& pass) {
    names_.clear();
    fetches_ = 0;
    const RunningTask task = RunningTask::Start(Walk(pass));
    for (const auto start = Kit::Clock::now(); !task.IsDone() && Kit::Since(start) < Kit::kTooLong;) loop_.RunOnce(100);
    EXPECT_TRUE(task.IsDone());
  }

  Kit::TemporaryTree tree_;
  EventLoop loop_;
  Workers workers_{loop_};
  Turns turns_{loop_, workers_};
  std::vector<std::string> names_;
  std::size_t fetches_ = 0;
};

TEST_F(FolderPassTest, FindsWhatAReaderFinds) {
  for (int i = 0; i < 100; ++i) tree_.Write(std::to_string(i), "x");
  for (int i = 0; i < 10; ++i) tree_.MakeFolder("folder " + std::to_string(i));
  for (const std::string& place : {tree_.Text(), std::string(kNoDisk)}) {
    const OpenFile folder = OpenPath(place);
    for (const EntryKind wanted : {EntryKind::kFile, EntryKind::kDirectory}) {
      const auto expected = NamesIn(folder, wanted);
      for (Turns* turns : {&turns_, static_cast<Turns*>(nullptr)}) {
        FolderPass pass(folder, wanted, nullptr, turns);
        WalkToTheEnd(pass);
        EXPECT_EQ(names_, expected) << place;
        const bool isBeside = turns != nullptr && place == kNoDisk;
        const std::size_t batches = expected.size() / FolderPass::kFetchedAtOnce + 1;
        EXPECT_EQ(fetches_ >= batches, isBeside) << place;
      }
    }
  }
}

TEST_F(FolderPassTest, WithoutThreadsNothingIsFetched) {
  workers_.Count(0);
  const OpenFile folder = OpenPath(kNoDisk);
  FolderPass pass(folder, EntryKind::kFile, nullptr, &turns_);
  WalkToTheEnd(pass);
  EXPECT_EQ(fetches_, 0U);
  EXPECT_EQ(names_, NamesIn(folder, EntryKind::kFile));
}

TEST_F(FolderPassTest, RememberedNamesAreWhatIsGoneThrough) {
  tree_.Write("a", "x");
  Kit::FakeWorld world;
  world.LetFilesSettle();
  FolderCache cache(tree_.Text(), world);
  const OpenFile folder = OpenPath(tree_.Text());
  cache.NamesOf("", folder.Descriptor());
  const auto names = cache.NamesOf("", folder.Descriptor());
  ASSERT_NE(names, nullptr);
  tree_.Write("b", "x");
  FolderPass pass(folder, EntryKind::kFile, names, &turns_);
  EXPECT_EQ(pass.ExpectedEntries(), 3U) << "of any kind, \".\" and \"..\" among them";
  WalkToTheEnd(pass);
  EXPECT_EQ(names_, std::vector<std::string>{"a"});
}

TEST_F(FolderPassTest, TheFolderMayBeClosedWhileItIsReadBesideTheLoop) {
  const std::size_t descriptors = Kit::CountDescriptors();
  {
    auto folder = std::make_unique<OpenFile>(OpenPath(kNoDisk));
    const auto expected = NamesIn(*folder, EntryKind::kFile);
    FolderPass pass(*folder, EntryKind::kFile, nullptr, &turns_);
    folder.reset();
    WalkToTheEnd(pass);
    EXPECT_EQ(names_, expected);
    EXPECT_GT(fetches_, 1U);
  }
  EXPECT_LE(Kit::CountDescriptors(), descriptors + 2) << "those of the loop and of no folder";
}

TEST_F(FolderPassTest, WhatIsNoFolderHasNoEntries) {
  const OpenFile file = OpenPath(tree_.Write("a", "x")), nothing;
  for (const OpenFile* each : {&file, &nothing}) {
    FolderPass pass(*each, EntryKind::kFile, nullptr, &turns_);
    EXPECT_EQ(pass.Advance(), Step::kEnd);
  }
}

TEST_F(FolderPassTest, AReaderSaysWhatEachNameCost) {
  tree_.Write("file", "x");
  tree_.MakeFolder("folder");
  fs::create_symlink("nowhere", tree_.Path() / "link");
  const OpenFile folder = OpenPath(tree_.Text());
  DirectoryReader reader(folder, EntryKind::kFile);
  std::vector<Step> steps;
  for (Step step = reader.Advance(); step != Step::kEnd; step = reader.Advance()) steps.push_back(step);
  EXPECT_EQ(std::count(steps.begin(), steps.end(), Step::kEntry), 1) << "file";
  EXPECT_EQ(std::count(steps.begin(), steps.end(), Step::kAsked), 1) << "link";
  EXPECT_EQ(std::count(steps.begin(), steps.end(), Step::kSkipped), 3) << "folder, \".\" and \"..\"";
  EXPECT_EQ(reader.Advance(), Step::kEnd);
}

}  // namespace
}  // namespace TesselServer
