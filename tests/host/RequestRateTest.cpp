#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/RequestRate.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

constexpr RequestRate::TimePoint kStart{1000s};

TEST(RequestRateTest, HasNothingBeforeTheFirstSecond) {
  RequestRate rate(kStart);
  EXPECT_THAT(rate.PerSecond(), IsEmpty());
  rate.Count(kStart, 3);
  EXPECT_THAT(rate.PerSecond(), IsEmpty());
}

TEST(RequestRateTest, KeepsWhatCameInEachSecondOldestFirst) {
  RequestRate rate(kStart);
  rate.Count(kStart + 1s, 7);
  rate.Count(kStart + 2s, 7);
  rate.Count(kStart + 3s, 10);
  EXPECT_THAT(rate.PerSecond(), ElementsAre(7, 0, 3));
}

TEST(RequestRateTest, SpreadsWhatCameBetweenTwoCalls) {
  struct {
    std::chrono::milliseconds gap;
    std::int64_t came;
    std::deque<std::int64_t> spread;
    const char* why;
  } const cases[] = {
      {2s, 3, {2, 1}, "the one left over is the earliest's"}, {4s, 8, {2, 2, 2, 2}, "even"},
      {5s, 2, {1, 1, 0, 0, 0}, "fewer than seconds"},         {3s, 0, {0, 0, 0}, "none came"},
      {1400ms, 5, {5}, "late, but nearer to one second"},     {1600ms, 5, {3, 2}, "nearer to two"},
  };
  for (const auto& c : cases) {
    RequestRate rate(kStart);
    rate.Count(kStart + c.gap, c.came);
    EXPECT_EQ(rate.PerSecond(), c.spread) << c.why;
  }
}

TEST(RequestRateTest, LatenessDoesNotAddUpToASecondThatNeverWas) {
  RequestRate rate(kStart);
  for (int tick = 1; tick <= 100; ++tick) rate.Count(kStart + tick * 1s + 40ms * (tick % 2), tick);
  EXPECT_EQ(rate.PerSecond(), std::deque<std::int64_t>(100, 1));
}

TEST(RequestRateTest, ACallThatComesTooSoonWaitsForTheNext) {
  RequestRate rate(kStart);
  rate.Count(kStart + 400ms, 4);
  EXPECT_THAT(rate.PerSecond(), IsEmpty());
  rate.Count(kStart + 1s, 6);
  EXPECT_THAT(rate.PerSecond(), ElementsAre(6));
}

TEST(RequestRateTest, ForgetsWhatIsOlderThanFiveMinutes) {
  RequestRate rate(kStart);
  std::int64_t requests = 0;
  for (int second = 1; second <= 310; ++second) rate.Count(kStart + second * 1s, requests += second);
  ASSERT_EQ(rate.PerSecond().size(), RequestRate::kSeconds);
  EXPECT_EQ(rate.PerSecond().front(), 11);
  EXPECT_EQ(rate.PerSecond().back(), 310);
}

TEST(RequestRateTest, AGapLongerThanFiveMinutesLeavesItsLastFiveMinutes) {
  RequestRate rate(kStart);
  rate.Count(kStart + 1s, 9);
  rate.Count(kStart + 1s + 24h, 9 + 86400 + 86399);
  EXPECT_EQ(rate.PerSecond().size(), RequestRate::kSeconds);
  EXPECT_EQ(rate.PerSecond().front(), 2);
  EXPECT_EQ(rate.PerSecond().back(), 1);
}

TEST(RequestRateTest, ANumberThatFallsCountsAsNone) {
  RequestRate rate(kStart);
  rate.Count(kStart + 1s, 5);
  rate.Count(kStart + 2s, 2);
  rate.Count(kStart + 3s, 4);
  EXPECT_THAT(rate.PerSecond(), ElementsAre(5, 0, 2));
}

}  // namespace
}  // namespace TesselServer
