#include <gtest/gtest.h>

#include <string>

#include "http/modern/Utf8.h"

namespace TesselServer::Modern {
namespace {

// "c" for each byte of a character, "x" for each of what is none, a blank between two pieces.
std::string PiecesOf(std::string_view text) {
  std::string pieces;
  while (!text.empty()) {
    const Utf8Piece piece = FirstUtf8(text);
    if (!pieces.empty()) pieces += ' ';
    pieces.append(piece.bytes, piece.isCharacter ? 'c' : 'x');
    text.remove_prefix(piece.bytes);
  }
  return pieces;
}

TEST(Utf8Test, TellsCharactersFromBytesThatAreNone) {
  const struct {
    std::string_view text;
    const char *pieces, *why;
  } cases[] = {
      {"az", "c c", "ASCII"},
      {std::string_view("\0\x7F", 2), "c c", "its controls too"},
      {"\xC3\xA4", "cc", "two bytes"},
      {"\xE2\x82\xAC", "ccc", "three"},
      {"\xF0\x9F\x8E\xB5", "cccc", "four"},
      {"\xC2\x80\xDF\xBF", "cc cc", "the ends of two"},
      {"\xE0\xA0\x80\xEF\xBF\xBF", "ccc ccc", "of three"},
      {"\xED\x9F\xBF\xEE\x80\x80", "ccc ccc", "around the surrogates"},
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "cccc cccc", "of four"},
      {"\xE4z", "x c", "Latin-1"},
      {"\x80\xBF", "x x", "nothing to go on with"},
      {"\xC0\xAF", "x x", "an overlong slash"},
      {"\xC1\xBF", "x x", "the same"},
      {"\xE0\x9F\xBF", "x x x", "overlong in three"},
      {"\xF0\x8F\xBF\xBF", "x x x x", "in four"},
      {"\xED\xA0\x80", "x x x", "a surrogate"},
      {"\xF4\x90\x80\x80", "x x x x", "beyond the last one"},
      {"\xF5\x80\xFF", "x x x", "no first byte"},
      {"\xC3", "x", "the end is missing"},
      {"\xE2\x82", "xx", "all of what may be one, once"},
      {"\xE2\x82z", "xx c", "the same in front of another"},
      {"\xF0\x9F\x8E\xC3\xA4", "xxx cc", "of four"},
      {"\xF0\x9F\xF0\x9F\x8E\xB5", "xx cccc", "twice begun"},
  };
  for (const auto& c : cases) EXPECT_EQ(PiecesOf(c.text), c.pieces) << c.why;
}

}  // namespace
}  // namespace TesselServer::Modern
