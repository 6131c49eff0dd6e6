#include "http/modern/ListingPage.h"

#include <algorithm>

#include "http/modern/ByteClasses.h"
#include "http/modern/HttpDate.h"
#include "support/Dates.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

constexpr ByteSet kUnencodedBytes([](char c) {
  return IsAlphanumeric(c) || (c != '\0' && std::string_view("-._~/").find(c) != std::string_view::npos);
});

void AppendTwoDigits(std::string& to, std::int64_t number) {
  to += static_cast<char>('0' + number / 10 % 10);
  to += static_cast<char>('0' + number % 10);
}

CivilTime ShownTime(std::int64_t utcSeconds) {
  return CivilFromSeconds(std::clamp(utcSeconds, kFirstHttpDate, kLastHttpDate));
}

void AppendDateAndMinute(std::string& to, const CivilTime& time, char between) {
  AppendTwoDigits(to, time.year / 100);
  AppendTwoDigits(to, time.year);
  AppendTwoDigits(to += '-', time.month);
  AppendTwoDigits(to += '-', time.day);
  AppendTwoDigits(to += between, time.hour);
  AppendTwoDigits(to += ':', time.minute);
}

}  // namespace

bool HasLink(std::string_view name) {
  return std::none_of(name.begin(), name.end(), [](char c) { return IsControl(c) || c == '\\'; });
}

void AppendEncoded(std::string& to, std::string_view text) {
  for (const char c : text) {
    if (kUnencodedBytes.Has(c)) {
      to += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    to += '%';
    to += kUpperHexDigits[byte >> 4];
    to += kUpperHexDigits[byte & 0xF];
  }
}

void AppendLink(std::string& to, const ListedEntry& entry) {
  AppendEncoded(to, entry.name);
  if (entry.isFolder) to += '/';
}

void AppendTimestamp(std::string& to, std::int64_t utcSeconds) {
  const CivilTime time = ShownTime(utcSeconds);
  AppendDateAndMinute(to, time, 'T');
  AppendTwoDigits(to += ':', time.second);
  to += 'Z';
}

void AppendMinute(std::string& to, std::int64_t utcSeconds) { AppendDateAndMinute(to, ShownTime(utcSeconds), ' '); }

}  // namespace TesselServer::Modern
