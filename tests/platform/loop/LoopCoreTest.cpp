#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/loop/LoopCore.h"
#include "platform/loop/Timer.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/Pipe.h"

namespace TesselServer {
namespace {

class LoopCoreTest : public testing::Test {
 protected:
  LoopCoreTest() {
    ear.onEvents = [this](std::uint64_t cookie) {
      heard += std::to_string(cookie);
      pipes[cookie].Drain();
    };
    ear.onTask = [this](std::uint64_t cookie) { heard += "n" + std::to_string(cookie); };
  }

  // What one turn, or one call of DoEvents outside a turn, brings.
  std::string Turn() {
    heard.clear();
    loop.RunOnce(0);
    return heard;
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  LoopCore& core = loop.Core();
  std::array<Kit::Pipe, 4> pipes;
  Kit::LoopEar ear{core};
  std::string heard;
};

// ---- Watches.

TEST_F(LoopCoreTest, AWatchGetsEventsUntilItIsRemoved) {
  const WatchId watch = ear.Watch(pipes[1], 1);
  ASSERT_NE(watch, 0u);
  EXPECT_EQ(Turn(), "");
  pipes[1].Fill();
  EXPECT_EQ(Turn(), "1");
  EXPECT_EQ(Turn(), "");
  core.Unwatch(watch);
  pipes[1].Fill();
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, UnreadInputIsAnEventAgain) {
  ear.onEvents = [this](std::uint64_t) { heard += "x"; };
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  EXPECT_EQ(Turn(), "x");
  EXPECT_EQ(Turn(), "x");
}

TEST_F(LoopCoreTest, AChangedWatchGetsOnlyTheEventsItAsksFor) {
  const WatchId watch = ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  core.Change(watch, 0);
  EXPECT_EQ(Turn(), "");
  core.Change(watch, EPOLLIN);
  EXPECT_EQ(Turn(), "0");
}

TEST_F(LoopCoreTest, AWatchThatTheKernelRefusesIsZero) {
  EXPECT_EQ(ear.Watch(-1, 7), 0u);
  core.Change(0, EPOLLIN);
  core.Unwatch(0);
  ear.Watch(pipes[2], 2);
  pipes[2].Fill();
  EXPECT_EQ(Turn(), "2") << "and leaves the others alone";
}

TEST_F(LoopCoreTest, TakingAWatchBackTwiceDoesNotTakeItsSuccessor) {
  const WatchId first = ear.Watch(pipes[0], 0);
  core.Unwatch(first);
  const WatchId second = ear.Watch(pipes[1], 1);
  EXPECT_NE(first, second);
  core.Unwatch(first);
  core.Change(first, 0);
  pipes[1].Fill();
  EXPECT_EQ(Turn(), "1");
}

TEST_F(LoopCoreTest, AWatchRemovedInTheSameBatchGetsNoEvent) {
  WatchId watches[2] = {ear.Watch(pipes[0], 0), ear.Watch(pipes[1], 1)};
  ear.onEvents = [&](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    core.Unwatch(watches[1 - cookie]);
  };
  pipes[0].Fill();
  pipes[1].Fill();
  EXPECT_EQ(Turn().size(), 1u) << "whichever was first";
}

TEST_F(LoopCoreTest, ItsSuccessorDoesNotGetTheOldEvent) {
  WatchId watches[2] = {ear.Watch(pipes[0], 0), ear.Watch(pipes[1], 1)};
  ear.onEvents = [&](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    core.Unwatch(watches[1 - cookie]);
    ear.Watch(pipes[2], 2);  // in the place that was freed
  };
  pipes[0].Fill();
  pipes[1].Fill();
  EXPECT_EQ(Turn().find('2'), std::string::npos);
}

TEST_F(LoopCoreTest, AHandlerMayTakeItsOwnWatchBackAndAddMany) {
  const WatchId own = ear.Watch(pipes[0], 0);
  std::array<Kit::Pipe, 64> more;
  ear.onEvents = [&](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    core.Unwatch(own);
    for (const Kit::Pipe& pipe : more) ear.Watch(pipe, 3);
  };
  pipes[0].Fill();
  EXPECT_EQ(Turn(), "0");
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, OneTurnTakesABoundedNumberOfEvents) {
  constexpr std::size_t kMany = EventLoop::kEventsPerTurn + 40;
  std::vector<std::unique_ptr<Kit::Pipe>> many;
  for (std::size_t i = 0; i < kMany; ++i) {
    many.push_back(std::make_unique<Kit::Pipe>());
    ear.Watch(*many.back(), i);
    many.back()->Fill();
  }
  std::size_t count = 0;
  std::vector<bool> served(kMany);
  ear.onEvents = [&](std::uint64_t cookie) {
    ++count;
    served[cookie] = true;
    many[cookie]->Drain();
  };
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_EQ(count, static_cast<std::size_t>(EventLoop::kEventsPerTurn));
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_EQ(count, kMany);
  EXPECT_EQ(std::count(served.begin(), served.end(), true), static_cast<std::ptrdiff_t>(kMany));
}

TEST_F(LoopCoreTest, ATurnThatHasTakenItsTimeLeavesTheRestToTheNext) {
  ear.onEvents = [this](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    pipes[cookie].Drain();
    world.Advance(1);
  };
  int ticks = 0;
  Timer timer(loop);
  timer.Interval(1);
  timer.OnTick([&] { ++ticks; });
  timer.Enabled(true);
  std::string order;
  for (std::size_t i = 0; i < 4; ++i) {
    ear.Watch(pipes[i], i);
    pipes[i].Fill();
  }
  for (int turn = 1; turn <= 4; ++turn) {
    EXPECT_EQ(Turn().size(), 1u) << turn;
    EXPECT_EQ(ticks, turn - 1) << "the host's timers have their turn in between";
    order += heard;
  }
  std::sort(order.begin(), order.end());
  EXPECT_EQ(order, "0123") << "each once";
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, TasksAreLeftToTheNextTurnAsWellAndEventsDoNotStarveThem) {
  ear.onEvents = [this](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    world.Advance(1);
  };
  ear.onTask = [this](std::uint64_t cookie) {
    heard += "n" + std::to_string(cookie);
    world.Advance(1);
  };
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();  // and never drained
  ear.Post(7);
  ear.Post(8);
  for (const char* expected : {"0n7", "0n8", "0"}) EXPECT_EQ(Turn(), expected);
}

TEST_F(LoopCoreTest, YieldingInALongTurnStillDeliversTheNextEvent) {
  ear.onEvents = [this](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    pipes[cookie].Drain();
    world.Advance(1000);
    if (heard.size() == 1) loop.DoEvents();
  };
  for (std::size_t i = 0; i < 2; ++i) {
    ear.Watch(pipes[i], i);
    pipes[i].Fill();
  }
  EXPECT_EQ(Turn().size(), 2u);
}

// ---- Tasks.

TEST_F(LoopCoreTest, ATaskRunsOnceInTheNextTurn) {
  ear.Post(5);
  EXPECT_EQ(Turn(), "n5");
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, TasksRunInTheirOrderAfterAnEvent) {
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  ear.Post(1);
  ear.Post(2);
  EXPECT_EQ(Turn(), "0n1n2");
}

TEST_F(LoopCoreTest, ATaskPostedByAnEventRunsInTheSameTurn) {
  ear.onEvents = [this](std::uint64_t cookie) {
    pipes[cookie].Drain();
    ear.Post(9);
  };
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  EXPECT_EQ(Turn(), "n9");
}

TEST_F(LoopCoreTest, ATaskPostedByATaskWaitsForTheNextTurn) {
  ear.onTask = [this](std::uint64_t cookie) {
    heard += "n" + std::to_string(cookie);
    ear.Post(cookie + 1);
  };
  ear.Post(1);
  EXPECT_EQ(Turn(), "n1");
  EXPECT_EQ(Turn(), "n2");
}

TEST_F(LoopCoreTest, TasksThatWereWithdrawnDoNotRun) {
  Kit::LoopEar other(core);
  std::string others;
  other.onTask = [&](std::uint64_t) { others += "o"; };
  ear.Post(1);
  other.Post(2);
  ear.Post(3);
  core.Withdraw(&ear);
  EXPECT_EQ(Turn(), "");
  EXPECT_EQ(others, "o");
}

TEST_F(LoopCoreTest, ATaskMayBeWithdrawnInsideAnother) {
  auto other = std::make_unique<Kit::LoopEar>(core);
  other->onTask = [&](std::uint64_t) { heard += "dead"; };
  ear.onTask = [&](std::uint64_t) { other.reset(); };
  ear.Post(1);
  other->Post(2);
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, AWaitingTaskKeepsATurnFromWaiting) {
  ear.Post(1);
  loop.RunOnce(-1);
  EXPECT_EQ(heard, "n1");
}

TEST_F(LoopCoreTest, EventsAndTasksTakeTurnsSoThatNeitherGathers) {
  for (std::uint64_t i = 0; i < 4; ++i) {
    ear.Watch(pipes[i], i);
    pipes[i].Fill();
    ear.Post(i);
  }
  ear.onEvents = [this](std::uint64_t cookie) {
    heard += "e";
    pipes[cookie].Drain();
  };
  ear.onTask = [this](std::uint64_t) {
    heard += "t";
    world.microseconds += EventLoop::kMicrosecondsPerTurn / 2;
  };
  EXPECT_EQ(Turn(), "etet");
  EXPECT_EQ(Turn(), "etet");
}

// ---- Tasks of the host's.

TEST_F(LoopCoreTest, APostedTaskRunsOnTheLoopInTheOrderOfPosting) {
  loop.Post([this] { heard += "1"; });
  loop.Post([this] {
    heard += "2";
    loop.Post([this] { heard += "3"; });
  });
  EXPECT_EQ(Turn(), "12");
  EXPECT_EQ(Turn(), "3");
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, WhatAPostedTaskThrowsIsReportedAndTheOthersRun) {
  std::vector<std::string> failures;
  loop.HandlerFailed = [&](std::string& text) { failures.push_back(text); };
  loop.Post([] { throw std::runtime_error("mine"); });
  loop.Post([] { throw 42; });
  loop.Post([this] { heard += "3"; });
  EXPECT_EQ(Turn(), "3");
  EXPECT_EQ(failures, (std::vector<std::string>{"Task: mine", "Task: an exception of unknown type"}));
}

TEST_F(LoopCoreTest, WhatTheReportItselfThrowsIsDropped) {
  loop.HandlerFailed = [](std::string&) { throw std::runtime_error("again"); };
  loop.Post([] { throw std::runtime_error("mine"); });
  EXPECT_NO_THROW(loop.RunOnce(0));
}

TEST_F(LoopCoreTest, TasksThatDidNotRunDieWithTheLoop) {
  auto kept = std::make_shared<int>(1);
  {
    EventLoop other(world);
    other.Post([kept] {});
    EXPECT_EQ(kept.use_count(), 2);
  }
  EXPECT_EQ(kept.use_count(), 1);
}

TEST_F(LoopCoreTest, ATaskThatDidNotRunMayHoldARunningTimerOfItsLoop) {
  auto other = std::make_unique<EventLoop>(world);
  auto timer = std::make_shared<Timer>(*other);
  timer->Enabled(true);
  const std::weak_ptr<Timer> gone = timer;
  other->Post([kept = std::move(timer)] {});
  other.reset();
  EXPECT_TRUE(gone.expired());
}

// ---- Yielding.

TEST_F(LoopCoreTest, YieldingDeliversWhatIsKnownBeforeItAsksTheKernel) {
  ear.Watch(pipes[0], 0);
  ear.Watch(pipes[1], 1);
  ear.Watch(pipes[2], 2);
  std::vector<std::string> passes;
  ear.onEvents = [&](std::uint64_t cookie) {
    pipes[cookie].Drain();
    heard += std::to_string(cookie);
    if (heard.size() > 1) return;
    pipes[2].Fill();  // the loop does not know of it yet
    for (int pass = 0; pass < 3; ++pass) {
      const std::size_t before = heard.size();
      loop.DoEvents();
      passes.push_back(heard.substr(before));
    }
  };
  pipes[0].Fill();
  pipes[1].Fill();
  Turn();
  ASSERT_EQ(passes.size(), 3u);
  EXPECT_EQ(passes[0], heard.substr(0, 1) == "0" ? "1" : "0") << "the other one of the batch";
  EXPECT_EQ(passes[1], "2") << "then what the kernel has";
  EXPECT_EQ(passes[2], "") << "then nothing, without waiting";
  EXPECT_EQ(heard.size(), 3u) << "and nothing is delivered twice";
}

TEST_F(LoopCoreTest, YieldingRunsTasks) {
  ear.onEvents = [&](std::uint64_t cookie) {
    pipes[cookie].Drain();
    ear.Post(4);
    loop.DoEvents();
    heard += "back";
  };
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  EXPECT_EQ(Turn(), "n4back");
}

TEST_F(LoopCoreTest, ATaskThatPostsItselfAgainStarvesNoEventWhileAHandlerYields) {
  ear.Watch(pipes[0], 0);
  ear.onTask = [&](std::uint64_t cookie) {
    ear.Post(2);
    if (cookie == 2) return;
    pipes[0].Fill();
    std::thread([&] { loop.Post([this] { heard += "t"; }); }).join();
    for (int pass = 0; pass < 3; ++pass) loop.DoEvents();
    EXPECT_EQ(heard, "0t") << "what the kernel has, and the task of another thread";
  };
  ear.Post(1);
  loop.RunOnce(0);
}

TEST_F(LoopCoreTest, YieldingNestsABoundedNumberOfTimes) {
  int depth = 0;
  int deepest = 0;
  ear.onTask = [&](std::uint64_t cookie) {
    deepest = std::max(deepest, ++depth);
    if (cookie < 100) ear.Post(cookie + 1);
    loop.DoEvents();
    --depth;
  };
  ear.Post(1);
  loop.RunOnce(0);
  EXPECT_EQ(deepest, 1 + EventLoop::kMaxNesting);
  EXPECT_EQ(depth, 0);
}

TEST_F(LoopCoreTest, ATurnInsideANotificationIsOnlyAYield) {
  int inner = 0;
  Timer timer(loop);
  timer.OnTick([&] { ++inner; });
  timer.Interval(1);
  timer.Enabled(true);
  ear.onTask = [&](std::uint64_t) {
    world.Advance(10);
    EXPECT_FALSE(loop.RunOnce(-1)) << "it does not wait, and nothing was delivered";
    EXPECT_EQ(inner, 0) << "nor tick";
  };
  ear.Post(1);
  loop.RunOnce(0);
}

TEST_F(LoopCoreTest, YieldingOutsideANotificationIsATurnThatDoesNotWait) {
  bool ticked = false;
  Timer timer(loop);
  timer.OnTick([&] { ticked = true; });
  timer.Interval(10);
  timer.Enabled(true);
  loop.DoEvents();
  EXPECT_FALSE(ticked);
  world.Advance(10);
  loop.DoEvents();
  EXPECT_TRUE(ticked);
}

// ---- The clock.

TEST_F(LoopCoreTest, TheClockStandsStillDuringATurn) {
  std::vector<std::int64_t> read;
  ear.onTask = [&](std::uint64_t) {
    read.push_back(core.Now());
    world.Advance(1000);
    read.push_back(core.Now());
  };
  ear.Post(1);
  const std::int64_t before = world.MonotonicMilliseconds();
  loop.RunOnce(0);
  EXPECT_EQ(read, (std::vector<std::int64_t>{before, before}));
  EXPECT_EQ(core.Now(), before + 1000) << "and goes on behind it";
}

TEST_F(LoopCoreTest, TheLoopKnowsWhoseClockItGoesBy) { EXPECT_EQ(&loop.TheWorld(), &world); }

}  // namespace
}  // namespace TesselServer
