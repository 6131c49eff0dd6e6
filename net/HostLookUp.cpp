#include "net/HostLookUp.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <limits>
#include <optional>

#include "platform/world/World.h"

namespace TesselServer {
namespace {

constexpr bool IsNameByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
}

// Takes the number that `text` begins with, as C writes numbers. Nothing when there is none or it needs over 32 bits.
std::optional<std::uint32_t> TakeNumber(std::string_view& text) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  } else if (text.starts_with('0')) {
    base = 8;
  }
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc{}) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

// The address that a dotted text means, its first number in the highest byte.
std::optional<std::uint32_t> ParseDotted(std::string_view text) {
  constexpr unsigned kMostLeading = 3;  // numbers before the last one
  text = text.substr(0, text.find_last_not_of(" \t\n\v\f\r") + 1);
  std::uint32_t address = 0;
  for (unsigned leading = 0; leading <= kMostLeading; ++leading) {
    const std::optional<std::uint32_t> number = TakeNumber(text);
    if (!number) return std::nullopt;
    if (text.empty()) {
      const std::uint32_t most = std::numeric_limits<std::uint32_t>::max() >> (8 * leading);
      return *number <= most ? std::optional(address | *number) : std::nullopt;
    }
    if (text.front() != '.' || *number > 0xFF || leading == kMostLeading) return std::nullopt;
    text.remove_prefix(1);
    address |= *number << (24 - 8 * leading);
  }
  return std::nullopt;
}

bool CanBeLookedUp(std::string_view name) {
  return !name.empty() && name.size() <= HostLookUp::kMaxLookupBytes && std::ranges::all_of(name, IsNameByte);
}

}  // namespace

std::string HostLookUp::HostNameFromAddress(std::string_view text) const {
  const std::int32_t address = AddressFromText(text);
  return address == kNoAddress ? std::string(kUnknown) : HostNameFromLong(address);
}

std::int32_t HostLookUp::AddressFromText(std::string_view text) const {
  if (const auto dotted = ParseDotted(text)) return static_cast<std::int32_t>(NetworkOrder(*dotted));
  if (!CanBeLookedUp(text)) return kNoAddress;
  const auto found = world_.AddressOf(text);
  return found ? static_cast<std::int32_t>(*found) : kNoAddress;
}

std::string HostLookUp::HostNameFromLong(std::int32_t address) const {
  const auto found = world_.HostNameOf(static_cast<std::uint32_t>(address));
  if (!found) return std::string(kUnknown);
  std::string_view name = *found;
  name = name.substr(0, std::min(name.find('\0'), kMaxHostNameBytes));
  if (name.empty() || !std::ranges::all_of(name, IsNameByte)) return std::string(kUnknown);
  return std::string(name);
}

std::int32_t HostLookUp::AddressFromDottedText(std::string_view text) {
  const auto dotted = ParseDotted(text);
  return dotted ? static_cast<std::int32_t>(NetworkOrder(*dotted)) : kNoAddress;
}

std::uint32_t HostLookUp::NetworkOrder(std::uint32_t address) {
  return std::bit_cast<std::uint32_t>(
      std::array{static_cast<std::uint8_t>(address >> 24), static_cast<std::uint8_t>(address >> 16),
                 static_cast<std::uint8_t>(address >> 8), static_cast<std::uint8_t>(address)});
}

}  // namespace TesselServer
