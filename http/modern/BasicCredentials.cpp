#include "http/modern/BasicCredentials.h"

#include <algorithm>
#include <cstdint>

#include "http/modern/ByteClasses.h"
#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

constexpr std::string_view kBasic = "Basic ";

int SextetOf(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (IsDigit(c)) return c - '0' + 52;
  if (c == '+') return 62;
  return c == '/' ? 63 : -1;
}

// The bytes of `text`, "" where it is no Base64.
std::string Decoded(std::string_view text) {
  const std::size_t padding = text.size() - std::min(text.find_last_not_of('=') + 1, text.size());
  if (padding > 2 || (padding != 0 && text.size() % 4 != 0)) return {};
  text.remove_suffix(padding);
  if (text.size() % 4 == 1) return {};
  std::string bytes;
  bytes.reserve(text.size() * 3 / 4);
  std::uint32_t held = 0;
  int bits = 0;
  for (const char c : text) {
    const int sextet = SextetOf(c);
    if (sextet < 0) return {};
    held = (held << 6) | static_cast<std::uint32_t>(sextet);
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes += static_cast<char>((held >> bits) & 0xFF);
  }
  return bytes;
}

}  // namespace

BasicCredentials ReadBasicCredentials(std::string_view value) {
  if (value.size() > kMaxCredentialsText || !EqualNoCase(value.substr(0, kBasic.size()), kBasic)) return {};
  const std::string pair = Decoded(TrimBlanks(value.substr(kBasic.size())));
  const std::size_t colon = pair.find(':');
  if (colon == std::string::npos || colon == 0 || std::any_of(pair.begin(), pair.end(), IsControl)) return {};
  return {pair.substr(0, colon), pair.substr(colon + 1)};
}

}  // namespace TesselServer::Modern
