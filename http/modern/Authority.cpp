#include "http/modern/Authority.h"

#include "http/modern/ByteClasses.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

constexpr int kMaxPort = 65535;
constexpr std::size_t kAddressGroups = 8;  // of 16 bits each, in an address of IPv6

// Unreserved bytes and those that divide nothing in an authority, but for the comma; "%" has its own rule.
constexpr ByteSet kHostNameBytes([](char c) {
  return IsAlphanumeric(c) || (c != '\0' && std::string_view("-._~!$&'()*+;=").find(c) != kNpos);
});

bool IsRegisteredName(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (kHostNameBytes.Has(text[i])) continue;
    if (text[i] != '%' || text.size() - i < 3 || HexValue(text[i + 1]) < 0 || HexValue(text[i + 2]) < 0) return false;
    i += 2;
  }
  return !text.empty();
}

// A number from 0 to `most` without needless zeros in front.
bool IsSmallNumber(std::string_view text, int most) {
  if (text.empty() || text.size() > 5 || (text.size() > 1 && text.front() == '0')) return false;
  int value = 0;
  for (const char c : text) {
    if (!IsDigit(c)) return false;
    value = value * 10 + (c - '0');
  }
  return value <= most;
}

bool IsIPv4(std::string_view text) {
  for (int part = 0; part < 3; ++part) {
    const std::size_t dot = text.find('.');
    if (dot == kNpos || !IsSmallNumber(text.substr(0, dot), 255)) return false;
    text.remove_prefix(dot + 1);
  }
  return IsSmallNumber(text, 255);
}

bool IsGroup(std::string_view text) {
  if (text.empty() || text.size() > 4) return false;
  for (const char c : text) {
    if (HexValue(c) < 0) return false;
  }
  return true;
}

// How many groups `text` has, colons between; the last one may be an address of IPv4 where `mayEndInIPv4`, and counts
// as two. More than kAddressGroups where it is not valid.
std::size_t CountGroups(std::string_view text, bool mayEndInIPv4) {
  constexpr std::size_t kNotValid = kAddressGroups + 1;
  std::size_t groups = 0;
  while (!text.empty()) {
    const std::size_t colon = text.find(':');
    const std::string_view group = text.substr(0, colon);
    if (colon == kNpos && mayEndInIPv4 && IsIPv4(group)) return groups + 2;
    if (!IsGroup(group) || ++groups > kAddressGroups) return kNotValid;
    if (colon == kNpos) break;
    text.remove_prefix(colon + 1);
    if (text.empty()) return kNotValid;
  }
  return groups;
}

bool IsIPv6(std::string_view text) {
  const std::size_t gap = text.find("::");
  if (gap == kNpos) return CountGroups(text, true) == kAddressGroups;
  return CountGroups(text.substr(0, gap), false) + CountGroups(text.substr(gap + 2), true) < kAddressGroups;
}

// Whether `text`, what follows a host, is nothing or a port. A port may be empty (RFC 3986 3.2.3).
bool IsPortPart(std::string_view text) {
  if (text.empty()) return true;
  if (text.front() != ':') return false;
  text.remove_prefix(1);
  while (text.size() > 1 && text.front() == '0') text.remove_prefix(1);
  return text.empty() || IsSmallNumber(text, kMaxPort);
}

}  // namespace

bool IsAuthority(std::string_view text) {
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    return end != kNpos && IsIPv6(text.substr(1, end - 1)) && IsPortPart(text.substr(end + 1));
  }
  const std::size_t colon = text.find(':');
  return IsRegisteredName(text.substr(0, colon)) && (colon == kNpos || IsPortPart(text.substr(colon)));
}

bool IsAuthorityWithPort(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  return colon != kNpos && IsDigit(text.back()) && text.find(']', colon) == kNpos && IsAuthority(text);
}

}  // namespace TesselServer::Modern
