// ASCII letters without regard to case, and control characters. Bytes of 0x80 and above are neither, and never equal to
// another byte, whatever the process's locale is.
#pragma once

#include <string_view>

namespace TesselServer {

constexpr char UpperAscii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

constexpr char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// A byte below 0x20, or 0x7F.
constexpr bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

constexpr bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i] != b[i] && UpperAscii(a[i]) != UpperAscii(b[i])) return false;
  }
  return true;
}

constexpr bool EndsWithNoCase(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && EqualNoCase(text.substr(text.size() - end.size()), end);
}

}  // namespace TesselServer
