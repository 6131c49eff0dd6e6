// Comparing secrets so that the time does not say how much of a guess is right.
#pragma once

#include <cstddef>
#include <string_view>

namespace TesselServer {

// Whether `text` is `secret`. The time depends on the length of `text` alone.
inline bool EqualInConstantTime(std::string_view text, std::string_view secret) {
  std::size_t different = text.size() ^ secret.size();
  if (secret.empty()) return different == 0;
  for (std::size_t i = 0, j = 0; i < text.size(); ++i, ++j) {
    j = j == secret.size() ? 0 : j;
    different |= static_cast<unsigned char>(text[i] ^ secret[j]);
  }
  return different == 0;
}

}  // namespace TesselServer
