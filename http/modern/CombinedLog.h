// The access log in the Combined Log Format, as programs that count visits read it without options.
//
//   192.0.2.7 - alice [21/Nov/2026:22:28:48 +0000] "GET /a HTTP/1.1" 200 1024 "http://example.org/" "curl/7.88.1"
//
// Thread:    any; pure.
// Ownership: views given are read during the call.
// Errors:    none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace TesselServer::Modern {

// Of each text that a client chose this many bytes go into a line, so that a few requests cannot fill a disk.
inline constexpr std::size_t kMaxCombinedLogText = 8 * 1024;

// The time stamp of a line in local time; UTC is local time plus `biasMinutes` (World::BiasMinutes). Years have four
// digits at least, zones whole minutes within a day.
//
//   CombinedLogStamp(1795300128, -330);  // "[22/Nov/2026:03:58:48 +0530]"
std::string CombinedLogStamp(std::int64_t utcSeconds, std::int32_t biasMinutes);

// One answer. An empty text is written as "-".
struct CombinedLogEntry {
  std::string_view address;        // the client's, as the system writes it
  std::string_view user{};         // whose password was right
  std::string_view stamp;          // CombinedLogStamp
  std::string_view requestLine{};  // as it came, "" when it did not come whole
  int status = 200;
  std::int64_t bodyBytes = 0;  // sent of the body, without the framing of chunks
  std::string_view referer{};
  std::string_view userAgent{};
};

// Appends the line of `entry` to `to`, without a line end. In texts of the client a quote is \", a backslash is \\, and
// controls and bytes from 0x80 are \xHH, with upper-case digits. In a user's name, which has no quotes around it,
// blanks, quotes and brackets are \xHH, too: each line has the same parts at the same places, whatever a client sends.
void AppendCombinedLogLine(std::string& to, const CombinedLogEntry& entry);

}  // namespace TesselServer::Modern
