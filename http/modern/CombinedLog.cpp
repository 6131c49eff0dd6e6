#include "http/modern/CombinedLog.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <limits>

#include "platform/world/AsciiCase.h"
#include "support/Dates.h"
#include "support/Format.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

constexpr std::int64_t kSecondsOfMinute = 60;
constexpr std::string_view kNoLogText = "-";

// The blanks, quotes and dashes between the fields, and the longest numbers.
constexpr std::size_t kUsualLogBytes = 64;

void AppendLogNumber(std::string& to, std::int64_t number) {
  std::array<char, std::numeric_limits<std::int64_t>::digits10 + 2> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  to.append(digits.data(), end);
}

void AppendHexCode(std::string& to, char c) {
  const auto byte = static_cast<unsigned char>(c);
  to.append("\\x").append(1, kUpperHexDigits[byte >> 4]).append(1, kUpperHexDigits[byte & 0xF]);
}

bool NeedsHexCode(char c) { return IsControl(c) || static_cast<unsigned char>(c) >= 0x80; }
bool NeedsBackslash(char c) { return c == '"' || c == '\\'; }

// Looks at every byte, without a branch for each, so that the compiler takes many at a time.
bool HoldsOddByte(std::string_view text) {
  unsigned odd = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    odd |= static_cast<unsigned>((byte < 0x20) | (byte >= 0x7F) | (c == '"') | (c == '\\'));
  }
  return odd != 0;
}

void AppendInQuotes(std::string& to, std::string_view text) {
  if (!HoldsOddByte(text)) {
    to.append(text);
    return;
  }
  for (const char c : text) {
    if (NeedsHexCode(c)) {
      AppendHexCode(to, c);
    } else {
      if (NeedsBackslash(c)) to += '\\';
      to += c;
    }
  }
}

void AppendQuotedText(std::string& to, std::string_view text) {
  to += '"';
  AppendInQuotes(to, text.empty() ? kNoLogText : text.substr(0, kMaxCombinedLogText));
  to += '"';
}

// Readers of logs cut a line at blanks, quotes and brackets.
void AppendUser(std::string& to, std::string_view user) {
  if (user.empty()) user = kNoLogText;
  for (const char c : user.substr(0, kMaxCombinedLogText)) {
    if (NeedsHexCode(c) || std::string_view(" \"[]").find(c) != kNpos) {
      AppendHexCode(to, c);
    } else {
      if (c == '\\') to += '\\';
      to += c;
    }
  }
}

// "+0530" for -330.
std::string ZoneText(std::int32_t biasMinutes) {
  const std::int32_t minutes = std::abs(biasMinutes % (24 * 60));
  const std::int32_t hours = minutes / 60;
  std::string zone(1, biasMinutes > 0 ? '-' : '+');
  return zone.append(FormatNumber(hours, "00")).append(FormatNumber(minutes % 60, "00"));
}

}  // namespace

std::string CombinedLogStamp(std::int64_t utcSeconds, std::int32_t biasMinutes) {
  const CivilTime local = CivilFromSeconds(utcSeconds - biasMinutes * kSecondsOfMinute);
  std::string stamp = "[";
  stamp.append(FormatDate(local, "dd/mmm/yyyy")).append(1, ':').append(FormatDate(local, "hh:nn:ss"));
  return stamp.append(1, ' ').append(ZoneText(biasMinutes)).append(1, ']');
}

void AppendCombinedLogLine(std::string& to, const CombinedLogEntry& entry) {
  to.reserve(to.size() + kUsualLogBytes + entry.address.size() + entry.user.size() + entry.stamp.size() +
             entry.requestLine.size() + entry.referer.size() + entry.userAgent.size());
  to.append(entry.address.empty() ? kNoLogText : entry.address).append(" - ");
  AppendUser(to, entry.user);
  to.append(1, ' ').append(entry.stamp).append(1, ' ');
  AppendQuotedText(to, entry.requestLine);
  to += ' ';
  AppendLogNumber(to, entry.status);
  to += ' ';
  AppendLogNumber(to, std::max<std::int64_t>(entry.bodyBytes, 0));
  to += ' ';
  AppendQuotedText(to, entry.referer);
  to += ' ';
  AppendQuotedText(to, entry.userAgent);
}

}  // namespace TesselServer::Modern
