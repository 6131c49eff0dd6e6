// Names that are the same in capital and small letters.
#pragma once

#include <algorithm>
#include <string_view>

namespace TesselServer {

// Whether two bytes are the same but for the case of an ASCII letter.
inline bool EqualLetters(char a, char b) {
  const auto small = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return small(a) == small(b);
}

inline bool EqualNames(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), EqualLetters);
}

}  // namespace TesselServer
