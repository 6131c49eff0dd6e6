#include "support/Printable.h"

#include <algorithm>
#include <cstddef>

#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr unsigned char kDelete = 0x7F;

unsigned char ByteAt(std::string_view text, std::size_t i) { return static_cast<unsigned char>(text[i]); }

bool IsIn(unsigned char byte, unsigned char low, unsigned char high) { return low <= byte && byte <= high; }

// Whether `byte` may have to be written as a code: an ASCII control, a backslash, or no ASCII at all.
bool IsSuspect(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte < 0x20) | (byte >= kDelete) | (c == '\\');
}

// Looks at every byte, without a branch for each, so that the compiler takes many at a time.
bool HoldsSuspect(std::string_view text) {
  unsigned found = 0;
  for (const char c : text) found |= static_cast<unsigned>(IsSuspect(c));
  return found != 0;
}

// The length of the UTF-8 character that begins with `first`, 0 where none does.
std::size_t Utf8Length(unsigned char first) {
  if (IsIn(first, 0xC2, 0xDF)) return 2;
  if (IsIn(first, 0xE0, 0xEF)) return 3;
  if (IsIn(first, 0xF0, 0xF4)) return 4;
  return 0;
}

// Whether `second` may follow `first`: no character has a longer form than it needs, is a half of a pair of UTF-16, or
// lies above U+10FFFF.
bool IsSecond(unsigned char first, unsigned char second) {
  const unsigned char low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned char high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  return IsIn(second, low, high);
}

// The length of the valid character of several bytes that begins at text[i], 0 when there is none.
std::size_t CharacterAt(std::string_view text, std::size_t i) {
  const std::size_t length = Utf8Length(ByteAt(text, i));
  if (length == 0 || length > text.size() - i || !IsSecond(ByteAt(text, i), ByteAt(text, i + 1))) return 0;
  const auto rest = text.substr(i + 2, length - 2);
  const bool valid = std::all_of(rest.begin(), rest.end(), [](char c) { return (c & 0xC0) == 0x80; });
  return valid ? length : 0;
}

void AppendCode(std::string& line, unsigned char byte) {
  line.append("\\x").append(1, kUpperHexDigits[byte >> 4]).append(1, kUpperHexDigits[byte & 0x0F]);
}

// Appends what begins at text[i], a character or a single byte, and returns how many bytes that is.
std::size_t AppendOne(std::string& line, std::string_view text, std::size_t i) {
  const auto byte = ByteAt(text, i);
  const auto character = CharacterAt(text, i);
  const bool isControl = character == 2 && byte == 0xC2 && ByteAt(text, i + 1) < 0xA0;
  if (character > 0 && !isControl) {
    line.append(text.substr(i, character));
    return character;
  }
  if (byte < 0x20 || IsIn(byte, kDelete, 0x9F) || isControl) {
    AppendCode(line, byte);
  } else if (byte == '\\') {
    line.append("\\\\");
  } else {
    line += text[i];
  }
  return 1;
}

}  // namespace

void AppendPrintable(std::string& line, std::string_view text) {
  if (!HoldsSuspect(text)) {
    line.append(text);
    return;
  }
  for (std::size_t i = 0; i < text.size();) i += AppendOne(line, text, i);
}

std::string Printable(std::string_view text) {
  std::string printable;
  AppendPrintable(printable, text);
  return printable;
}

}  // namespace TesselServer
