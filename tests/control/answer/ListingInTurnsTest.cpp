// What a listing holds on to while it is made; files/ListingInTurnsTest has how it is made.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "control/answer/Listing.h"
#include "control/answer/SlotTarget.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class ListingInTurnsTest : public testing::Test {
 protected:
  ListingInTurnsTest() {
    for (int i = 0; i < 60; ++i) core_.tree.Write("root/docs/" + std::to_string(i) + ".txt", "text");
    core_.tree.Write("root/docs/real.txt", "text");
    fs::create_symlink("real.txt", core_.tree.Path() / "root/docs/inside.txt");
    fs::create_symlink("/etc/passwd", core_.tree.Path() / "root/docs/outside.txt");
    state_.settings.VirtualPath = core_.tree.Text() + "/root";
    state_.settings.ServerName = "shelf";
  }

  void LookFor(const std::string& path) {
    slot_.Fields().RequestPath = slot_.Fields().DocumentURI = path;
    state_.turns.Begin();
    RunNow(FindTarget(state_, slot_));
    ASSERT_EQ(slot_.Target.kind, EntryKind::kDirectory);
  }
  // The clock is put forward in each turn, so that each takes its time with the first stretch.
  void Start() {
    state_.turns.Begin();
    core_.world.microseconds += EventLoop::kMicrosecondsPerTurn;
    task_ = RunningTask::Start(Make());
  }
  void Turn() { core_.loop.RunOnce(0); }
  void Finish() {
    for (int i = 0; i < 1000 && !task_.IsDone(); ++i) Turn();
  }
  std::string InOneTurn() {
    state_.turns.Begin();
    return RunNow(ListingOf(state_, slot_)).value_or("too large");
  }
  Task<void> Make() {
    auto page = ListingOf(state_, slot_);
    page_ = co_await page;
  }

  Kit::TestCore core_;
  ControlState& state_ = core_.core.state;
  Slot slot_{std::make_unique<Reception>()};
  std::optional<std::string> page_;
  RunningTask task_;
};

TEST_F(ListingInTurnsTest, ThePageIsTheSameAsInOneTurn) {
  LookFor("/docs/");
  const std::string expected = InOneTurn();
  LookFor("/docs/");
  Start();
  EXPECT_FALSE(task_.IsDone());
  Finish();
  EXPECT_EQ(page_, expected);
  EXPECT_THAT(expected, HasSubstr(">inside.txt<"));
  EXPECT_THAT(expected, Not(HasSubstr(">outside.txt<")));
}

TEST_F(ListingInTurnsTest, SettingsThatChangeMeanwhileAreThoseOfTheNextPage) {
  LookFor("/docs/");
  const std::string expected = InOneTurn();
  LookFor("/docs/");
  Start();
  state_.settings.VirtualPath = core_.tree.Text();
  state_.settings.ServerName = "other";
  state_.settings.AuthenticationSourceFile = core_.tree.Text() + "/root/docs/real.txt";
  state_.Root();
  state_.Secrets();
  slot_.Target = {};
  Finish();
  EXPECT_EQ(page_, expected);
}

TEST_F(ListingInTurnsTest, ThePageCountsAsOneOnItsWay) {
  LookFor("/docs/");
  Start();
  EXPECT_FALSE(task_.IsDone());
  core_.world.microseconds += EventLoop::kMicrosecondsPerTurn;
  Finish();
  ASSERT_TRUE(page_);
  EXPECT_GE(state_.pageMemory.Used() + 64, static_cast<std::int64_t>(page_->size()));
  slot_.PageMemory.Release();
  EXPECT_EQ(state_.pageMemory.Used(), 0);
}

TEST_F(ListingInTurnsTest, WhereAllPagesTogetherBecomeTooLargeThereIsNone) {
  state_.pageMemory.Limit(10'000);
  LookFor("/docs/");
  Start();
  Finish();
  EXPECT_TRUE(task_.IsDone());
  EXPECT_EQ(page_, std::nullopt);
  EXPECT_LE(state_.pageMemory.Used(), 10'000);
}

TEST_F(ListingInTurnsTest, OneThatIsDestroyedLeavesNothing) {
  LookFor("/docs/");
  slot_.Target = {};
  const std::size_t descriptors = Kit::CountDescriptors();
  bool isDone = false;
  for (int turns = 0; !isDone; ++turns) {
    LookFor("/docs/");
    Start();
    for (int i = 0; i < turns; ++i) Turn();
    isDone = task_.IsDone();
    task_ = {};
    EXPECT_EQ(TaskPromise::living, 0);
    EXPECT_EQ(Kit::CountDescriptors(), descriptors);
    ASSERT_LT(turns, 1000);
  }
}

}  // namespace
}  // namespace TesselServer
