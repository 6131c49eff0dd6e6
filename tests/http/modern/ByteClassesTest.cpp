#include <gtest/gtest.h>

#include <string>

#include "http/modern/ByteClasses.h"

namespace TesselServer::Modern {
namespace {

TEST(ModernByteClassesTest, TokensAreMadeOfTheirBytes) {
  const std::string_view others = "!#$%&'*+-.^_`|~";
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const bool isToken = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c != 0 && others.find(c) != std::string_view::npos);
    EXPECT_EQ(kTokenBytes.Has(c), isToken) << byte;
    EXPECT_EQ(IsToken(std::string(1, c)), isToken) << byte;
  }
  EXPECT_FALSE(IsToken("")) << "nothing is no token";
  EXPECT_FALSE(IsToken("a b"));
}

TEST(ModernByteClassesTest, ControlsAreFoundWhereverTheyAre) {
  for (const std::size_t length : {1u, 7u, 8u, 9u, 16u, 23u}) {
    for (std::size_t place = 0; place < length; ++place) {
      for (int byte = 0; byte < 256; ++byte) {
        for (const char around : {'a', '\t', '\xFF', ' ', '\x80'}) {
          std::string text(length, around);
          text[place] = static_cast<char>(byte);
          const bool isBad = (byte < 0x20 && byte != '\t') || byte == 0x7F;
          ASSERT_EQ(HasBadControl(text), isBad) << "byte " << byte << " at " << place << " of " << length;
        }
      }
    }
  }
  EXPECT_FALSE(HasBadControl(""));
}

TEST(ModernByteClassesTest, HexadecimalDigitsHaveValues) {
  const std::string_view digits = "0123456789abcdef";
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const auto at = c == 0 ? std::string_view::npos : digits.find(LowerAscii(c));
    EXPECT_EQ(HexValue(c), at == std::string_view::npos ? -1 : static_cast<int>(at)) << byte;
  }
}

TEST(ModernByteClassesTest, ListsAreDividedAtTheirCommas) {
  const struct {
    const char *list, *elements, *why;
  } cases[] = {
      {"a", "[a]", "one"},
      {"a,b", "[a][b]", "two"},
      {" a\t, \tb ", "[a][b]", "white space around them"},
      {"a b,c", "[a b][c]", "white space within"},
      {",a,,b", "[][a][][b]", "empty ones"},
      {"a, ", "[a][]", "an empty one at the end that is seen"},
      {"a,", "[a]", "one that is not"},
      {"", "", "none"},
      {" ", "[]", "white space"},
  };
  for (const auto& c : cases) {
    std::string elements;
    for (std::string_view rest = c.list; !rest.empty();) elements.append("[").append(NextElement(rest)).append("]");
    EXPECT_EQ(elements, c.elements) << c.why;
  }
}

}  // namespace
}  // namespace TesselServer::Modern
