#include <gtest/gtest.h>

#include <limits>

#include "support/mTimeZone.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

TEST(mTimeZoneTest, TheHttpDateRollsOverEveryBoundary) {
  struct {
    CivilTime moment;
    std::string_view text;
    const char* why;
  } const cases[] = {
      {{2026, 11, 15, 18, 20, 0, 0}, "Sun, 15 Nov 2026 18:20:00 GMT", "an ordinary moment"},
      {{2026, 11, 15, 23, 59, 59, 0}, "Sun, 15 Nov 2026 23:59:59 GMT", "the end of a day"},
      {{2026, 11, 15, 23, 59, 60, 0}, "Mon, 16 Nov 2026 00:00:00 GMT", "the next day"},
      {{2026, 11, 30, 23, 59, 60, 0}, "Tue, 01 Dec 2026 00:00:00 GMT", "the next month"},
      {{2026, 12, 31, 23, 59, 60, 0}, "Fri, 01 Jan 2027 00:00:00 GMT", "the next year"},
      {{2028, 2, 28, 23, 59, 60, 0}, "Tue, 29 Feb 2028 00:00:00 GMT", "a leap day"},
      {{2027, 2, 28, 23, 59, 60, 0}, "Mon, 01 Mar 2027 00:00:00 GMT", "none"},
      {{1970, 1, 1, 0, 0, 0, 0}, "Thu, 01 Jan 1970 00:00:00 GMT", "the beginning of the count"},
      {{1969, 12, 31, 23, 59, 59, 0}, "Wed, 31 Dec 1969 23:59:59 GMT", "before it"},
  };
  for (const auto& c : cases) EXPECT_EQ(GMTDate(SecondsFromCivil(c.moment)), c.text) << c.why;
}

TEST(mTimeZoneTest, TheHttpDateOfNowDoesNotDependOnTheTimeZone) {
  Kit::FakeWorld world;
  for (const std::int32_t bias : {-840, -330, 0, 210, 720}) {
    world.bias = [bias](std::int64_t) { return bias; };
    EXPECT_EQ(GMTDate(world), "Sun, 15 Nov 2026 18:20:05 GMT") << bias;
  }
}

TEST(mTimeZoneTest, WeekdaysAndMonthsAreAbbreviated) {
  const std::string_view days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  const std::string_view months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(WeekdayAbbrev(DateFromCivil({2026, 11, 15 + i, 12, 0, 0, 0})), days[i]);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(MonthAbbrev(DateFromCivil({2026, i + 1, 28, 23, 59, 59, 0})), months[i]);
}

TEST(mTimeZoneTest, TheOffsetIsInWholeHoursRoundedTowardsTheEast) {
  struct {
    std::int32_t bias;
    std::string_view text;
  } const cases[] = {
      {0, "-0000"},    {-60, "+0100"},  {300, "-0500"},  {-330, "+0600"},   {210, "-0300"},
      {-1, "+0100"},   {1, "-0000"},    {59, "-0000"},   {60, "-0100"},     {-59, "+0100"},
      {-61, "+0200"},  {-720, "+1200"}, {720, "-1200"},  {-765, "+1300"},   {-840, "+1400"},
      {-345, "+0600"}, {570, "-0900"},  {-600, "+1000"}, {-6000, "+10000"},
  };
  for (const auto& c : cases) EXPECT_EQ(UTCOffsetText(c.bias), c.text) << c.bias;
  EXPECT_EQ(UTCOffsetText(std::numeric_limits<std::int32_t>::min()), "+3579139500");
  EXPECT_EQ(UTCOffsetText(std::numeric_limits<std::int32_t>::max()), "-3579139400");
}

TEST(mTimeZoneTest, TheOffsetFollowsTheChangeToSummerTime) {
  Kit::FakeWorld world;
  const std::int64_t change = 1774746000;  // 29 March 2026, 01:00 UTC
  world.bias = [](std::int64_t seconds) { return seconds < change ? -60 : -120; };
  EXPECT_EQ(UTCOffsetText(world, change - 1), "+0100");
  EXPECT_EQ(UTCOffsetText(world, change), "+0200");
}

}  // namespace
}  // namespace TesselServer
