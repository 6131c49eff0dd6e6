#include "support/Dates.h"

#include <algorithm>
#include <cmath>

#include "platform/world/World.h"

namespace TesselServer {
namespace {

constexpr std::int64_t kSecondsPerMinute = 60;
constexpr std::int64_t kSecondsPerHour = 3600;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::int64_t kDateOf1970 = 25569;  // 1 January 1970 as a Date

// The range of dates in seconds since 1970, and what no zone's bias in minutes can outweigh.
constexpr std::int64_t kFirstSecond = (static_cast<std::int64_t>(kFirstDate) - kDateOf1970) * kSecondsPerDay;
constexpr std::int64_t kLastSecond = (static_cast<std::int64_t>(kLastDate) - kDateOf1970) * kSecondsPerDay;
constexpr std::int64_t kMostBias = (std::int64_t{1} << 31) * kSecondsPerMinute;

// The calendar repeats itself every 400 years. A year that begins in March has its leap day at its end, so the days
// before a month do not depend on the year.
constexpr std::int64_t kDaysPerCycle = 146097;
constexpr std::int64_t kYearsPerCycle = 400;
constexpr std::int64_t kDaysFromMarch0To1970 = 719468;  // from 1 March of the year 0 to 1 January 1970

constexpr std::int64_t FloorDivide(std::int64_t dividend, std::int64_t divisor) {
  return dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
}

// Days from 1 March to the first day of the month that is `monthFromMarch` (March = 0) months later.
constexpr std::int64_t DaysBeforeMonth(std::int64_t monthFromMarch) { return (153 * monthFromMarch + 2) / 5; }

// Days since 1 January 1970 of a day in the calendar.
constexpr std::int64_t DaysFromCivil(std::int64_t year, std::int64_t month, std::int64_t day) {
  const std::int64_t marchYear = month > 2 ? year : year - 1;
  const std::int64_t cycle = FloorDivide(marchYear, kYearsPerCycle);
  const std::int64_t yearOfCycle = marchYear - cycle * kYearsPerCycle;
  const std::int64_t monthFromMarch = month > 2 ? month - 3 : month + 9;
  const std::int64_t dayOfYear = DaysBeforeMonth(monthFromMarch) + day - 1;
  const std::int64_t dayOfCycle = yearOfCycle * 365 + yearOfCycle / 4 - yearOfCycle / 100 + dayOfYear;
  return cycle * kDaysPerCycle + dayOfCycle - kDaysFromMarch0To1970;
}

void SetDay(CivilTime& civil, std::int64_t daysSince1970) {
  const std::int64_t days = daysSince1970 + kDaysFromMarch0To1970;
  const std::int64_t cycle = FloorDivide(days, kDaysPerCycle);
  const std::int64_t dayOfCycle = days - cycle * kDaysPerCycle;
  const std::int64_t yearOfCycle =
      (dayOfCycle - dayOfCycle / 1460 + dayOfCycle / 36524 - dayOfCycle / (kDaysPerCycle - 1)) / 365;
  const std::int64_t dayOfYear = dayOfCycle - (365 * yearOfCycle + yearOfCycle / 4 - yearOfCycle / 100);
  const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
  civil.day = static_cast<std::int32_t>(dayOfYear - DaysBeforeMonth(monthFromMarch) + 1);
  civil.month = static_cast<std::int32_t>(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
  civil.year = cycle * kYearsPerCycle + yearOfCycle + (civil.month <= 2 ? 1 : 0);
  const std::int64_t daysSinceASunday = daysSince1970 + 4;  // 1 January 1970 was a Thursday
  civil.weekday = static_cast<std::int32_t>(daysSinceASunday - FloorDivide(daysSinceASunday, 7) * 7) + 1;
}

}  // namespace

CivilTime CivilFromSeconds(std::int64_t secondsSince1970) {
  const std::int64_t days = FloorDivide(secondsSince1970, kSecondsPerDay);
  const std::int64_t seconds = secondsSince1970 % kSecondsPerDay;
  const auto secondOfDay = static_cast<std::int32_t>(seconds < 0 ? seconds + kSecondsPerDay : seconds);
  CivilTime civil;
  SetDay(civil, days);
  civil.hour = secondOfDay / static_cast<std::int32_t>(kSecondsPerHour);
  civil.minute = secondOfDay / static_cast<std::int32_t>(kSecondsPerMinute) % 60;
  civil.second = secondOfDay % 60;
  return civil;
}

std::int64_t SecondsFromCivil(const CivilTime& civil) {
  const std::int64_t secondOfDay =
      civil.hour * kSecondsPerHour + civil.minute * kSecondsPerMinute + static_cast<std::int64_t>(civil.second);
  // Unsigned, because the first day that seconds can count begins before the first such second.
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(DaysFromCivil(civil.year, civil.month, civil.day)) *
                                       static_cast<std::uint64_t>(kSecondsPerDay) +
                                   static_cast<std::uint64_t>(secondOfDay));
}

Date DateFromSeconds(std::int64_t secondsSince1970) {
  const std::int64_t seconds = std::clamp(secondsSince1970, kFirstSecond, kLastSecond);
  return static_cast<double>(seconds + kDateOf1970 * kSecondsPerDay) / static_cast<double>(kSecondsPerDay);
}

std::int64_t SecondsFromDate(Date date) {
  if (std::isnan(date)) date = 0;
  const Date inRange = std::clamp(date, kFirstDate, kLastDate);
  return std::llround(inRange * static_cast<double>(kSecondsPerDay)) - kDateOf1970 * kSecondsPerDay;
}

CivilTime CivilFromDate(Date date) { return CivilFromSeconds(SecondsFromDate(date)); }

Date DateFromCivil(const CivilTime& civil) { return DateFromSeconds(SecondsFromCivil(civil)); }

Date LocalDate(const World& world, std::int64_t utcSeconds) {
  const std::int64_t moment = std::clamp(utcSeconds, kFirstSecond - kMostBias, kLastSecond + kMostBias);
  return DateFromSeconds(moment - world.BiasMinutes(utcSeconds) * kSecondsPerMinute);
}

Date LocalNow(const World& world) { return LocalDate(world, world.UtcSeconds()); }

std::int64_t SecondsBetween(Date from, Date to) { return SecondsFromDate(to) - SecondsFromDate(from); }

}  // namespace TesselServer
