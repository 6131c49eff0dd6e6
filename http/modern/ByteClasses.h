// The classes of bytes that the grammar of HTTP/1.1 knows, as tables. A byte of 0x80 or above is a letter of no token,
// and part of every text.
//
// Thread:    any.
// Ownership: views given are read during the call.
// Errors:    none.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/world/AsciiCase.h"

namespace TesselServer::Modern {

// A set of bytes; constant, made by the compiler.
class ByteSet {
 public:
  template <typename Rule>
  explicit constexpr ByteSet(const Rule& holds) {
    for (std::size_t i = 0; i < has_.size(); ++i) has_[i] = holds(static_cast<char>(i));
  }

  constexpr bool Has(char c) const { return has_[static_cast<unsigned char>(c)]; }

  // Whether every byte of `text` is in the set.
  constexpr bool HasAll(std::string_view text) const {
    for (const char c : text) {
      if (!Has(c)) return false;
    }
    return true;
  }

 private:
  std::array<bool, 256> has_ = {};
};

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool IsAlphanumeric(char c) { return IsDigit(c) || (LowerAscii(c) >= 'a' && LowerAscii(c) <= 'z'); }

// Optional white space (RFC 9110 5.6.3).
constexpr bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// What a method, a field name, a coding is made of (RFC 9110 5.6.2).
inline constexpr ByteSet kTokenBytes([](char c) {
  return IsAlphanumeric(c) || (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
});

constexpr bool IsToken(std::string_view text) { return !text.empty() && kTokenBytes.HasAll(text); }

// The value of a hexadecimal digit, -1 where `c` is none.
constexpr int HexValue(char c) {
  if (IsDigit(c)) return c - '0';
  const char lower = LowerAscii(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Whether `text` has a control character other than HTAB, as no field value may (RFC 9110 5.5). Looks at eight bytes at
// once, for it is asked of every value.
inline bool HasBadControl(std::string_view text) {
  constexpr std::uint64_t kOnes = 0x0101010101010101, kTops = 0x8080808080808080;
  const auto isBad = [](char c) { return IsControl(c) && c != '\t'; };
  while (text.size() >= sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data(), sizeof(word));
    const std::uint64_t isDelete = word ^ (kOnes * 0x7F);
    const std::uint64_t found = ((word - kOnes * 0x20) & ~word) | ((isDelete - kOnes) & ~isDelete);
    if ((found & kTops) != 0) {  // a control, or an HTAB
      for (const char c : text.substr(0, sizeof(word))) {
        if (isBad(c)) return true;
      }
    }
    text.remove_prefix(sizeof(word));
  }
  for (const char c : text) {
    if (isBad(c)) return true;
  }
  return false;
}

// `text` without the optional white space at its two ends.
constexpr std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

// The next element of a list with commas (RFC 9110 5.6.1), without white space around it, taken from the front of
// `rest` with its comma. An element may be empty. For values whose elements are tokens: a quoted comma divides like any
// other.
//
//   for (std::string_view rest = value; !rest.empty();) Use(NextElement(rest));
constexpr std::string_view NextElement(std::string_view& rest) {
  const std::size_t comma = rest.find(',');
  const std::string_view element = rest.substr(0, comma);
  rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
  return TrimBlanks(element);
}

}  // namespace TesselServer::Modern
