// Small functions on text. Text is bytes: nothing here depends on a locale, and a byte of 0x80 or above is never a
// letter, a blank or a control character.
//
// Thread:    any.
// Ownership: views given are read during the call; a returned view looks into the view that was given.
// Errors:    none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/world/AsciiCase.h"  // IsControl

namespace TesselServer {

// What ends a line on the wire, in a header and in encoded text (RFC 1945 section 2.2).
inline constexpr std::string_view kLineEnd = "\r\n";

// What a search that found nothing returns.
inline constexpr auto kNpos = std::string_view::npos;

// The digits of hexadecimal numbers as this library writes them.
inline constexpr char kUpperHexDigits[] = "0123456789ABCDEF";

// Empties `text` and gives its memory back, which an assignment of an empty text does not.
inline void Release(std::string& text) { std::string().swap(text); }

// Empties `text`; its memory stays for the next use unless it has room for more than `mostKept` bytes.
inline void Empty(std::string& text, std::size_t mostKept) {
  if (text.capacity() > mostKept) {
    Release(text);
  } else {
    text.clear();
  }
}

// Where the first CR or LF is, the length of `text` when there is none. For one look at a text: it may pass over
// more than the line.
std::size_t FindLineEnd(std::string_view text);

// `text` without the blanks (0x20 only) at its two ends. Tabs and line ends stay.
std::string_view Trim(std::string_view text);

// `text` with its ASCII letters in upper or lower case; every other byte is unchanged.
std::string Upper(std::string_view text);
std::string Lower(std::string_view text);

// The first position at or after `from` where `needle` is in `text`, ASCII letters being equal in either case.
// npos when there is none or `from` is after the end. An empty needle is found at `from`. Linear whatever both are:
// costs one pass over the text up to the place, and one over the needle.
std::size_t FindNoCase(std::string_view text, std::string_view needle, std::size_t from = 0);

// `text` with every `from` (byte for byte, left to right, no overlap) replaced by `to`. What was put in is not looked
// at again. An empty `from` changes nothing.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);

// The decimal number that `text` begins with, after any blanks and tabs; it ends at the first byte that is no digit.
// Nothing when no digit leads. A number that is too large is INT64_MAX.
//
//   LeadingNumber(" 12abc");  // 12
//   LeadingNumber("-5");      // nothing: "-" is no digit
std::optional<std::int64_t> LeadingNumber(std::string_view text);

}  // namespace TesselServer
