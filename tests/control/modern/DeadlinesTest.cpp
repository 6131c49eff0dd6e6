#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "control/modern/Deadlines.h"
#include "platform/loop/EventLoop.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Wait = Deadlines::Wait;

class DeadlinesTest : public testing::Test {
 protected:
  DeadlinesTest() {
    deadlines.Limit(Wait::kNextRequest, 10);
    deadlines.Limit(Wait::kClient, 30);
    for (std::int32_t i = 0; i < 3; ++i) entries[static_cast<std::size_t>(i)].index = i;
  }

  void Pass(std::int64_t milliseconds) {
    world.Advance(milliseconds);
    loop.RunOnce(0);
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  std::vector<std::int32_t> overdue;
  Deadlines deadlines{loop, [this](Deadlines::Entry& entry, Wait) { overdue.push_back(entry.index); }};
  std::array<Deadlines::Entry, 3> entries;
};

TEST_F(DeadlinesTest, EachIsOverdueAfterItsTime) {
  deadlines.Progress(entries[0], Wait::kClient);
  deadlines.Progress(entries[1], Wait::kNextRequest);
  Pass(9'999);
  EXPECT_THAT(overdue, IsEmpty());
  Pass(1);
  EXPECT_THAT(overdue, ElementsAre(1));
  Pass(20'000);
  EXPECT_THAT(overdue, ElementsAre(1, 0));
  EXPECT_FALSE(entries[0].IsWaiting());
}

TEST_F(DeadlinesTest, ProgressGivesItsTimeAnew) {
  deadlines.Progress(entries[0], Wait::kNextRequest);
  deadlines.Progress(entries[1], Wait::kNextRequest);
  Pass(6'000);
  deadlines.Progress(entries[0], Wait::kNextRequest);
  Pass(5'000);
  EXPECT_THAT(overdue, ElementsAre(1));
  Pass(4'000);
  EXPECT_THAT(overdue, ElementsAre(1));
  Pass(1'000);
  EXPECT_THAT(overdue, ElementsAre(1, 0));
}

TEST_F(DeadlinesTest, WhatLeavesIsNotOverdue) {
  deadlines.Progress(entries[0], Wait::kNextRequest);
  {
    Deadlines::Entry gone;
    deadlines.Progress(gone, Wait::kNextRequest);
  }
  entries[0].Leave();
  Pass(100'000);
  EXPECT_THAT(overdue, IsEmpty());
}

TEST_F(DeadlinesTest, TheLongestComesFirst) {
  EXPECT_EQ(deadlines.Longest(Wait::kNextRequest), nullptr);
  for (auto& entry : entries) deadlines.Progress(entry, Wait::kNextRequest);
  EXPECT_EQ(deadlines.Longest(Wait::kNextRequest), &entries[0]);
  deadlines.Progress(entries[0], Wait::kNextRequest);
  EXPECT_EQ(deadlines.Longest(Wait::kNextRequest), &entries[1]);
  EXPECT_EQ(deadlines.Longest(Wait::kClient), nullptr);
}

TEST_F(DeadlinesTest, WithoutALimitNothingIsOverdue) {
  deadlines.Limit(Wait::kClient, 0);
  deadlines.Progress(entries[0], Wait::kClient);
  Pass(1'000'000'000);
  EXPECT_THAT(overdue, IsEmpty());
  EXPECT_EQ(deadlines.Longest(Wait::kClient), &entries[0]);
}

TEST_F(DeadlinesTest, NoTimerRunsForNothing) {
  deadlines.Progress(entries[0], Wait::kNextRequest);
  entries[0].Leave();
  Pass(10'000);
  EXPECT_FALSE(loop.RunOnce(0));
  for (int i = 0; i < 10; ++i) {
    world.Advance(100'000);
    EXPECT_FALSE(loop.RunOnce(0)) << "it does not wake for what is not there";
  }
}

}  // namespace
}  // namespace TesselServer
