#include "http/CGIOutput.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kWholeResponse = "HTTP/";
constexpr std::string_view kDefaultType = "text/html";
constexpr std::string_view kRedirect = "302";
constexpr std::size_t kStatusDigits = 3;
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kNotPassedOn[] = {"Content-Length", "Date", "Server", "Transfer-Encoding", "Connection"};

bool IsPassedOn(std::string_view name) {
  return std::none_of(std::begin(kNotPassedOn), std::end(kNotPassedOn),
                      [name](std::string_view other) { return EqualNoCase(name, other); });
}

// Takes the first line off `text`, without its line end. False when no line end is there.
bool TakeLine(std::string_view& text, std::string_view& line) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos) return false;
  line = text.substr(0, end);
  if (line.ends_with('\r')) line.remove_suffix(1);
  text.remove_prefix(end + 1);
  return true;
}

std::string_view WithoutOuterBlanks(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

bool IsTokenByte(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool EndsValues(char c) { return IsControl(c) && c != '\t'; }

// Splits "Name: value". False when the line is no header field (RFC 9110, section 5).
bool SplitField(std::string_view line, std::string_view& name, std::string_view& value) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  name = line.substr(0, colon);
  value = WithoutOuterBlanks(line.substr(colon + 1));
  return std::all_of(name.begin(), name.end(), IsTokenByte) && std::none_of(value.begin(), value.end(), EndsValues);
}

// The code that a "Status" begins with, "" when that is none an answer can have: a client takes one below 200 for a
// promise of another answer.
std::string_view StatusCodeOf(std::string_view status) {
  const std::string_view code = status.substr(0, status.find_first_of(kBlanks));
  const bool isCode = code.size() == kStatusDigits && code[0] >= '2' && code[0] <= '5' &&
                      code.find_first_not_of("0123456789") == std::string_view::npos;
  return isCode ? code : std::string_view();
}

// Reads one field into `parsed`. True when it is one of the three that make a CGI header.
bool TakeField(std::string_view name, std::string_view value, CGIOutput& parsed) {
  if (EqualNoCase(name, "Content-Type")) {
    parsed.contentType = value;
    return true;
  }
  if (EqualNoCase(name, "Status")) {
    const std::string_view code = StatusCodeOf(value);
    if (!code.empty()) parsed.statusCode = code;
    return true;
  }
  const bool isLocation = EqualNoCase(name, "Location");
  if (isLocation && value.empty()) return true;  // it would lead back to the program for ever
  if (IsPassedOn(name)) parsed.extraHeaders.append(name).append(": ").append(value).append(kLineEnd);
  if (isLocation && parsed.statusCode.empty()) parsed.statusCode = kRedirect;
  return isLocation;
}

// Takes a CGI header with its blank line off `rest`. False when there is none; `parsed` and `rest` are spoilt then.
bool TakeHeader(std::string_view& rest, CGIOutput& parsed) {
  bool isHeader = false;
  for (std::string_view line; TakeLine(rest, line);) {
    if (line.empty()) return isHeader;
    std::string_view name;
    std::string_view value;
    if (!SplitField(line, name, value)) return false;
    isHeader = TakeField(name, value, parsed) || isHeader;
  }
  return false;
}

// Takes the header of a whole response off `rest`. False when no blank line ends it.
bool SkipHeader(std::string_view& rest) {
  for (std::string_view line; TakeLine(rest, line);) {
    if (line.empty()) return true;
  }
  return false;
}

CGIOutput WholeResponse(std::string output) {
  CGIOutput parsed;
  parsed.isWholeResponse = true;
  std::string_view rest = output;
  if (SkipHeader(rest)) {
    parsed.body = rest;
    output.resize(output.size() - rest.size());
    parsed.wholeHead = std::move(output);
  } else {
    parsed.body = std::move(output);
  }
  return parsed;
}

}  // namespace

CGIOutput ParseCGIOutput(std::string output) {
  if (output.starts_with(kWholeResponse)) return WholeResponse(std::move(output));
  CGIOutput parsed;
  std::string_view rest = output;
  if (TakeHeader(rest, parsed)) {
    parsed.body = rest;
  } else {
    parsed = CGIOutput();
    parsed.body = std::move(output);
  }
  if (parsed.contentType.empty()) parsed.contentType = kDefaultType;
  return parsed;
}

}  // namespace TesselServer
