#include "control/internal/HeaderFields.h"

#include "files/cls_Base64.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr auto kNone = std::string_view::npos;
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kBlankLine = "\r\n\r\n";

bool HoldsNul(std::string_view text) { return text.find('\0') != kNone; }

// The text from `from` to the end of its line, without the blanks around it.
std::string_view RawValue(std::string_view text, std::size_t from) {
  const auto rest = text.substr(from);
  return Trim(rest.substr(0, rest.find(kLineEnd)));
}

// The value behind `name`, which was found at `at`; "" when it was not found or the value holds a NUL.
std::string_view Value(std::string_view text, std::string_view name, std::size_t at) {
  if (at == kNone) return {};
  const auto value = RawValue(text, at + name.size());
  return HoldsNul(value) ? std::string_view() : value;
}

std::string_view ValueNoCase(std::string_view text, std::string_view name) {
  return Value(text, name, FindNoCase(text, name));
}

std::string_view ContentType(std::string_view text) {
  return ValueNoCase(text.substr(0, text.find(kBlankLine)), "\r\nContent-Type:");
}

// kept: the scheme may stand anywhere behind the field's name; without a ":" there is neither user nor password.
void ReadCredentials(std::string_view text, RequestFields& fields) {
  constexpr std::string_view kScheme = "Basic";
  const auto field = text.find("Authorization:");
  if (field == kNone) return;
  const auto token = Value(text, kScheme, text.find(kScheme, field));
  if (token.empty() || token.size() > kMaxCredentialBytes) return;
  const std::string decoded = cls_Base64().DecodeStr(token);
  const auto colon = decoded.find(':');
  if (colon == kNone || HoldsNul(decoded)) return;
  const std::string_view pair = decoded;
  fields.AuthUser = Trim(pair.substr(0, colon));
  fields.AuthPassword = Trim(pair.substr(colon + 1));
}

}  // namespace

std::string AcceptValues(std::string_view text) {
  constexpr std::string_view kName = "accept:";
  std::string values;
  // Each round collects two bytes or more, so the steps grow: even a text of nothing but names takes few rounds.
  for (auto at = FindNoCase(text, kName); at != kNone; at = FindNoCase(text, kName, at + values.size())) {
    values += RawValue(text, at + kName.size());
    values += ", ";
  }
  if (HoldsNul(values)) return {};
  auto result = Trim(values);
  if (result.ends_with(',')) result.remove_suffix(1);
  return std::string(result);
}

void ReadHeaderFields(std::string_view text, RequestFields& fields) {
  const auto blankLine = text.find(kBlankLine);
  if (blankLine != kNone) fields.RequestHeader = text.substr(0, blankLine + kLineEnd.size());
  fields.RequestAccept = AcceptValues(text);
  fields.RequestReferer = ValueNoCase(text, "referer:");
  fields.RequestUserAgent = Value(text, "User-Agent:", text.find("User-Agent:"));
  fields.RequestContentType = ContentType(text);
  ReadCredentials(text, fields);
}

std::optional<std::int64_t> AnnouncedLength(std::string_view text) {
  return LeadingNumber(ValueNoCase(text, "Content-Length:"));
}

}  // namespace TesselServer
