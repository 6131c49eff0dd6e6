// A disk that keeps each call waiting, mounted below a folder of one that does not.

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/files/FileSystem.h"
#include "platform/files/FolderPass.h"
#include "platform/files/NeighbourFile.h"
#include "platform/files/SlowDisk.h"
#include "platform/loop/EventLoop.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/NetworkNamespace.h"
#include "tests/kit/OnSlowDisk.h"
#include "tests/kit/SystemCalls.h"
#include "tests/kit/TaskTools.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

class SlowMountTest : public Kit::OnSlowDisk {
 protected:
  void Mount() override {
    tree_.Write("shown/Page.htm", "page");
    tree_.Write("shown/sub/Deep.htm", "deep");
    tree_.Write("root/near.htm", "near");
    disk_.emplace(tree_.MakeFolder("shown"), 0, tree_.MakeFolder("root"));
    fs::create_symlink(disk_->Name() + "/Page.htm", tree_.Path() / "root/inside.htm");
    fs::create_symlink(disk_->Path() + "/Page.htm", tree_.Path() / "root/far.htm");
    fs::create_symlink(disk_->Path(), tree_.Path() / "outside");
    fs::create_symlink("../outside/Page.htm", tree_.Path() / "root/outside.htm");
  }

  std::string Root() const { return tree_.Text() + "/root"; }
  std::string On(const std::string& name) const { return disk_->Name() + "/" + name; }

  // The value of a task that is started while every call of the disk is held up. Where it were made to wait in the
  // call, it would be done by the time the disk gives up by itself.
  template <typename Value>
  Value WhileOthersGoOn(const std::function<Task<Value>()>& start, const std::string& what) {
    disk_->HoldAll();
    Kit::TaskUnderWay<Value> waiting(start());
    EXPECT_FALSE(waiting.IsDone()) << what << " is to wait for the disk";
    return FinishAfterOthers(waiting, what);
  }

  FoundEntry Found(const RootFolder& root, const std::string& path) {
    return WhileOthersGoOn<FoundEntry>([&] { return root.FindInTurns(path, &turns_); }, path);
  }

  // The names of all entries of a kind, in order.
  Task<std::vector<std::string>> Names(const OpenFile& folder, EntryKind kind) {
    FolderPass pass(folder, kind, nullptr, &turns_);
    std::vector<std::string> names;
    for (auto step = pass.Advance(); step != DirectoryReader::Step::kEnd; step = pass.Advance()) {
      if (!step) {
        auto fetched = pass.Fetch();
        co_await fetched;
      } else if (step == DirectoryReader::Step::kEntry && !pass.Entry().name.starts_with('.')) {
        names.emplace_back(pass.Entry().name);
      }
    }
    std::sort(names.begin(), names.end());
    co_return names;
  }
};

TEST_F(SlowMountTest, OthersGoOnWhileAFileThereIsLookedFor) {
  const RootFolder root(Root(), world_), plain(Root());
  for (const RootFolder* each : {&root, &plain}) {
    for (int time = 0; time < 3; ++time) {
      EXPECT_EQ(Found(*each, On("Page.htm")).file.Size(), 4);
      EXPECT_EQ(Found(*each, On("sub/DEEP.htm")).name, On("sub/Deep.htm"));
      EXPECT_EQ(Found(*each, On("")).kind, EntryKind::kDirectory);
      EXPECT_EQ(Found(*each, On("missing.htm")).kind, EntryKind::kNone);
      EXPECT_EQ(Found(*each, "inside.htm").name, "inside.htm");
      EXPECT_EQ(Found(*each, "far.htm").name, On("Page.htm")) << "the link is absolute, and comes back";
      EXPECT_EQ(Found(*each, "outside.htm").name, On("Page.htm")) << "it climbs out, and comes back";
    }
  }
}

TEST_F(SlowMountTest, WhatIsNotThereIsFoundAtOnceAllTheSame) {
  const RootFolder root(Root(), world_);
  disk_->HoldAll();
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(root.FindAtOnce("near.htm").value_or(FoundEntry()).name, "near.htm");
    EXPECT_FALSE(root.FindAtOnce(On("Page.htm")));
    EXPECT_FALSE(root.FindAtOnce("INSIDE.htm"));
    EXPECT_FALSE(root.FindAtOnce("far.htm"));
    EXPECT_TRUE(root.FindAtOnce("1234")) << "nothing can be there";
  }
}

TEST_F(SlowMountTest, TheSameIsFoundAsInOneGo) {
  const RootFolder root(Root(), world_);
  for (const char* path : {"", "Page.htm", "PAGE.htm", "sub", "sub/", "SUB/deep.HTM", "Page.htm/", "none", ".."}) {
    const FoundEntry found = Await(root.FindInTurns(On(path), &turns_)), expected = root.Find(On(path));
    EXPECT_EQ(found.kind, expected.kind) << path;
    EXPECT_EQ(found.name, expected.name) << path;
    EXPECT_EQ(found.readable, expected.readable) << path;
    EXPECT_EQ(found.isOwnName, expected.isOwnName) << path;
    EXPECT_EQ(found.file.Identity(), expected.file.Identity()) << path;
  }
}

TEST_F(SlowMountTest, WhetherAFileThereMayBeRememberedIsNotAskedOfTheDisk) {
  world_.LetFilesSettle();
  const RootFolder root(Root(), world_);
  for (int time = 0; time < 3; ++time) {
    FoundEntry page = Await(root.FindInTurns(On("Page.htm"), &turns_));
    const auto calls = Kit::SystemCallsOf([&] { root.Remember(page); });
    if (!calls) GTEST_SKIP() << "no process may be traced here";
    EXPECT_EQ(*calls, std::vector<long>{});
    root.Remember(page);
    EXPECT_EQ(page.file.Cached(), nullptr);
  }
}

TEST_F(SlowMountTest, OthersGoOnWhileAFileThereIsReadAndFoldersAre) {
  const RootFolder root(Root(), world_);
  const FoundEntry page = Await(root.FindInTurns(On("Page.htm"), &turns_));
  const FoundEntry folder = Await(root.FindInTurns(On(""), &turns_));
  std::string bytes;
  EXPECT_TRUE(WhileOthersGoOn<bool>([&] { return ReadInTurns(page.file, bytes, 100, &turns_); }, "reading a file"));
  EXPECT_EQ(bytes, "page");
  const auto names = [&](const OpenFile& of, EntryKind kind, const std::string& what) {
    return WhileOthersGoOn<std::vector<std::string>>([&, kind] { return Names(of, kind); }, what);
  };
  EXPECT_EQ(names(folder.file, EntryKind::kFile, "its files"), std::vector<std::string>{"Page.htm"});
  EXPECT_EQ(names(folder.file, EntryKind::kDirectory, "its folders"), std::vector<std::string>{"sub"});
}

TEST_F(SlowMountTest, OthersGoOnWhileAFolderThatShowsItIsListed) {
  const RootFolder root(Root(), world_);
  const FoundEntry folder = Await(root.FindInTurns("", &turns_));
  const auto names = [&](EntryKind kind, const std::string& what) {
    return WhileOthersGoOn<std::vector<std::string>>([&, kind] { return Names(folder.file, kind); }, what);
  };
  EXPECT_EQ(names(EntryKind::kDirectory, "the mount itself"), std::vector<std::string>{disk_->Name()});
  EXPECT_EQ(names(EntryKind::kFile, "links that lead to it"),
            (std::vector<std::string>{"far.htm", "inside.htm", "near.htm", "outside.htm"}));
}

TEST_F(SlowMountTest, OthersGoOnWhileAFileOfTheHostsIsLookedForThere) {
  for (const std::string& path : {At("Page.htm"), At("sub/../PAGE.htm"), Root() + "/far.htm"}) {
    const auto file = WhileOthersGoOn<OpenFile>([&] { return OpenPathInTurns(path, &turns_); }, path);
    EXPECT_EQ(file.Size(), 4) << path;
    EXPECT_EQ(WhileOthersGoOn<EntryKind>([&] { return KindInTurns(path, &turns_); }, path), EntryKind::kFile);
    const auto identity = WhileOthersGoOn<PathIdentity>([&] { return IdentifyInTurns(path, &turns_); }, path);
    EXPECT_EQ(identity.state, PathIdentity::State::kFound) << path;
    EXPECT_EQ(identity.identity, file.Identity()) << path;
  }
  disk_->HoldAll();
  EXPECT_FALSE(IdentifyAtOnce(At("Page.htm")).has_value());
  EXPECT_FALSE(IdentifyAtOnce(Root() + "/outside.htm").has_value());
  EXPECT_TRUE(IdentifyAtOnce(Root() + "/near.htm").has_value());
}

TEST_F(SlowMountTest, OthersGoOnWhileANeighbourThereIsLookedFor) {
  const RootFolder root(Root(), world_);
  const FoundEntry page = Await(root.FindInTurns(On("Page.htm"), &turns_));
  const FoundEntry folder = Await(root.FindInTurns(On("sub"), &turns_));
  const FoundEntry near = Await(root.FindInTurns("near.htm", &turns_));
  const auto find = [&](const FoundEntry& beside, const std::string& name) {
    return WhileOthersGoOn<NeighbourFile>([&] { return FindBesideInTurns(beside.file, name, &turns_); }, name);
  };
  using State = NeighbourFile::State;
  EXPECT_EQ(find(page, "PAGE.htm").file.Size(), 4);
  EXPECT_EQ(find(page, "sub").state, State::kMissing);
  EXPECT_EQ(find(page, "none").state, State::kMissing);
  EXPECT_EQ(find(folder, "deep.htm").file.Size(), 4);
  EXPECT_EQ(find(near, "INSIDE.htm").file.Size(), 4) << "a link that leads there";
  EXPECT_EQ(find(near, disk_->Name()).state, State::kMissing) << "the mount itself";
}

TEST_F(SlowMountTest, ARootBelowTheMountIsOneThatWaits) {
  const RootFolder plain(At("sub"));
  disk_->HoldAll();
  EXPECT_FALSE(plain.FindAtOnce("Deep.htm"));
  disk_->Release();
  EXPECT_EQ(Found(plain, "DEEP.htm").name, "Deep.htm");
  EXPECT_EQ(Found(plain, "Deep.htm").name, "Deep.htm");
}

TEST_F(SlowMountTest, ADiskThatIsMountedLaterIsSeenByTheNextLookUp) {
  const RootFolder root(Root(), world_);
  tree_.MakeFolder("root/later");
  EXPECT_EQ(root.FindAtOnce("later").value_or(FoundEntry()).kind, EntryKind::kDirectory);
  const Kit::SlowDisk another(tree_.MakeFolder("shown"), 0, tree_.Path() / "root/later");
  EXPECT_TRUE(root.FindAtOnce("later"));
  another.HoldAll();
  EXPECT_FALSE(root.FindAtOnce("later/" + another.Name() + "/Page.htm"));
  another.Release();
}

TEST_F(SlowMountTest, WithoutThreadsAllIsDoneInTheCall) {
  workers_.Count(0);
  const RootFolder root(Root(), world_);
  turns_.Begin();
  Kit::TaskUnderWay<FoundEntry> find(root.FindInTurns(On("PAGE.htm"), &turns_));
  ASSERT_TRUE(find.IsDone());
  EXPECT_EQ(find.Get().file.Size(), 4);
  EXPECT_TRUE(Kit::TaskUnderWay<OpenFile>(OpenPathInTurns(At("Page.htm"), &turns_)).IsDone());
  EXPECT_TRUE(Kit::TaskUnderWay<PathIdentity>(IdentifyInTurns(At("Page.htm"), &turns_)).IsDone());
  EXPECT_TRUE(Kit::TaskUnderWay<NeighbourFile>(FindBesideInTurns(find.Get().file, "none", &turns_)).IsDone());
  const FoundEntry folder = RunNow(root.FindInTurns("", &turns_));
  Kit::TaskUnderWay<std::vector<std::string>> folders(Names(folder.file, EntryKind::kDirectory));
  ASSERT_TRUE(folders.IsDone());
  EXPECT_EQ(folders.Get(), std::vector<std::string>{disk_->Name()});
}

TEST_F(SlowMountTest, TasksThatAreDestroyedWhileTheyWaitLeaveNothing) {
  const RootFolder root(Root(), world_);
  const FoundEntry page = Await(root.FindInTurns(On("Page.htm"), &turns_));  // from here on there is a thread
  const FoundEntry folder = Await(root.FindInTurns("", &turns_));
  const std::size_t before = Kit::CountDescriptors();
  disk_->HoldAll();
  {
    const Kit::TaskUnderWay<FoundEntry> find(root.FindInTurns(On("PAGE.htm"), &turns_));
    const Kit::TaskUnderWay<OpenFile> open(OpenPathInTurns(At("Page.htm"), &turns_));
    const Kit::TaskUnderWay<PathIdentity> identify(IdentifyInTurns(At("PAGE.htm"), &turns_));
    const Kit::TaskUnderWay<NeighbourFile> beside(FindBesideInTurns(page.file, "none", &turns_));
    const Kit::TaskUnderWay<std::vector<std::string>> list(Names(folder.file, EntryKind::kDirectory));
    EXPECT_FALSE(find.IsDone() || open.IsDone() || identify.IsDone() || beside.IsDone() || list.IsDone());
  }
  EXPECT_EQ(TaskPromise::living, 0);
  disk_->Release();
  ExpectDescriptors(before);
}

// A file system that does not wait is served as well, wherever it is mounted.
TEST(FastMountTest, ItsFilesAreFoundAndRemembered) {
  enum { kGood, kNoMounts = 201, kAtOnce, kNotFound, kWrong, kNotRemembered };
  const Kit::TemporaryTree tree;
  const int result = Kit::InChild([&] {
    if (!Kit::EnterOwn(CLONE_NEWNS) || !Kit::KeepMountsToOneself()) return static_cast<int>(kNoMounts);
    tree.MakeFolder("root/fast");
    tree.Write("elsewhere/Page.htm", "page");
    const std::string fast = tree.Text() + "/root/fast";
    if (mount((tree.Text() + "/elsewhere").c_str(), fast.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      return static_cast<int>(kNoMounts);
    }
    Kit::FakeWorld world;
    EventLoop loop(world);
    Workers workers(loop);
    Turns turns(loop, workers);
    const RootFolder root(tree.Text() + "/root", world);
    if (root.FindAtOnce("fast/Page.htm")) return static_cast<int>(kAtOnce);
    for (const char* path : {"fast/Page.htm", "fast/PAGE.htm"}) {
      Kit::TaskUnderWay<FoundEntry> find(root.FindInTurns(path, &turns));
      find.Finish(loop);
      if (find.Get().name != "fast/Page.htm") return static_cast<int>(kNotFound);
      std::string bytes;
      Kit::TaskUnderWay<bool> read(ReadInTurns(find.Get().file, bytes, 100, &turns));
      read.Finish(loop);
      if (bytes != "page") return static_cast<int>(kWrong);
      if (MayWait(find.Get().file)) continue;
      world.LetFilesSettle();
      for (int i = 0; i < 2; ++i) root.Remember(find.Get());
    }
    if (!MayWaitAt(fast) && !root.FindAtOnce("fast/Page.htm")) return static_cast<int>(kNotRemembered);
    return static_cast<int>(kGood);
  });
  if (result == kNoMounts) GTEST_SKIP() << "this machine gives the test no mounts of its own";
  EXPECT_EQ(result, kGood);
}

// A root on another mount than the system's root, as most are: what is known of its disk holds for a minute.
TEST(OtherMountTest, ItIsAskedOnceAMinuteBesideTheLoop) {
  if (access("/dev/shm", W_OK) != 0) GTEST_SKIP() << "there is no /dev/shm";
  const Kit::TemporaryTree tree("/dev/shm");
  tree.Write("Page.htm", "page");
  if (MayWaitAt(tree.Text())) GTEST_SKIP() << "/dev/shm is none that is known not to wait";
  Kit::FakeWorld world;
  EventLoop loop(world);
  Workers workers(loop);
  Turns turns(loop, workers);
  const RootFolder root(tree.Text(), world);
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(root.FindAtOnce("Page.htm").value_or(FoundEntry()).name, "Page.htm");
    EXPECT_TRUE(root.FindAtOnce(""));
    EXPECT_TRUE(root.FindAtOnce("1234"));
  }
  world.Advance(60'000);
  EXPECT_FALSE(root.FindAtOnce("Page.htm"));
  Kit::TaskUnderWay<FoundEntry> find(root.FindInTurns("page.HTM", &turns));
  EXPECT_FALSE(find.IsDone());
  find.Finish(loop);
  EXPECT_EQ(find.Get().name, "Page.htm");
  EXPECT_TRUE(root.FindAtOnce("Page.htm"));
}

}  // namespace
}  // namespace TesselServer
