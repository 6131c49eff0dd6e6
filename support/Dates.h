// Dates: the day count that the interface speaks, the calendar, and the way between them. Pure arithmetic in the
// Gregorian calendar (also before it was in use); leap seconds do not exist.
//
// Thread:    any.
// Ownership: values.
// Errors:    none; a date outside kFirstDate to kLastDate is moved to the nearer of the two, one that is no number
//            counts as 0.
#pragma once

#include <cstdint>

namespace TesselServer {

class World;

// Days since 30 December 1899, 00:00; the fraction is the time of day (0.5 is noon). It has no time zone: its source
// says whether it is local time or UTC.
using Date = double;

inline constexpr Date kFirstDate = -657434.0;  // 1 January 100: the first year that dates have
inline constexpr Date kLastDate = 2958466.0;   // the end of 31 December 9999: the last year of four digits

// A moment in calendar terms.
struct CivilTime {
  std::int64_t year = 1899;
  std::int32_t month = 12;   // 1 to 12
  std::int32_t day = 30;     // 1 to 31
  std::int32_t hour = 0;     // 0 to 23
  std::int32_t minute = 0;   // 0 to 59
  std::int32_t second = 0;   // 0 to 59
  std::int32_t weekday = 7;  // Sunday = 1 to Saturday = 7
  bool operator==(const CivilTime&) const = default;
};

// Whole seconds since 1 January 1970, 00:00, to calendar terms and back; moments before 1970 included. The way back
// ignores `weekday` and is for moments that 64 bits of seconds can count: years within 292 thousand million.
//
//   CivilFromSeconds(-1);  // Wednesday, 31 December 1969, 23:59:59
CivilTime CivilFromSeconds(std::int64_t secondsSince1970);
std::int64_t SecondsFromCivil(const CivilTime& civil);

// The same for a Date, rounded to the nearest second.
Date DateFromSeconds(std::int64_t secondsSince1970);
std::int64_t SecondsFromDate(Date date);
CivilTime CivilFromDate(Date date);
Date DateFromCivil(const CivilTime& civil);

// The local date and time at the moment `utcSeconds`, and now.
Date LocalDate(const World& world, std::int64_t utcSeconds);
Date LocalNow(const World& world);

// Whole seconds from `from` to `to`; negative when `to` is the earlier one.
std::int64_t SecondsBetween(Date from, Date to);

}  // namespace TesselServer
