#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>

#include "platform/loop/EventLoop.h"
#include "platform/programs/TimeLimit.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

struct TimeLimitTest : testing::Test {
  void Pass(std::int64_t milliseconds) {
    world.Advance(milliseconds);
    loop.RunOnce(0);
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  int calls = 0;
};

TEST_F(TimeLimitTest, CallsOnceWhenTheTimeIsOver) {
  TimeLimit limit(loop, 200);
  limit.OnOver([this] { ++calls; });
  Pass(199);
  EXPECT_FALSE(limit.IsOver());
  EXPECT_EQ(calls, 0);
  Pass(1);
  EXPECT_TRUE(limit.IsOver());
  EXPECT_EQ(limit.Passed(), 200);
  EXPECT_EQ(calls, 1);
  Pass(10'000'000);
  EXPECT_EQ(calls, 1);
}

TEST_F(TimeLimitTest, IsNeverEarlyWhereItBeganWithinAMillisecond) {
  world.microseconds = 900;
  TimeLimit limit(loop, 10);
  limit.OnOver([this] { ++calls; });
  world.microseconds = 0;
  Pass(10);
  EXPECT_EQ(calls, 0) << "9.1 ms";
  Pass(1);
  EXPECT_EQ(calls, 1);
}

TEST_F(TimeLimitTest, AHandlerThatIsSetLateIsCalledAtTheSameMoment) {
  TimeLimit limit(loop, 200);
  Pass(150);
  limit.OnOver([this] { ++calls; });
  Pass(50);
  EXPECT_EQ(calls, 1);
}

TEST_F(TimeLimitTest, NoneIsCalledThatWasTakenBackOrWhoseLimitIsGone) {
  auto limit = std::make_unique<TimeLimit>(loop, 200);
  limit->OnOver([this] { ++calls; });
  limit->OnOver(nullptr);
  Pass(300);
  auto other = std::make_unique<TimeLimit>(loop, 200);
  other->OnOver([this] { ++calls; });
  other = nullptr;
  Pass(300);
  EXPECT_EQ(calls, 0);
}

TEST_F(TimeLimitTest, TheHandlerMayDestroyIt) {
  auto limit = std::make_unique<TimeLimit>(loop, 5);
  limit->OnOver([&] { limit = nullptr; });
  Pass(5);
  EXPECT_EQ(limit, nullptr);
}

TEST_F(TimeLimitTest, AnyNumberIsATime) {
  for (const std::int64_t none : {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
    const TimeLimit limit(loop, none);
    EXPECT_TRUE(limit.IsZero()) << none;
    EXPECT_TRUE(limit.IsOver()) << none;
  }
  for (const std::int64_t ms : {std::int64_t{1} << 31, std::int64_t{1} << 32, TimeLimit::kMaxMilliseconds,
                                std::numeric_limits<std::int64_t>::max()}) {
    calls = 0;
    TimeLimit limit(loop, ms);
    EXPECT_FALSE(limit.IsZero()) << ms;
    limit.OnOver([this] { ++calls; });
    Pass(std::min(ms, TimeLimit::kMaxMilliseconds) - 1);
    EXPECT_EQ(calls, 0) << ms;
    Pass(1);
    Pass(1);  // the timer had to begin anew
    EXPECT_EQ(calls, 1) << ms;
  }
}

}  // namespace
}  // namespace TesselServer
