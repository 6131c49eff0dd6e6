#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>

#include "platform/files/FileStamp.h"
#include "platform/files/FileSystem.h"
#include "platform/files/NeighbourFile.h"
#include "platform/files/SlowDisk.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/OnSlowDisk.h"

namespace TesselServer {
namespace {

class SlowDiskTest : public Kit::OnSlowDisk {
 protected:
  void Mount() override { disk_.emplace(tree_.MakeFolder("site")); }

  // The value of a task that has waited for each reading.
  template <typename Value>
  Value WhileOthersGoOn(Task<Value> task) {
    disk_->Hold();
    Kit::TaskUnderWay<Value> waiting(std::move(task));
    return FinishAfterOthers(waiting, "it");
  }
};

TEST_F(SlowDiskTest, OnlyFileSystemsThatAreKnownToBeLocalDoNotWait) {
  EXPECT_TRUE(MayWaitAt(disk_->Path()));
  EXPECT_TRUE(MayWait(OpenPath(disk_->Path()).Descriptor()));
  EXPECT_TRUE(MayWaitAt("/proc"));
  EXPECT_TRUE(MayWait(-1)) << "nothing is known of it";
  EXPECT_FALSE(MayWaitAt(At("missing"))) << "nothing is to be read";
  EXPECT_EQ(MayWaitAt(tree_.Text()), !KeepsChangeTimes(OpenPath(tree_.Text()).Descriptor(), ReadFrom::kNames));
}

TEST_F(SlowDiskTest, OthersGoOnWhileAFileIsRead) {
  const std::string text = std::string(300'000, 'x') + "end";
  tree_.Write("site/page.htm", text);
  const OpenFile file = OpenPath(At("page.htm"));
  std::string bytes;
  EXPECT_TRUE(WhileOthersGoOn(ReadInTurns(file, bytes, 1'000'000, &turns_)));
  EXPECT_EQ(bytes, text);
}

TEST_F(SlowDiskTest, OthersGoOnWhileAFolderIsSearched) {
  tree_.Write("site/Page.htm", "page");
  const OpenFile folder = OpenPath(disk_->Path());
  EXPECT_EQ(WhileOthersGoOn(OpenPathInTurns(At("PAGE.HTM"), &turns_)).Size(), 4);
  EXPECT_EQ(WhileOthersGoOn(KindInTurns(At("NONE"), &turns_)), EntryKind::kNone);
  EXPECT_EQ(WhileOthersGoOn(IdentifyInTurns(At("PAGE.HTM"), &turns_)).state, PathIdentity::State::kFound);
  EXPECT_EQ(WhileOthersGoOn(FindBesideInTurns(folder, "PAGE.HTM", &turns_)).state, NeighbourFile::State::kFound);
}

TEST_F(SlowDiskTest, OthersGoOnWhileARootIsSearched) {
  tree_.Write("site/Docs/Page.htm", "page");
  const RootFolder root(disk_->Path(), world_), plain(disk_->Path());
  for (const RootFolder* each : {&root, &plain}) {
    const FoundEntry found = WhileOthersGoOn(each->FindInTurns("docs/PAGE.htm", &turns_));
    EXPECT_EQ(found.name, "Docs/Page.htm");
    EXPECT_EQ(found.file.Size(), 4);
    EXPECT_EQ(WhileOthersGoOn(each->FindInTurns("missing", &turns_)).kind, EntryKind::kNone);
  }
}

TEST_F(SlowDiskTest, NothingIsFoundAtOnceBelowARootThatMayWait) {
  tree_.Write("site/Page.htm", "page");
  const RootFolder root(disk_->Path(), world_), plain(disk_->Path());
  for (const RootFolder* each : {&root, &plain}) {
    EXPECT_FALSE(each->FindAtOnce("Page.htm").has_value());
    EXPECT_TRUE(each->FindAtOnce("..").has_value()) << "nothing is to be looked for";
    const FoundEntry found = Await(each->FindInTurns("Page.htm", &turns_)), expected = each->Find("Page.htm");
    EXPECT_EQ(found.name, "Page.htm");
    EXPECT_EQ(found.isOwnName, expected.isOwnName);
    EXPECT_EQ(found.mayBeRemembered, expected.mayBeRemembered);
  }
}

TEST_F(SlowDiskTest, ARootThatNoLongerWaitsIsSeenAfterALookUp) {
  const RootFolder root(tree_.Text() + "/moved", world_);
  std::filesystem::create_directory_symlink(disk_->Path(), tree_.Text() + "/moved");
  EXPECT_FALSE(root.FindAtOnce("").has_value());
  std::filesystem::remove(tree_.Text() + "/moved");
  tree_.Write("moved/a", "");
  EXPECT_FALSE(root.FindAtOnce("a").has_value());
  EXPECT_EQ(Await(root.FindInTurns("a", &turns_)).name, "a");
  EXPECT_EQ(root.FindAtOnce("a").has_value(), !MayWaitAt(tree_.Text()));
}

TEST_F(SlowDiskTest, ItsFilesAreReadAlike) {
  constexpr std::int64_t kPiece = PatientReader::kPieceBesideBytes;
  for (const std::int64_t size : {std::int64_t{0}, std::int64_t{1}, kPiece - 1, kPiece, kPiece + 1, 3 * kPiece}) {
    tree_.Write("site/file" + std::to_string(size), std::string(static_cast<std::size_t>(size), 'x'));
    const OpenFile file = OpenPath(At("file" + std::to_string(size)));
    ASSERT_TRUE(file.IsOpen());
    for (const std::int64_t limit : {std::int64_t{0}, size - 1, size, size + 1}) {
      std::string expected, bytes;
      const bool isWhole = file.ReadAll(expected, limit);
      EXPECT_EQ(Await(ReadInTurns(file, bytes, limit, &turns_)), isWhole) << size << " bytes, limit " << limit;
      EXPECT_EQ(bytes, expected);
    }
  }
}

TEST_F(SlowDiskTest, WithoutThreadsItIsReadInTheCall) {
  workers_.Count(0);
  tree_.Write("site/Page.htm", "page");
  const RootFolder root(disk_->Path());
  turns_.Begin();
  Kit::TaskUnderWay<FoundEntry> find(root.FindInTurns("PAGE.htm", &turns_));
  ASSERT_TRUE(find.IsDone());
  std::string bytes;
  const Kit::TaskUnderWay<bool> read(ReadInTurns(find.Get().file, bytes, 100, &turns_));
  EXPECT_TRUE(read.IsDone());
  EXPECT_EQ(bytes, "page");
}

TEST_F(SlowDiskTest, ATaskThatIsDestroyedWhileItWaitsLeavesNothing) {
  tree_.Write("site/Page.htm", "page");
  const RootFolder root(disk_->Path());
  Await(root.FindInTurns("PAGE.htm", &turns_));  // from here on there is a thread
  const OpenFile file = OpenPath(At("Page.htm")), folder = OpenPath(disk_->Path());
  const std::size_t before = Kit::CountDescriptors();
  std::string bytes;
  disk_->Hold();
  {
    const Kit::TaskUnderWay<bool> read(ReadInTurns(file, bytes, 100, &turns_));
    const Kit::TaskUnderWay<FoundEntry> find(root.FindInTurns("PAGE.htm", &turns_));
    const Kit::TaskUnderWay<NeighbourFile> beside(FindBesideInTurns(folder, "PAGE.HTM", &turns_));
    EXPECT_GT(TaskPromise::living, 0);
  }
  EXPECT_EQ(TaskPromise::living, 0);
  disk_->Release();
  ExpectDescriptors(before);
}

}  // namespace
}  // namespace TesselServer
