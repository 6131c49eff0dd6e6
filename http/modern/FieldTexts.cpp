#include "http/modern/FieldTexts.h"

#include "http/modern/FieldValues.h"
#include "support/Text.h"

namespace TesselServer::Modern {

bool TakesCharset(std::string_view type) {
  constexpr std::string_view kTextTypes = "text/";
  if (!type.starts_with(kTextTypes) && !EqualNoCase(type.substr(0, kTextTypes.size()), kTextTypes)) return false;
  const std::size_t parameters = type.find(';');
  return parameters == kNpos || FindNoCase(type, "charset=", parameters) == kNpos;
}

std::string WithCharset(std::string_view type, std::string_view charset) {
  std::string text(type);
  if (TakesCharset(type) && IsTokenText(charset)) text.append("; charset=").append(charset);
  return text;
}

std::string QuotedString(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (IsControl(c) && c != '\t') continue;
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted += '"';
}

std::string BasicChallenge(std::string_view realm) {
  return "Basic realm=" + QuotedString(realm) + ", charset=\"UTF-8\"";
}

}  // namespace TesselServer::Modern
