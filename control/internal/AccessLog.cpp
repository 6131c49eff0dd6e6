#include "control/internal/AccessLog.h"

#include "support/Dates.h"
#include "support/Format.h"
#include "support/Text.h"
#include "support/mTimeZone.h"

namespace TesselServer {
namespace {

constexpr std::int64_t kSecondsPerMinute = 60;

std::string Quoted(std::string_view fromClient) {
  return '"' + EscapeControls(fromClient.substr(0, kMaxLoggedBytes)) + '"';
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
  std::string line(address);
  line += " - - ";
  line += timestamp;
  line += ' ';
  line += Quoted(requestLine);
  line += ' ';
  line += status;
  line += ' ';
  line += std::to_string(size);
  line += ' ';
  line += Quoted(referer);
  line += ' ';
  line += Quoted(userAgent);
  return line;
}

}  // namespace TesselServer
