#include "support/mURLEncode.h"

#include <cstddef>

#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr bool IsCopied(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

}  // namespace

std::string URLEncode(std::string_view text, bool spaceAsPlus) {
  constexpr std::size_t kMostOfAByte = 3;
  std::string result(kMostOfAByte * text.size(), '\0');
  char* end = result.data();
  for (const char c : text) {
    if (IsCopied(c)) {
      *end++ = c;
    } else if (c == ' ' && spaceAsPlus) {
      *end++ = '+';
    } else {
      const auto byte = static_cast<unsigned char>(c);
      *end++ = '%';
      if (byte >= 0x10) *end++ = kUpperHexDigits[byte >> 4];
      *end++ = kUpperHexDigits[byte & 0x0F];
    }
  }
  result.resize(static_cast<std::size_t>(end - result.data()));
  return result;
}

}  // namespace TesselServer
