// Tests of what a task does with a disk that keeps its callers waiting.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/LoopTools.h"
#include "tests/kit/SlowDisk.h"
#include "tests/kit/TaskTools.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Kit {

// Needs the definition of TESSEL_SLOW_DISK.
class OnSlowDisk : public testing::Test {
 protected:
  void SetUp() override {
    if (!SlowDisk::IsPossible()) GTEST_SKIP() << "there is no /dev/fuse for a file system in user space";
    Mount();
  }
  // The threads come back before they are ended.
  void TearDown() override {
    if (disk_) disk_->Release();
  }

  // Sets `disk_`.
  virtual void Mount() = 0;

  std::string At(const std::string& name) const { return disk_->Path() + "/" + name; }

  // Lets another task have three turns while a started one waits for the disk, which is held up, then lets the disk
  // answer, and returns the task's value. `what` waits.
  template <typename Value>
  Value FinishAfterOthers(TaskUnderWay<Value>& waiting, const std::string& what) {
    int turnsOfOthers = 0;
    TaskUnderWay<bool> other(ThreeTurns(turnsOfOthers));
    other.Finish(loop_);
    EXPECT_EQ(turnsOfOthers, 3) << what;
    EXPECT_FALSE(waiting.IsDone()) << what << " is to wait for the disk";
    disk_->Release();
    waiting.Finish(loop_);
    return std::move(waiting.Get());
  }

  template <typename Value>
  Value Await(Task<Value> task) {
    turns_.Begin();
    TaskUnderWay<Value> running(std::move(task));
    running.Finish(loop_);
    return std::move(running.Get());
  }

  // To be called with the disk released: so many descriptors are open, as soon as the threads have come back.
  void ExpectDescriptors(std::size_t count) {
    for (const auto start = Clock::now(); CountDescriptors() != count && Since(start) < kTooLong;) loop_.RunOnce(10);
    EXPECT_EQ(CountDescriptors(), count);
  }

  TemporaryTree tree_;
  std::optional<SlowDisk> disk_;
  FakeWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  Turns turns_{loop_, workers_};

 private:
  Task<bool> ThreeTurns(int& count) {
    for (; count < 3; ++count) {
      auto next = turns_.Next();
      co_await next;
    }
    co_return true;
  }
};

}  // namespace TesselServer::Kit
