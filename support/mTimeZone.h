// Time stamps for the wire and the log: the HTTP date and the offset from UTC, always in English.
//
// Thread:    any; with a World, that world's thread.
// Ownership: values.
// Errors:    none.
#pragma once

#include <cstdint>
#include <string>

#include "support/Dates.h"

namespace TesselServer {

class World;

// The HTTP date of a moment, in seconds since 1 January 1970 UTC, or of now.
//
//   GMTDate(1794766800);  // "Sun, 15 Nov 2026 18:20:00 GMT"
std::string GMTDate(std::int64_t utcSeconds);
std::string GMTDate(const World& world);

// "Sun" to "Sat" and "Jan" to "Dec".
std::string WeekdayAbbrev(Date date);
std::string MonthAbbrev(Date date);

// The offset of local time from UTC as a sign and four digits, from the minutes that local time lacks to UTC
// (World::BiasMinutes): -60 gives "+0100", 300 gives "-0500".
// kept: whole hours only. The bias is divided by 60 towards minus infinity, so -330 gives "+0600" and 210 "-0300".
// kept: UTC itself is "-0000".
std::string UTCOffsetText(std::int32_t biasMinutes);

// The same at the moment `utcSeconds`.
std::string UTCOffsetText(const World& world, std::int64_t utcSeconds);

}  // namespace TesselServer
