#include "http/CGIOutput.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kWholeResponse = "HTTP/";
constexpr std::string_view kDefaultType = "text/html";
constexpr std::string_view kRedirect = "302";
constexpr std::size_t kStatusDigits = 3;
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

bool IsTokenByte(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool IsControl(char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F; }

// Splits "Name: value". False when the line is no header field (RFC 9110, section 5).
bool SplitField(std::string_view line, std::string_view& name, std::string_view& value) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  name = line.substr(0, colon);
  value = Trim(line.substr(colon + 1));
  return std::all_of(name.begin(), name.end(), IsTokenByte) && std::none_of(value.begin(), value.end(), IsControl);
}

bool IsStatusCode(std::string_view code) {
  return code.size() == kStatusDigits && code.find_first_not_of("0123456789") == std::string_view::npos;
}

// Reads one field into `parsed`. True when it is one of the three that make a CGI header.
bool TakeField(std::string_view name, std::string_view value, CGIOutput& parsed) {
  if (EqualNoCase(name, "Content-Type")) {
    parsed.contentType = value;
    return true;
  }
  if (EqualNoCase(name, "Status")) {
    const std::string_view code = value.substr(0, kStatusDigits);
    if (IsStatusCode(code)) parsed.statusCode = code;
    return true;
  }
  if (IsPassedOn(name)) parsed.extraHeaders.append(name).append(": ").append(value).append("\r\n");
  if (!EqualNoCase(name, "Location")) return false;
  if (parsed.statusCode.empty()) parsed.statusCode = kRedirect;
  return true;
}

}  // namespace

CGIOutput ParseCGIOutput(std::string output) {
  CGIOutput parsed;
  parsed.isWholeResponse = output.starts_with(kWholeResponse);
  std::string_view rest = output;
  std::string_view line;
  bool isHeader = false;
  while (!parsed.isWholeResponse && TakeLine(rest, line)) {
    if (line.empty() && isHeader) {
      if (parsed.contentType.empty()) parsed.contentType = kDefaultType;
      parsed.body = rest;
      return parsed;
    }
    std::string_view name;
    std::string_view value;
    if (!SplitField(line, name, value)) break;
    isHeader = TakeField(name, value, parsed) || isHeader;
  }
  CGIOutput plain;
  plain.isWholeResponse = parsed.isWholeResponse;
  plain.contentType = kDefaultType;
  plain.body = std::move(output);
  return plain;
}

}  // namespace TesselServer
