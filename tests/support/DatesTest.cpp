#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <limits>

#include "support/Dates.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

TEST(DatesTest, KnownMomentsHaveTheirCalendarTerms) {
  struct {
    std::int64_t seconds;
    CivilTime civil;
    const char* why;
  } const cases[] = {
      {0, {1970, 1, 1, 0, 0, 0, 5}, "a Thursday"},
      {-1, {1969, 12, 31, 23, 59, 59, 4}, "the second before"},
      {86399, {1970, 1, 1, 23, 59, 59, 5}, "the end of a day"},
      {86400, {1970, 1, 2, 0, 0, 0, 6}, "the next day"},
      {951782400, {2000, 2, 29, 0, 0, 0, 3}, "2000 is a leap year"},
      {951868800, {2000, 3, 1, 0, 0, 0, 4}, "the day behind it"},
      {1709164800, {2024, 2, 29, 0, 0, 0, 5}, "a leap day"},
      {1735689599, {2024, 12, 31, 23, 59, 59, 3}, "the end of a leap year"},
      {1794766805, {2026, 11, 15, 18, 20, 5, 1}, "a Sunday"},
      {4107542400, {2100, 3, 1, 0, 0, 0, 2}, "2100 is no leap year"},
      {4107542399, {2100, 2, 28, 23, 59, 59, 1}, "so 28 February is before it"},
      {-2208988800, {1900, 1, 1, 0, 0, 0, 2}, "a Monday"},
      {-2209161600, {1899, 12, 30, 0, 0, 0, 7}, "day 0 of a Date"},
      {2147483648, {2038, 1, 19, 3, 14, 8, 3}, "behind 31 bits"},
      {253402300799, {9999, 12, 31, 23, 59, 59, 6}, "the last second of four digits"},
      {-62167219200, {0, 1, 1, 0, 0, 0, 7}, "the year 0"},
      {-62167219201, {-1, 12, 31, 23, 59, 59, 6}, "and the one before"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CivilFromSeconds(c.seconds), c.civil) << c.why;
    EXPECT_EQ(SecondsFromCivil(c.civil), c.seconds) << c.why;
  }
}

TEST(DatesTest, EveryDayOfElevenCenturiesFollowsTheOneBeforeIt) {
  const std::int64_t end = SecondsFromCivil({2501, 1, 1, 0, 0, 0, 0});
  std::int64_t seconds = SecondsFromCivil({1399, 12, 31, 0, 0, 0, 0});
  CivilTime before = CivilFromSeconds(seconds);
  for (seconds += 86400; seconds < end; seconds += 86400) {
    const CivilTime day = CivilFromSeconds(seconds);
    const bool newMonth = day.day == 1;
    const bool newYear = newMonth && day.month == 1;
    ASSERT_EQ(day.day, newMonth ? 1 : before.day + 1);
    ASSERT_EQ(day.month, newYear ? 1 : before.month + (newMonth ? 1 : 0));
    ASSERT_EQ(day.year, before.year + (newYear ? 1 : 0));
    ASSERT_EQ(day.weekday, before.weekday % 7 + 1);
    ASSERT_EQ(SecondsFromCivil(day), seconds);
    before = day;
  }
}

TEST(DatesTest, TheCalendarAgreesWithThatOfTheSystem) {
  for (std::int64_t seconds = -70'000'000'000; seconds < 260'000'000'000; seconds += 1'234'567'891) {
    const std::time_t time = seconds;
    std::tm system{};
    ASSERT_NE(gmtime_r(&time, &system), nullptr);
    const CivilTime expected{system.tm_year + std::int64_t{1900},
                             system.tm_mon + 1,
                             system.tm_mday,
                             system.tm_hour,
                             system.tm_min,
                             system.tm_sec,
                             system.tm_wday + 1};
    EXPECT_EQ(CivilFromSeconds(seconds), expected) << seconds;
  }
}

TEST(DatesTest, EveryNumberOfSecondsHasACalendarTermAndComesBack) {
  using Limits = std::numeric_limits<std::int64_t>;
  for (const std::int64_t seconds : {Limits::min(), Limits::min() + 1, Limits::max() - 1, Limits::max()}) {
    const CivilTime civil = CivilFromSeconds(seconds);
    EXPECT_GE(civil.month, 1);
    EXPECT_LE(civil.month, 12);
    EXPECT_GE(civil.day, 1);
    EXPECT_LE(civil.day, 31);
    EXPECT_GE(civil.weekday, 1);
    EXPECT_LE(civil.weekday, 7);
    EXPECT_EQ(SecondsFromCivil(civil), seconds);
  }
}

TEST(DatesTest, ADateIsADayCountWithTheTimeAsItsFraction) {
  struct {
    Date date;
    CivilTime civil;
  } const cases[] = {
      {0, {1899, 12, 30, 0, 0, 0, 7}},        {1, {1899, 12, 31, 0, 0, 0, 1}},
      {2, {1900, 1, 1, 0, 0, 0, 2}},          {0.5, {1899, 12, 30, 12, 0, 0, 7}},
      {25569, {1970, 1, 1, 0, 0, 0, 5}},      {46341.75, {2026, 11, 15, 18, 0, 0, 1}},
      {-1, {1899, 12, 29, 0, 0, 0, 6}},       {kFirstDate, {100, 1, 1, 0, 0, 0, 6}},
      {kLastDate, {10000, 1, 1, 0, 0, 0, 7}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CivilFromDate(c.date), c.civil) << c.date;
    EXPECT_EQ(DateFromCivil(c.civil), c.date);
  }
}

TEST(DatesTest, ADateIsRoundedToTheNearestSecond) {
  constexpr double kSecond = 1.0 / 86400;
  EXPECT_EQ(CivilFromDate(40000 + 0.4 * kSecond).second, 0);
  EXPECT_EQ(CivilFromDate(40000 + 0.6 * kSecond).second, 1);
  EXPECT_EQ(CivilFromDate(40000 - 0.4 * kSecond), CivilFromDate(40000)) << "up into the next day";
}

TEST(DatesTest, EverySecondSurvivesTheWayThroughADate) {
  for (const std::int64_t day : {-59'000'000'000LL, -2'209'161'600LL, 0LL, 1'794'700'800LL, 253'402'214'400LL}) {
    for (std::int64_t second = 0; second < 86400; second += 7) {
      ASSERT_EQ(SecondsFromDate(DateFromSeconds(day + second)), day + second);
    }
  }
}

TEST(DatesTest, ADateOutsideTheRangeIsMovedIntoIt) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr std::int64_t kFarAway = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(SecondsFromDate(1e300), SecondsFromDate(kLastDate));
  EXPECT_EQ(SecondsFromDate(kInfinity), SecondsFromDate(kLastDate));
  EXPECT_EQ(SecondsFromDate(-kInfinity), SecondsFromDate(kFirstDate));
  EXPECT_EQ(SecondsFromDate(std::nan("")), SecondsFromDate(0));
  EXPECT_EQ(DateFromSeconds(kFarAway), kLastDate);
  EXPECT_EQ(DateFromSeconds(-kFarAway), kFirstDate);
}

TEST(DatesTest, LocalTimeLacksTheBiasOfItsMoment) {
  Kit::FakeWorld world;
  world.utcSeconds = 1794766805;
  EXPECT_EQ(CivilFromDate(LocalNow(world)), (CivilTime{2026, 11, 15, 18, 20, 5, 1}));
  world.bias = [](std::int64_t seconds) { return seconds < 1794766805 ? -120 : 330; };
  EXPECT_EQ(CivilFromDate(LocalNow(world)), (CivilTime{2026, 11, 15, 12, 50, 5, 1}));
  EXPECT_EQ(CivilFromDate(LocalDate(world, 1794766804)), (CivilTime{2026, 11, 15, 20, 20, 4, 1}));
}

TEST(DatesTest, MomentsThatNoCalendarHasStayAtItsEndsInEveryZone) {
  Kit::FakeWorld world;
  for (const std::int32_t bias :
       {std::numeric_limits<std::int32_t>::min(), 0, std::numeric_limits<std::int32_t>::max()}) {
    world.bias = [bias](std::int64_t) { return bias; };
    EXPECT_EQ(LocalDate(world, std::numeric_limits<std::int64_t>::max()), kLastDate) << bias;
    EXPECT_EQ(LocalDate(world, std::numeric_limits<std::int64_t>::min()), kFirstDate) << bias;
  }
}

TEST(DatesTest, SecondsBetweenIsSignedAndWhole) {
  EXPECT_EQ(SecondsBetween(40000, 40001), 86400);
  EXPECT_EQ(SecondsBetween(40001, 40000), -86400);
  EXPECT_EQ(SecondsBetween(40000, 40000), 0);
  EXPECT_EQ(SecondsBetween(DateFromSeconds(1000), DateFromSeconds(1061)), 61);
  EXPECT_EQ(SecondsBetween(-1e300, 1e300), SecondsBetween(kFirstDate, kLastDate));
}

}  // namespace
}  // namespace TesselServer
