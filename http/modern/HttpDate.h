// Dates of header fields (RFC 9110 section 5.6.7): written in the one form that is written today, read in the three
// forms that ever were.
//
//   Sun, 06 Nov 1994 08:49:37 GMT      today's
//   Sunday, 06-Nov-94 08:49:37 GMT     of RFC 850, with two digits of the year
//   Sun Nov  6 08:49:37 1994           of asctime()
//
// Thread:    any; pure.
// Ownership: values.
// Errors:    a text that is no date gives nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace TesselServer::Modern {

inline constexpr std::size_t kHttpDateBytes = 29;  // of today's form, whatever the date

// The years that four digits can name, as seconds since 1 January 1970 UTC.
inline constexpr std::int64_t kFirstHttpDate = -62'167'219'200;  // 1 January 0000, 00:00:00
inline constexpr std::int64_t kLastHttpDate = 253'402'300'799;   // 31 December 9999, 23:59:59

// Writes the date of `utcSeconds`, kHttpDateBytes bytes without an end, to `to`. A moment outside kFirstHttpDate to
// kLastHttpDate is moved to the nearer of the two: a file's time may be anything.
void WriteHttpDate(char* to, std::int64_t utcSeconds);

//   HttpDateText(784111777);  // "Sun, 06 Nov 1994 08:49:37 GMT"
std::string HttpDateText(std::int64_t utcSeconds);

// The moment that `text` names, in seconds since 1 January 1970 UTC. All of `text` must be a date in one of the three
// forms, letters in their case and no blank too many; the day must exist, the second may be 60 (a leap second, which
// counts as the next minute's first). The day of the week must be a day's name, but need not be that date's. Two digits
// of a year mean the last year with these digits for which the date is no more than 50 years after `now`.
std::optional<std::int64_t> ParseHttpDate(std::string_view text, std::int64_t now);

}  // namespace TesselServer::Modern
