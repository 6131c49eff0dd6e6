// Makes any text safe for a line of a log or a terminal: it neither ends the line nor controls the terminal, and a
// code that was sent is told from the byte that it means.
//
// Thread:    any; pure: values in, text out.
// Errors:    none.
#pragma once

#include <string>
#include <string_view>

namespace TesselServer {

// Appends `text` to `line`. Written as codes are:
//
//   "\xHH"   (upper-case digits) each byte below 0x20 and 0x7F; each byte from 0x80 to 0x9F that belongs to no valid
//            UTF-8 character, and both bytes of the characters U+0080 to U+009F: the C1 controls of terminals of either
//            kind
//   "\\"     a backslash, so that a code that was sent differs from the byte that it means
//
// Everything else is unchanged, quotes and other UTF-8 characters included.
void AppendPrintable(std::string& line, std::string_view text);

// `text` alone, written so.
//
//   Printable("a\tb");  // "a\\x09b", seven characters
std::string Printable(std::string_view text);

}  // namespace TesselServer
