#include "support/mURLEncode.h"

#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr bool IsCopied(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

}  // namespace

std::string URLEncode(std::string_view text, bool spaceAsPlus) {
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    if (IsCopied(c)) {
      result += c;
    } else if (c == ' ' && spaceAsPlus) {
      result += '+';
    } else {
      const auto byte = static_cast<unsigned char>(c);
      result += '%';
      if (byte >= 0x10) result += kUpperHexDigits[byte >> 4];
      result += kUpperHexDigits[byte & 0x0F];
    }
  }
  return result;
}

}  // namespace TesselServer
