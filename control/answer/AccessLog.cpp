#include "control/answer/AccessLog.h"

#include <array>
#include <charconv>
#include <limits>

#include "support/Dates.h"
#include "support/Format.h"
#include "support/Printable.h"
#include "support/mTimeZone.h"

namespace TesselServer {
namespace {

constexpr std::int64_t kSecondsPerMinute = 60;

// The blanks, quotes and dashes between the fields, and the longest length.
constexpr std::size_t kFixedBytes = 64;

void AppendQuoted(std::string& line, std::string_view fromClient) {
  line += '"';
  AppendPrintable(line, fromClient);
  line += '"';
}

void AppendNumber(std::string& line, std::int64_t number) {
  std::array<char, std::numeric_limits<std::int64_t>::digits10 + 2> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  line.append(digits.data(), end);
}

}  // namespace

std::string LogTimestamp(std::int64_t utcSeconds, std::int32_t biasMinutes) {
  const auto local = CivilFromSeconds(utcSeconds - biasMinutes * kSecondsPerMinute);
  std::string stamp = "[";
  stamp += FormatDate(local, "dd/mm/yyyy");
  stamp += ':';
  stamp += FormatDate(local, "hh:mm:ss");
  stamp += ' ';
  stamp += UTCOffsetText(biasMinutes);
  stamp += ']';
  return stamp;
}

std::string AccessLogLine(std::string_view address, std::string_view timestamp, std::string_view requestLine,
                          std::string_view status, std::int64_t size, std::string_view referer,
                          std::string_view userAgent) {
  requestLine = requestLine.substr(0, kMaxLoggedBytes);
  referer = referer.substr(0, kMaxLoggedBytes);
  userAgent = userAgent.substr(0, kMaxLoggedBytes);
  std::string line;
  line.reserve(kFixedBytes + address.size() + timestamp.size() + requestLine.size() + status.size() + referer.size() +
               userAgent.size());
  line.append(address).append(" - - ").append(timestamp).append(1, ' ');
  AppendQuoted(line, requestLine);
  line.append(1, ' ').append(status).append(1, ' ');
  AppendNumber(line, size);
  line += ' ';
  AppendQuoted(line, referer);
  line += ' ';
  AppendQuoted(line, userAgent);
  return line;
}

}  // namespace TesselServer
