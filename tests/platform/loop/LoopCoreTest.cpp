#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/loop/LoopCore.h"
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
    ear.onNotice = [this](std::uint64_t cookie) { heard += "n" + std::to_string(cookie); };
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

TEST_F(LoopCoreTest, AWatchHearsItsDescriptorUntilItIsTakenBack) {
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

TEST_F(LoopCoreTest, WhatIsNotReadIsHeardAgain) {
  ear.onEvents = [this](std::uint64_t) { heard += "x"; };
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  EXPECT_EQ(Turn(), "x");
  EXPECT_EQ(Turn(), "x");
}

TEST_F(LoopCoreTest, AChangedWatchHearsOnlyWhatItAsksFor) {
  const WatchId watch = ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  core.Change(watch, 0);
  EXPECT_EQ(Turn(), "");
  core.Change(watch, EPOLLIN);
  EXPECT_EQ(Turn(), "0");
}

TEST_F(LoopCoreTest, AWatchThatTheKernelRefusesIsZero) {
  EXPECT_EQ(core.Watch(-1, EPOLLIN, ear, 7), 0u);
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

TEST_F(LoopCoreTest, OneThatIsTakenBackInTheSameBatchHearsNothing) {
  WatchId watches[2] = {ear.Watch(pipes[0], 0), ear.Watch(pipes[1], 1)};
  ear.onEvents = [&](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    core.Unwatch(watches[1 - cookie]);
  };
  pipes[0].Fill();
  pipes[1].Fill();
  EXPECT_EQ(Turn().size(), 1u) << "whichever was first";
}

TEST_F(LoopCoreTest, ItsSuccessorDoesNotHearTheOldEvent) {
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

TEST_F(LoopCoreTest, NoticesAreLeftToTheNextTurnAsWellAndEventsDoNotStarveThem) {
  ear.onEvents = [this](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    world.Advance(1);
  };
  ear.onNotice = [this](std::uint64_t cookie) {
    heard += "n" + std::to_string(cookie);
    world.Advance(1);
  };
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();  // and never drained
  core.Post(ear, 7);
  core.Post(ear, 8);
  for (const char* expected : {"0n7", "0n8", "0"}) EXPECT_EQ(Turn(), expected);
}

TEST_F(LoopCoreTest, NoticesThatTakeNoTimeDoNotGatherInLongTurns) {
  ear.onEvents = [this](std::uint64_t) {
    for (std::uint64_t i = 0; i < 100; ++i) core.Post(ear, i);
    world.Advance(1);
  };
  int noticed = 0;
  ear.onNotice = [&](std::uint64_t) { ++noticed; };
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();  // and never drained
  for (int turn = 1; turn <= 5; ++turn) {
    Turn();
    EXPECT_EQ(noticed, turn * 100);
  }
}

TEST_F(LoopCoreTest, ALongTurnIsOneForNoticesToo) {
  ear.onEvents = [this](std::uint64_t) { world.Advance(1); };
  ear.onNotice = [this](std::uint64_t cookie) { heard += std::to_string(cookie) + (loop.TurnIsLong() ? "l" : "s"); };
  core.Post(ear, 1);
  EXPECT_EQ(Turn(), "1s");
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  core.Post(ear, 2);
  core.Post(ear, 3);
  EXPECT_EQ(Turn(), "2l3l");
}

TEST_F(LoopCoreTest, WhoeverYieldsInALongTurnGetsTheNextAllTheSame) {
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

// ---- Notices.

TEST_F(LoopCoreTest, ANoticeComesOnceInTheNextTurn) {
  core.Post(ear, 5);
  EXPECT_EQ(Turn(), "n5");
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, NoticesComeInTheirOrderBehindTheEvents) {
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  core.Post(ear, 1);
  core.Post(ear, 2);
  EXPECT_EQ(Turn(), "0n1n2");
}

TEST_F(LoopCoreTest, ANoticeOfAnEventComesInTheSameTurn) {
  ear.onEvents = [this](std::uint64_t cookie) {
    pipes[cookie].Drain();
    core.Post(ear, 9);
  };
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  EXPECT_EQ(Turn(), "n9");
}

TEST_F(LoopCoreTest, ANoticeOfANoticeWaitsForTheNextTurn) {
  ear.onNotice = [this](std::uint64_t cookie) {
    heard += "n" + std::to_string(cookie);
    core.Post(ear, cookie + 1);
  };
  core.Post(ear, 1);
  EXPECT_EQ(Turn(), "n1");
  EXPECT_EQ(Turn(), "n2");
}

TEST_F(LoopCoreTest, AForgottenClientHearsNoNotice) {
  Kit::LoopEar other(core);
  std::string others;
  other.onNotice = [&](std::uint64_t) { others += "o"; };
  core.Post(ear, 1);
  core.Post(other, 2);
  core.Post(ear, 3);
  core.Forget(ear);
  EXPECT_EQ(Turn(), "");
  EXPECT_EQ(others, "o");
}

TEST_F(LoopCoreTest, AClientMayBeForgottenInsideANoticeOfAnother) {
  auto other = std::make_unique<Kit::LoopEar>(core);
  other->onNotice = [&](std::uint64_t) { heard += "dead"; };
  ear.onNotice = [&](std::uint64_t) { other.reset(); };
  core.Post(ear, 1);
  core.Post(*other, 2);
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, TheEndOfATurnIsHeardOnceBehindItsNoticesAndBeforeItsTimers) {
  Timer timer(loop);
  timer.Interval(1);
  timer.OnTick([this] { heard += "t"; });
  timer.Enabled(true);
  ear.onTurnEnd = [this] { heard += "e"; };
  ear.onEvents = [this](std::uint64_t cookie) {
    pipes[cookie].Drain();
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(core.AtTurnEnd(ear));
    core.Post(ear, 9);
  };
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  world.Advance(1);
  EXPECT_EQ(Turn(), "n9et");
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, WhoeverYieldsEndsTheTurnForThoseWhoWaitForIt) {
  ear.onTurnEnd = [this] { heard += "e"; };
  ear.onNotice = [this](std::uint64_t cookie) {
    heard += "n" + std::to_string(cookie);
    if (cookie == 2) loop.DoEvents();
    core.AtTurnEnd(ear);
    heard += ".";
  };
  for (const std::uint64_t cookie : {1, 2, 3}) core.Post(ear, cookie);
  EXPECT_EQ(Turn(), "n1.n2en3.e.e") << "before what is delivered inside, and behind it";
}

TEST_F(LoopCoreTest, WhoeverYieldsBrieflyLetsThoseWait) {
  ear.onTurnEnd = [this] { heard += "e"; };
  ear.onNotice = [this](std::uint64_t cookie) {
    heard += "n" + std::to_string(cookie);
    if (cookie == 2) loop.Yield();
    core.AtTurnEnd(ear);
    heard += ".";
  };
  for (const std::uint64_t cookie : {1, 2, 3}) core.Post(ear, cookie);
  EXPECT_EQ(Turn(), "n1.n2n3..e");
}

TEST_F(LoopCoreTest, WhoeverYieldsBrieflyInALongTurnGetsNothing) {
  ear.onNotice = [this](std::uint64_t cookie) {
    world.microseconds += EventLoop::kMicrosecondsPerTurn;
    const std::string before = heard;
    loop.Yield();
    EXPECT_EQ(heard, before);
    heard += "n" + std::to_string(cookie);
  };
  for (const std::uint64_t cookie : {1, 2}) core.Post(ear, cookie);
  EXPECT_EQ(Turn(), "n1");
  EXPECT_EQ(Turn(), "n2");
}

TEST_F(LoopCoreTest, WhoeverIsAboutToTakeLongLetsThoseGoFirst) {
  ear.onTurnEnd = [this] { heard += "e"; };
  ear.onNotice = [this](std::uint64_t cookie) {
    core.AtTurnEnd(ear);
    heard += "n" + std::to_string(cookie);
    loop.Flush();
    heard += ".";
  };
  for (const std::uint64_t cookie : {1, 2}) core.Post(ear, cookie);
  EXPECT_EQ(Turn(), "n1e.n2e.") << "and nothing is delivered meanwhile";
}

TEST_F(LoopCoreTest, YieldingAtTheGreatestDepthLetsThoseGoToo) {
  int depth = 0;
  int most = 0;
  ear.onTurnEnd = [this] { heard += "e"; };
  ear.onNotice = [&, this](std::uint64_t cookie) {
    most = std::max(most, ++depth);
    core.Post(ear, cookie + 1);
    const std::string before = heard;
    core.AtTurnEnd(ear);
    loop.DoEvents();
    EXPECT_EQ(heard.substr(before.size(), 1), "e") << "at depth " << depth;
    --depth;
  };
  core.Post(ear, 1);
  Turn();
  EXPECT_EQ(most, EventLoop::kMaxNesting + 1);
}

TEST_F(LoopCoreTest, WhoeverYieldsDoesNotProlongALongTurn) {
  std::size_t delivered = 0;
  ear.onNotice = [&, this](std::uint64_t cookie) {
    ++delivered;
    if (cookie < 1000) core.Post(ear, cookie + 1);
    world.microseconds += 20;
    loop.Yield();
  };
  for (int i = 0; i < 100; ++i) core.Post(ear, 0);
  const std::int64_t began = world.MonotonicMicroseconds();
  loop.RunOnce(0);
  EXPECT_LE(world.MonotonicMicroseconds() - began, 2 * EventLoop::kMicrosecondsPerTurn);
  EXPECT_GT(delivered, 0u);
}

TEST_F(LoopCoreTest, AnExceptionEndsTheTurnAsWell) {
  ear.onTurnEnd = [this] { heard += "e"; };
  ear.onNotice = [this](std::uint64_t) {
    core.AtTurnEnd(ear);
    throw std::bad_alloc();
  };
  core.Post(ear, 1);
  heard.clear();
  EXPECT_THROW(loop.RunOnce(0), std::bad_alloc);
  EXPECT_EQ(heard, "e");
}

TEST_F(LoopCoreTest, OutsideATurnThereIsNoEndToWaitFor) {
  ear.onTurnEnd = [this] { heard += "e"; };
  EXPECT_FALSE(core.AtTurnEnd(ear));
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, AForgottenClientDoesNotHearTheEndOfTheTurn) {
  ear.onTurnEnd = [this] { heard += "e"; };
  ear.onNotice = [this](std::uint64_t) {
    core.AtTurnEnd(ear);
    core.Forget(ear);
  };
  core.Post(ear, 1);
  EXPECT_EQ(Turn(), "");
}

TEST_F(LoopCoreTest, AWaitingNoticeKeepsATurnFromWaiting) {
  core.Post(ear, 1);
  loop.RunOnce(-1);
  EXPECT_EQ(heard, "n1");
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

TEST_F(LoopCoreTest, YieldingDeliversNotices) {
  ear.onEvents = [&](std::uint64_t cookie) {
    pipes[cookie].Drain();
    core.Post(ear, 4);
    loop.DoEvents();
    heard += "back";
  };
  ear.Watch(pipes[0], 0);
  pipes[0].Fill();
  EXPECT_EQ(Turn(), "n4back");
}

TEST_F(LoopCoreTest, YieldingNestsABoundedNumberOfTimes) {
  int depth = 0;
  int deepest = 0;
  ear.onNotice = [&](std::uint64_t cookie) {
    deepest = std::max(deepest, ++depth);
    if (cookie < 100) core.Post(ear, cookie + 1);
    loop.DoEvents();
    --depth;
  };
  core.Post(ear, 1);
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
  ear.onNotice = [&](std::uint64_t) {
    world.Advance(10);
    EXPECT_TRUE(loop.RunOnce(-1)) << "and does not wait";
    EXPECT_EQ(inner, 0) << "nor tick";
  };
  core.Post(ear, 1);
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
  ear.onNotice = [&](std::uint64_t) {
    read.push_back(core.Now());
    world.Advance(1000);
    read.push_back(core.Now());
  };
  core.Post(ear, 1);
  const std::int64_t before = world.MonotonicMilliseconds();
  loop.RunOnce(0);
  EXPECT_EQ(read, (std::vector<std::int64_t>{before, before}));
  EXPECT_EQ(core.Now(), before + 1000) << "and goes on behind it";
}

TEST_F(LoopCoreTest, TheLoopTellsWhoseClockItGoesBy) { EXPECT_EQ(&loop.TheWorld(), &world); }

// ---- The end of what was closed.

TEST_F(LoopCoreTest, WhatIsBuriedOutsideANotificationDiesAtOnce) {
  auto thing = std::make_shared<int>(1);
  const std::weak_ptr<int> alive = thing;
  core.Bury(std::move(thing));
  EXPECT_TRUE(alive.expired());
}

TEST_F(LoopCoreTest, WhatIsBuriedInsideLivesUntilTheLastHandlerHasReturned) {
  auto thing = std::make_shared<int>(1);
  const std::weak_ptr<int> alive = thing;
  ear.onNotice = [&](std::uint64_t cookie) {
    if (cookie == 1) {
      core.Post(ear, 2);
      loop.DoEvents();
      EXPECT_FALSE(alive.expired()) << "the inner handler has returned, this one has not";
    } else {
      core.Bury(std::move(thing));
      EXPECT_FALSE(alive.expired());
    }
  };
  core.Post(ear, 1);
  loop.RunOnce(0);
  EXPECT_TRUE(alive.expired());
}

TEST_F(LoopCoreTest, WhatDiesMayBuryMoreAndYield) {
  struct Chain {
    EventLoop& loop;
    int left;
    int& dead;
    ~Chain() {
      ++dead;
      loop.DoEvents();
      if (left > 0) loop.Core().Bury(std::make_shared<Chain>(loop, left - 1, dead));
    }
    Chain(EventLoop& l, int n, int& d) : loop(l), left(n), dead(d) {}
  };
  int dead = 0;
  ear.onNotice = [&](std::uint64_t) { core.Bury(std::make_shared<Chain>(loop, 3, dead)); };
  core.Post(ear, 1);
  loop.RunOnce(0);
  EXPECT_EQ(dead, 4);
}

TEST_F(LoopCoreTest, AnExceptionThroughATurnLeavesTheLoopWhole) {
  auto thing = std::make_shared<int>(1);
  const std::weak_ptr<int> alive = thing;
  ear.onNotice = [&](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    if (cookie != 1) return;
    core.Bury(std::move(thing));
    throw std::runtime_error("lost");
  };
  core.Post(ear, 1);
  core.Post(ear, 2);
  EXPECT_THROW(loop.RunOnce(0), std::runtime_error);
  EXPECT_TRUE(alive.expired());
  EXPECT_EQ(Turn(), "2");
}

}  // namespace
}  // namespace TesselServer
