#include "http/modern/Utf8.h"

#include <cstdint>

namespace TesselServer::Modern {
namespace {

// What may follow a first byte (RFC 3629 section 4): neither overlong forms, nor surrogates, nor what is beyond
// U+10FFFF.
struct Utf8Form {
  std::size_t bytes;             // of the character; 0 where none begins so
  std::uint8_t lowest, highest;  // its second byte
};

constexpr Utf8Form FormOf(std::uint8_t first) {
  if (first < 0xC2) return {0, 0, 0};
  if (first < 0xE0) return {2, 0x80, 0xBF};
  if (first == 0xE0) return {3, 0xA0, 0xBF};
  if (first == 0xED) return {3, 0x80, 0x9F};
  if (first < 0xF0) return {3, 0x80, 0xBF};
  if (first == 0xF0) return {4, 0x90, 0xBF};
  if (first < 0xF4) return {4, 0x80, 0xBF};
  if (first == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

}  // namespace

Utf8Piece FirstUtf8(std::string_view text) {
  const auto byteAt = [text](std::size_t at) { return static_cast<std::uint8_t>(text[at]); };
  if (byteAt(0) < 0x80) return {1, true};
  const Utf8Form form = FormOf(byteAt(0));
  if (form.bytes == 0 || text.size() < 2 || byteAt(1) < form.lowest || byteAt(1) > form.highest) return {1, false};
  for (std::size_t i = 2; i < form.bytes; ++i) {
    if (i == text.size() || (byteAt(i) & 0xC0) != 0x80) return {i, false};
  }
  return {form.bytes, true};
}

}  // namespace TesselServer::Modern
