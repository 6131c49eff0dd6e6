#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/programs/LeftOverChildren.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/Programs.h"

namespace TesselServer {
namespace {

// A child that lives until the test lets it end.
class HeldChild {
 public:
  HeldChild() : number_(fork()) {
    if (number_ < 0) throw std::runtime_error("no child");
    while (number_ == 0) pause();
  }
  HeldChild(const HeldChild&) = delete;
  HeldChild& operator=(const HeldChild&) = delete;
  ~HeldChild() { End(); }

  pid_t Number() const { return number_; }
  // Returns when it is dead and can be collected.
  void End() {
    if (ended_) return;
    ended_ = true;
    kill(number_, SIGKILL);
    siginfo_t state{};
    waitid(P_PID, static_cast<id_t>(number_), &state, WEXITED | WNOWAIT);
  }

 private:
  pid_t number_;
  bool ended_ = false;
};

class LeftOverChildrenTest : public testing::Test {
 protected:
  static void Add(LeftOverChildren& list, const HeldChild& child) {
    OwnedChild owned;
    owned.MakeRoom();
    owned.Own(child.Number());
    list.Add(std::move(owned));
  }
  // One second of the loop's clock.
  void Tick() {
    world_.Advance(LeftOverChildren::kTickMilliseconds);
    loop_.RunOnce(0);
  }

  Kit::FakeWorld world_;
  EventLoop loop_{world_};
  std::unique_ptr<LeftOverChildren> list_ = std::make_unique<LeftOverChildren>(loop_);
};

TEST_F(LeftOverChildrenTest, CollectsThoseThatHaveEnded) {
  HeldChild first, second;
  Add(*list_, first);
  Add(*list_, second);
  list_->Collect();
  EXPECT_EQ(list_->Count(), 2u);
  second.End();
  EXPECT_EQ(list_->Count(), 2u) << "nobody has asked";
  list_->Collect();
  EXPECT_EQ(list_->Count(), 1u);
  first.End();
  list_->Collect();
  EXPECT_EQ(list_->Count(), 0u);
  EXPECT_TRUE(Kit::HasNoChild());
}

TEST_F(LeftOverChildrenTest, TheTimerCollectsAsLongAsThereIsOne) {
  HeldChild child;
  Add(*list_, child);
  list_->Collect();
  Tick();
  Tick();
  EXPECT_EQ(list_->Count(), 1u);
  child.End();
  Tick();
  EXPECT_EQ(list_->Count(), 0u);
  EXPECT_TRUE(Kit::HasNoChild());
  world_.Advance(100 * LeftOverChildren::kTickMilliseconds);
  EXPECT_FALSE(loop_.RunOnce(0)) << "the timer still runs";
}

TEST_F(LeftOverChildrenTest, NoTimerRunsWithoutAChild) {
  list_->Collect();
  world_.Advance(100 * LeftOverChildren::kTickMilliseconds);
  EXPECT_FALSE(loop_.RunOnce(0));
}

TEST_F(LeftOverChildrenTest, OtherChildrenOfTheHostAreNotTouched) {
  HeldChild own, hosts;
  Add(*list_, own);
  own.End();
  hosts.End();
  list_->Collect();
  EXPECT_EQ(list_->Count(), 0u);
  EXPECT_EQ(waitpid(hosts.Number(), nullptr, WNOHANG), hosts.Number());
}

TEST_F(LeftOverChildrenTest, OneThatTheHostCollectedIsForgotten) {
  HeldChild child;
  Add(*list_, child);
  child.End();
  ASSERT_EQ(waitpid(child.Number(), nullptr, 0), child.Number());
  list_->Collect();
  EXPECT_EQ(list_->Count(), 0u);
}

// ---- Children of an object that has died.

TEST_F(LeftOverChildrenTest, TheNextObjectCollectsWhatADeadOneLeft) {
  HeldChild child;
  Add(*list_, child);
  list_ = nullptr;
  child.End();
  EXPECT_FALSE(Kit::HasNoChild());
  const LeftOverChildren next(loop_);
  EXPECT_TRUE(Kit::HasNoChild());
}

TEST_F(LeftOverChildrenTest, AndItsTimerThoseThatStillLive) {
  HeldChild child;
  Add(*list_, child);
  list_ = nullptr;
  Tick();  // the dead object's timer is dead too
  const LeftOverChildren next(loop_);
  EXPECT_EQ(next.Count(), 0u) << "they are none of its own";
  Tick();
  child.End();
  Tick();
  EXPECT_TRUE(Kit::HasNoChild());
  world_.Advance(100 * LeftOverChildren::kTickMilliseconds);
  EXPECT_FALSE(loop_.RunOnce(0)) << "the timer still runs";
}

TEST_F(LeftOverChildrenTest, AnObjectThatWasThereBeforeCollectsThemToo) {
  HeldChild child;
  LeftOverChildren other(loop_);
  Add(*list_, child);
  list_ = nullptr;
  child.End();
  other.Collect();
  EXPECT_TRUE(Kit::HasNoChild());
}

}  // namespace
}  // namespace TesselServer
