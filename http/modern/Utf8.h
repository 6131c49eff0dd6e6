// UTF-8 as RFC 3629 has it, in text that may be anything: the characters, and the bytes between them that are none.
//
// Thread:    any; pure.
// Ownership: views given are read during the call.
// Errors:    none.
#pragma once

#include <cstddef>
#include <string_view>

namespace TesselServer::Modern {

// What a byte sequence that is no UTF-8 is shown as: U+FFFD.
inline constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

struct Utf8Piece {
  std::size_t bytes;  // 1 to 4
  bool isCharacter;   // false: they begin like a character that they are not, or like none
};

// The first piece of `text`, which is not empty. Bytes that are no character are taken as far as they could have become
// one ("maximal subparts", as the Unicode standard and browsers count them), so that each piece is one U+FFFD.
//
//   FirstUtf8("\xE2\x82z");  // 2 bytes, no character: the third one of the euro sign is missing
Utf8Piece FirstUtf8(std::string_view text);

}  // namespace TesselServer::Modern
