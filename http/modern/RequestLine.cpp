#include "http/modern/RequestLine.h"

#include <algorithm>

#include "http/modern/Authority.h"
#include "http/modern/ByteClasses.h"
#include "http/modern/Status.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

// More than RFC 3986 allows: browsers send some bytes that should be escaped, and bytes of UTF-8 are harmless. Those
// left out are read differently by different programs, or begin a fragment, which is no part of a request.
constexpr ByteSet kTargetBytes([](char c) {
  return !IsControl(c) && std::string_view(" \"<>\\^`{|}#").find(c) == kNpos;
});

// The status that refuses `version`, or 0.
int JudgeVersion(std::string_view version) {
  constexpr std::string_view kName = "HTTP/";
  if (version.size() != kName.size() + 3 || !version.starts_with(kName)) return Status::kBadRequest;
  const char major = version[5], dot = version[6], minor = version[7];
  if (!IsDigit(major) || dot != '.' || !IsDigit(minor)) return Status::kBadRequest;
  return major == '1' ? 0 : Status::kVersionNotSupported;
}

// Divides `text`, a path with or without a query.
void TakePathAndQuery(std::string_view text, RequestTarget& target) {
  const std::size_t mark = text.find('?');
  target.path = text.substr(0, mark);
  target.hasQuery = mark != kNpos;
  if (target.hasQuery) target.query = text.substr(mark + 1);
}

RequestTarget ParseAbsoluteForm(std::string_view method, std::string_view text) {
  constexpr std::string_view kScheme = "http://";
  RequestTarget target;
  if (!EqualNoCase(text.substr(0, kScheme.size()), kScheme)) return target;
  text.remove_prefix(kScheme.size());
  const std::size_t end = std::min(text.find_first_of("/?"), text.size());
  target.authority = text.substr(0, end);
  target.isValid = IsAuthority(target.authority);
  TakePathAndQuery(text.substr(end), target);
  // How a client says "*" to a proxy (RFC 9112 3.2.4).
  target.isAsterisk = method == "OPTIONS" && end == text.size();
  return target;
}

}  // namespace

RequestLine ParseRequestLine(std::string_view line) {
  RequestLine parsed;
  parsed.refusal = Status::kBadRequest;
  const std::size_t first = line.find(' ');
  if (first == kNpos) return parsed;
  const auto method = line.substr(0, first);
  if (!IsToken(method)) return parsed;
  parsed.method = method;
  const std::size_t second = line.find(' ', first + 1);
  if (second == kNpos) return parsed;
  parsed.target = line.substr(first + 1, second - first - 1);
  const auto version = line.substr(second + 1);
  if (parsed.target.empty()) return parsed;
  parsed.refusal = JudgeVersion(version);
  if (parsed.refusal != 0) return parsed;
  parsed.minorVersion = version.back() == '0' ? 0 : 1;
  if (!kTargetBytes.HasAll(parsed.target)) parsed.refusal = Status::kBadRequest;
  return parsed;
}

RequestTarget ParseTarget(std::string_view method, std::string_view target) {
  RequestTarget parsed;
  if (target.starts_with('/')) {
    parsed.isValid = true;
    TakePathAndQuery(target, parsed);
    return parsed;
  }
  if (method == "CONNECT") {
    parsed.authority = target;
    parsed.isValid = IsAuthorityWithPort(target);
    return parsed;
  }
  if (target == "*") {
    parsed.isAsterisk = parsed.isValid = method == "OPTIONS";
    return parsed;
  }
  return ParseAbsoluteForm(method, target);
}

}  // namespace TesselServer::Modern
