// The access-log line: one line for each answer of the normal road.
//
// Thread:    any; pure: values in, text out.
// Errors:    none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace TesselServer {

// Of the request line, the referer and the user agent this many bytes each go into a log line, so that a client cannot
// fill a disk with a few requests.
inline constexpr std::size_t kMaxLoggedBytes = 8 * 1024;

// The time stamp of a log line, in local time; UTC is local time plus `biasMinutes`.
//
//   LogTimestamp(1794763205, -60);  // "[15/11/2026:18:20:05 +0100]"
//
// kept: the month is a number, and the zone is given in whole hours, rounded eastwards, while the time itself is exact.
std::string LogTimestamp(std::int64_t utcSeconds, std::int32_t biasMinutes);

// The whole line, without a line end. `size` is the length in bytes of the answer, its header included. What the client
// sent is made printable (support/Printable.h), so that it cannot forge a line; its quotes stay as they are.
//
//   10.0.0.7 - - [15/11/2026:18:20:05 +0100] "GET / HTTP/1.0" 200 5120 "" "curl/7.88.1"
std::string AccessLogLine(std::string_view address, std::string_view timestamp, std::string_view requestLine,
                          std::string_view status, std::int64_t size, std::string_view referer,
                          std::string_view userAgent);

}  // namespace TesselServer
