#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

class TimerTest : public testing::Test {
 protected:
  // Lets time pass and gives the loop one turn. How many ticks came.
  int After(std::int64_t milliseconds) {
    const int before = ticks;
    world.Advance(milliseconds);
    loop.RunOnce(0);
    return ticks - before;
  }

  void Start(Timer& timer, std::int32_t interval) {
    timer.OnTick([this] { ++ticks; });
    timer.Interval(interval);
    timer.Enabled(true);
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  int ticks = 0;
};

TEST_F(TimerTest, IsDisabledAndTenSecondsLongAtFirst) {
  Timer timer(loop);
  timer.OnTick([this] { ++ticks; });
  EXPECT_FALSE(timer.Enabled());
  EXPECT_EQ(timer.Interval(), 10'000);
  EXPECT_EQ(After(60'000), 0);
}

TEST_F(TimerTest, TicksOnceEachInterval) {
  Timer timer(loop);
  Start(timer, 100);
  EXPECT_EQ(After(0), 0) << "not at once";
  EXPECT_EQ(After(99), 0);
  EXPECT_EQ(After(1), 1) << "when it is due";
  EXPECT_EQ(After(99), 0);
  EXPECT_EQ(After(1), 1) << "and again";
}

TEST_F(TimerTest, AnIntervalBelowOneIsOne) {
  for (const std::int32_t given : {0, -1, -2'147'483'647}) {
    Timer timer(loop);
    timer.Interval(given);
    EXPECT_EQ(timer.Interval(), 1) << given;
  }
}

TEST_F(TimerTest, TheLongestIntervalDoesNotOverflow) {
  Timer timer(loop);
  Start(timer, 2'147'483'647);
  EXPECT_EQ(After(2'147'483'646), 0);
  EXPECT_EQ(After(1), 1);
}

TEST_F(TimerTest, ALoopKeptFromRunningMakesNoTicksUp) {
  Timer timer(loop);
  Start(timer, 100);
  EXPECT_EQ(After(1050), 1) << "ten intervals late";
  EXPECT_EQ(After(0), 0);
  EXPECT_EQ(After(99), 0) << "the next one is counted from the late one";
  EXPECT_EQ(After(1), 1);
}

TEST_F(TimerTest, ATickThatTakesLongIsNotFollowedByABurst) {
  Timer timer(loop);
  timer.OnTick([this] {
    ++ticks;
    world.Advance(1000);
  });
  timer.Interval(10);
  timer.Enabled(true);
  EXPECT_EQ(After(10), 1);
  EXPECT_EQ(After(0), 1) << "the one that fell due meanwhile, once";
}

TEST_F(TimerTest, EnablingItAgainChangesNothing) {
  Timer timer(loop);
  Start(timer, 100);
  After(60);
  timer.Enabled(true);
  EXPECT_EQ(After(40), 1);
}

TEST_F(TimerTest, ADisabledTimerIsSilentAndBeginsAnew) {
  Timer timer(loop);
  Start(timer, 100);
  After(99);
  timer.Enabled(false);
  EXPECT_FALSE(timer.Enabled());
  EXPECT_EQ(After(500), 0);
  timer.Enabled(true);
  EXPECT_EQ(After(99), 0);
  EXPECT_EQ(After(1), 1);
}

TEST_F(TimerTest, AnotherIntervalStartsARunningTimerAnew) {
  Timer timer(loop);
  Start(timer, 100);
  After(90);
  timer.Interval(50);
  EXPECT_TRUE(timer.Enabled());
  EXPECT_EQ(After(49), 0);
  EXPECT_EQ(After(1), 1);
}

TEST_F(TimerTest, TheSameIntervalLeavesARunningTimerAlone) {
  Timer timer(loop);
  Start(timer, 100);
  After(90);
  timer.Interval(100);
  EXPECT_EQ(After(10), 1);
}

TEST_F(TimerTest, AnIntervalSetOnADisabledTimerDoesNotStartIt) {
  Timer timer(loop);
  timer.OnTick([this] { ++ticks; });
  timer.Interval(5);
  EXPECT_FALSE(timer.Enabled());
  EXPECT_EQ(After(50), 0);
}

TEST_F(TimerTest, ATimerWithoutAHandlerTicksUnheard) {
  Timer timer(loop);
  timer.Interval(10);
  timer.Enabled(true);
  world.Advance(10);
  EXPECT_TRUE(loop.RunOnce(0));
  Start(timer, 10);
  timer.OnTick(nullptr);
  EXPECT_EQ(After(10), 0);
}

TEST_F(TimerTest, MayBeDisabledInItsOwnTick) {
  Timer timer(loop);
  Start(timer, 10);
  timer.OnTick([&] {
    ++ticks;
    timer.Enabled(false);
  });
  EXPECT_EQ(After(10), 1);
  EXPECT_EQ(After(100), 0);
}

TEST_F(TimerTest, MayBeChangedInItsOwnTick) {
  Timer timer(loop);
  Start(timer, 10);
  timer.OnTick([&] {
    ++ticks;
    timer.Interval(timer.Interval() * 2);
  });
  EXPECT_EQ(After(10), 1);
  EXPECT_EQ(After(19), 0);
  EXPECT_EQ(After(1), 1);
  EXPECT_EQ(After(39), 0);
  EXPECT_EQ(After(1), 1);
}

TEST_F(TimerTest, MayBeDestroyedInItsOwnTick) {
  auto timer = std::make_unique<Timer>(loop);
  Start(*timer, 10);
  const std::string kept(200, 'k');
  std::string seen;
  timer->OnTick([&timer, &seen, kept] {
    timer.reset();
    seen = kept;  // the handler's own values outlive the timer
  });
  After(10);
  EXPECT_EQ(seen, kept);
  After(100);
}

TEST_F(TimerTest, ItsHandlerMayBeReplacedInItsOwnTick) {
  Timer timer(loop);
  std::vector<std::string> order;
  timer.OnTick([&timer, &order, name = std::string(100, 'a')] {
    timer.OnTick([&order] { order.emplace_back("second"); });
    order.push_back(name);
  });
  timer.Interval(10);
  timer.Enabled(true);
  After(10);
  After(10);
  EXPECT_EQ(order, (std::vector<std::string>{std::string(100, 'a'), "second"}));
}

TEST_F(TimerTest, OneThatFellDueInTheSameTurnMayBeTakenAwayByAnother) {
  struct {
    const char* how;
    void (*take)(std::unique_ptr<Timer>&);
  } const cases[] = {
      {"destroyed", [](std::unique_ptr<Timer>& other) { other.reset(); }},
      {"disabled", [](std::unique_ptr<Timer>& other) { other->Enabled(false); }},
      {"started anew", [](std::unique_ptr<Timer>& other) { other->Interval(11); }},
  };
  for (const auto& c : cases) {
    Timer first(loop);
    auto second = std::make_unique<Timer>(loop);
    Start(*second, 10);
    first.OnTick([&] { c.take(second); });
    first.Interval(5);
    first.Enabled(true);
    EXPECT_EQ(After(10), 0) << c.how;
  }
}

TEST_F(TimerTest, TicksComeInTheOrderInWhichTheyFallDue) {
  std::string order;
  std::vector<std::unique_ptr<Timer>> timers;
  for (const auto& [name, interval] : std::vector<std::pair<char, int>>{{'c', 30}, {'a', 10}, {'b', 20}, {'d', 30}}) {
    timers.push_back(std::make_unique<Timer>(loop));
    timers.back()->OnTick([&order, name = name] { order += name; });
    timers.back()->Interval(interval);
    timers.back()->Enabled(true);
  }
  After(30);
  EXPECT_EQ(order, "abcd");
}

TEST_F(TimerTest, AnExceptionOfAHandlerIsReportedAndTheOthersTick) {
  std::vector<std::string> failures;
  loop.HandlerFailed = [&](std::string& text) { failures.push_back(text); };
  Timer bad(loop);
  Timer good(loop);
  bad.OnTick([this] {
    ++ticks;
    throw std::runtime_error("a host's own mistake");
  });
  bad.Interval(10);
  bad.Enabled(true);
  Start(good, 10);
  EXPECT_EQ(After(10), 2);
  EXPECT_EQ(After(10), 2) << "both go on";
  EXPECT_EQ(failures, std::vector<std::string>(2, "Timer: a host's own mistake"));
}

TEST_F(TimerTest, OneTurnServesABoundedNumber) {
  constexpr int kMany = EventLoop::kTimersPerTurn * 2 + 10;
  std::vector<std::unique_ptr<Timer>> timers;
  for (int i = 0; i < kMany; ++i) {
    timers.push_back(std::make_unique<Timer>(loop));
    Start(*timers.back(), 10);
  }
  EXPECT_EQ(After(10), EventLoop::kTimersPerTurn);
  EXPECT_EQ(After(0), EventLoop::kTimersPerTurn);
  EXPECT_EQ(After(0), 10);
  EXPECT_EQ(After(0), 0);
}

TEST_F(TimerTest, TheShortestTimerDoesNotKeepATurnFromEnding) {
  Timer timer(loop);
  Start(timer, 1);
  EXPECT_EQ(After(1), 1);
}

TEST_F(TimerTest, ATimerDoesNotTickInsideItsOwnHandler) {
  Timer timer(loop);
  Timer other(loop);
  int depth = 0;
  int deepest = 0;
  timer.OnTick([&] {
    ++depth;
    deepest = std::max(deepest, depth);
    world.Advance(50);
    loop.DoEvents();
    loop.RunOnce(1000);
    --depth;
  });
  timer.Interval(10);
  timer.Enabled(true);
  Start(other, 10);
  EXPECT_EQ(After(10), 0) << "that handler took the time of its turn";
  EXPECT_EQ(After(0), 1);
  EXPECT_EQ(deepest, 1);
}

TEST_F(TimerTest, ATurnThatIsLongLeavesTimersForTheNext) {
  std::string ticked;
  std::list<Timer> timers;
  for (const char* name : {"a", "b", "c"}) {
    timers.emplace_back(loop).OnTick([&ticked, name, this] {
      ticked += name;
      world.microseconds += EventLoop::kMicrosecondsPerTurn / 2;
    });
    timers.back().Interval(10);
    timers.back().Enabled(true);
  }
  world.Advance(10);
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_EQ(ticked, "ab");
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_EQ(ticked, "abc");
  EXPECT_FALSE(loop.RunOnce(0));
}

TEST_F(TimerTest, ATurnSaysWhetherItTicked) {
  Timer timer(loop);
  Start(timer, 10);
  EXPECT_FALSE(loop.RunOnce(0));
  world.Advance(10);
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_FALSE(loop.RunOnce(0));
}

}  // namespace
}  // namespace TesselServer
