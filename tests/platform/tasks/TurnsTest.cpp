#include <gtest/gtest.h>

#include <string>

#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

struct TurnsTest : testing::Test {
  // Steps that take 100 us each.
  Task<void> Steps(int count) {
    for (int i = 0; i < count; ++i) {
      world.microseconds += 100;
      done += "s";
      if (!turns.TimeIsUp()) continue;
      auto next = turns.Next();
      co_await next;
    }
    done += ".";
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  Workers workers{loop};
  Turns turns{loop, workers};
  std::string done;
};

TEST_F(TurnsTest, LongWorkGoesOnInTheNextTurn) {
  turns.Begin();
  const RunningTask task = RunningTask::Start(Steps(7));
  EXPECT_EQ(done, "sss") << "250 us are over";
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_EQ(done, "ssssss");
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_EQ(done, "sssssss.");
  EXPECT_TRUE(task.IsDone());
  EXPECT_FALSE(loop.RunOnce(0));
}

TEST_F(TurnsTest, WhatBeginsInATurnMayFinishALittleLater) {
  RunningTask task;
  loop.Post([&] {
    world.microseconds += 200;
    turns.Begin();
    task = RunningTask::Start(Steps(7));
  });
  loop.RunOnce(0);
  EXPECT_EQ(done, "sss") << "450 us are over";
  loop.RunOnce(0);
  EXPECT_EQ(done, "ssssss") << "250 us, as any other turn";
  loop.RunOnce(0);
  EXPECT_TRUE(task.IsDone());
}

TEST_F(TurnsTest, TimersTickInBetween) {
  Timer timer(loop);
  timer.Interval(1);
  timer.OnTick([this] { done += "t"; });
  timer.Enabled(true);
  turns.Begin();
  const RunningTask task = RunningTask::Start(Steps(6));
  world.Advance(1);
  loop.RunOnce(0);
  EXPECT_EQ(done,
            "ssssss"
            "t");
  loop.RunOnce(0);
  EXPECT_EQ(done, "sssssst.");
}

TEST_F(TurnsTest, TwoTasksHaveTheirTurnsInTurn) {
  std::string order;
  const auto steps = [&](char name) -> Task<void> {
    for (int i = 0; i < 3; ++i) {
      world.microseconds += 300;
      order += name;
      auto next = turns.Next();
      co_await next;
    }
  };
  const RunningTask a = RunningTask::Start(steps('a'));
  const RunningTask b = RunningTask::Start(steps('b'));
  while (loop.RunOnce(0)) {
  }
  EXPECT_EQ(order, "ababab");
}

TEST_F(TurnsTest, OneThatIsDestroyedWhileItWaitsIsNotResumed) {
  {
    turns.Begin();
    const RunningTask task = RunningTask::Start(Steps(7));
    EXPECT_FALSE(task.IsDone());
  }
  EXPECT_FALSE(loop.RunOnce(0));
  EXPECT_EQ(done, "sss");
}

TEST_F(TurnsTest, TheHostsDescriptorIsReadableWhileATaskWaitsForItsTurn) {
  const auto isReadable = [this] { return loop.RunOnce(0); };
  loop.Descriptor();
  turns.Begin();
  const RunningTask task = RunningTask::Start(Steps(4));
  EXPECT_TRUE(isReadable());
  EXPECT_EQ(done, "ssss.");
}

}  // namespace
}  // namespace TesselServer
