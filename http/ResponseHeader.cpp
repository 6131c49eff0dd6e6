#include "http/ResponseHeader.h"

#include <limits>

#include "support/Text.h"
#include "support/mTimeZone.h"

namespace TesselServer {
namespace {

constexpr std::size_t kUsualBytes = 160;  // all but the texts that callers choose

struct Reason {
  std::string_view code, phrase;
};
constexpr Reason kReasons[] = {
    {"200", "OK"},
    {"201", "Created"},
    {"202", "Accepted"},
    {"204", "No Content"},
    {"301", "Moved Permanently"},
    {"302", "Moved Temporarily"},
    {"304", "Not Modified"},
    {"400", "Bad Request"},
    {"401", "Unauthorized"},
    {"403", "Forbidden"},
    {"404", "Not Found"},
    {"500", "Internal Server Error"},
    {"501", "Not Implemented"},
    {"502", "Bad Gateway"},
    {"503", "Service Unavailable"},
};

// Looks no further than the line's end, so that a text of many lines is passed once, whatever ends they have.
std::string_view FirstLine(std::string_view text) { return text.substr(0, text.find_first_of(kLineEnd)); }

// The date changes once a second, and answers come by the thousand.
const std::string& DateText(std::int64_t utcSeconds) {
  thread_local std::int64_t second = std::numeric_limits<std::int64_t>::min();
  thread_local std::string text;
  if (second != utcSeconds) {
    text = GMTDate(utcSeconds);
    second = utcSeconds;
  }
  return text;
}

// `text` as it is, unless a blank line in it would end the header early; then its other lines, each with CR LF.
std::string WithoutBlankLines(std::string_view text) {
  std::string kept;
  bool dropped = false;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = FirstLine(rest);
    rest.remove_prefix(line.size());
    const bool ended = !rest.empty();
    rest.remove_prefix(rest.starts_with(kLineEnd) ? kLineEnd.size() : ended ? 1 : 0);
    if (line.find_first_not_of(" \t") == std::string_view::npos) {
      dropped = true;
      continue;
    }
    kept += line;
    if (ended) kept += kLineEnd;
  }
  return dropped ? kept : std::string(text);
}

}  // namespace

std::string HeaderText(const HeaderFields& fields) {
  const std::string_view code = FirstLine(fields.statusCode);
  const std::string_view type = FirstLine(fields.contentType);
  const std::string_view software = FirstLine(fields.software);
  std::string header;
  header.reserve(kUsualBytes + software.size() + type.size() + fields.extraHeaders.size());
  header.append("HTTP/1.0 ").append(code).append(1, ' ').append(ReasonPhrase(code));
  header.append("\r\nServer: ").append(software);
  header.append("\r\nDate: ").append(DateText(fields.utcSeconds));
  if (!Trim(type).empty()) header.append("\r\nContent-Type: ").append(type);
  header += kLineEnd;
  if (!fields.extraHeaders.empty()) header += WithoutBlankLines(Trim(fields.extraHeaders));
  // kept: no line for length 0; a caller that does not know the length passes 0
  if (fields.contentLength != 0) {
    header.append("Content-Length: ").append(std::to_string(fields.contentLength)).append(kLineEnd);
  }
  if (fields.endHeader) header += kLineEnd;
  return header;
}

std::string_view ReasonPhrase(std::string_view statusCode) {
  for (const Reason& reason : kReasons) {
    if (reason.code == statusCode) return reason.phrase;
  }
  return "Undefined Status Code";
}

}  // namespace TesselServer
