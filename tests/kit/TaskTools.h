// Tasks in tests: a world in which their turns end soon, and running one to its end.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/LoopTools.h"

namespace TesselServer::Kit {

// Each look at the clock takes time, so that a turn is over after a few steps of whatever length.
class TickingWorld : public FakeWorld {
 public:
  std::int64_t microsecondsPerLook = 100;

  std::int64_t MonotonicMicroseconds() const override {
    passed_ += microsecondsPerLook;
    return FakeWorld::MonotonicMicroseconds() + passed_;
  }

 private:
  mutable std::int64_t passed_ = 0;
};

// A task under way, and its value once it is done.
template <typename Value>
class TaskUnderWay {
 public:
  explicit TaskUnderWay(Task<Value> task) : task_(std::move(task)), running_(RunningTask::Start(Keep(task_, value_))) {}
  TaskUnderWay(const TaskUnderWay&) = delete;
  TaskUnderWay& operator=(const TaskUnderWay&) = delete;

  bool IsDone() const { return running_.IsDone(); }

  // Runs the loop until it is done: in how many turns.
  int Finish(EventLoop& loop) {
    int turns = 0;
    for (const auto start = Clock::now(); !IsDone() && Since(start) < kTooLong; ++turns) loop.RunOnce(100);
    EXPECT_TRUE(IsDone());
    return turns;
  }

  Value& Get() { return value_.value(); }

 private:
  static Task<void> Keep(Task<Value>& task, std::optional<Value>& value) { value.emplace(co_await task); }

  Task<Value> task_;
  std::optional<Value> value_;
  RunningTask running_;
};

}  // namespace TesselServer::Kit
