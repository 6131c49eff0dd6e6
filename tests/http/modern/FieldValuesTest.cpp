#include <gtest/gtest.h>

#include <string>

#include "http/modern/FieldValues.h"

namespace TesselServer::Modern {
namespace {

TEST(FieldValuesTest, AFieldsTextHasNoControlButTabs) {
  // At every place of texts of every length, since eight bytes are looked at together.
  for (std::size_t length = 1; length <= 20; ++length) {
    for (std::size_t place = 0; place < length; ++place) {
      std::string text(length, 'a');
      for (int byte = 0; byte < 256; ++byte) {
        text[place] = static_cast<char>(byte);
        const bool isText = byte == '\t' || (byte >= 0x20 && byte != 0x7F);
        ASSERT_EQ(IsFieldText(text), isText) << "byte " << byte << " at " << place << " of " << length;
      }
    }
  }
  EXPECT_TRUE(IsFieldText(""));
  EXPECT_TRUE(IsFieldText(std::string(100, '\xFF')));
  EXPECT_TRUE(IsFieldText("eight by\ttabs in both eights\t"));
  EXPECT_FALSE(IsFieldText("eight by\ttab, then a line feed\n"));
}

TEST(FieldValuesTest, ATokenIsMadeOfTheCharactersOfRfc9110) {
  constexpr std::string_view kOthers = "!#$%&'*+-.^_`|~";
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const bool isLetter = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
    const bool isDigit = byte >= '0' && byte <= '9';
    const bool isOther = byte != 0 && kOthers.find(c) != std::string_view::npos;
    EXPECT_EQ(IsTokenCharacter(c), isLetter || isDigit || isOther) << byte;
    EXPECT_EQ(IsDecimal(c), isDigit) << byte;
  }
  EXPECT_TRUE(IsTokenText("X-One"));
  EXPECT_FALSE(IsTokenText(""));
  EXPECT_FALSE(IsTokenText("X One"));
}

TEST(FieldValuesTest, EmptyElementsAndBlanksSayNothing) {
  const struct {
    std::string_view given, trimmed, firstElement;
    const char* why;
  } cases[] = {
      {"a", "a", "a", "nothing to remove"},
      {" \ta \t", "a", "a \t", "blanks"},
      {", ,\t,a,b", ", ,\t,a,b", "a,b", "empty elements"},
      {"", "", "", "nothing at all"},
      {" \t ", "", "", "blanks only"},
      {",,,", ",,,", "", "empty elements only"},
      {"\na", "\na", "\na", "a line feed is no blank"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(TrimmedField(c.given), c.trimmed) << c.why;
    EXPECT_EQ(WithoutEmptyElements(c.given), c.firstElement) << c.why;
  }
}

TEST(FieldValuesTest, AnElementIsFollowedByACommaOrTheEnd) {
  const struct {
    std::string_view given;
    bool isGood;
    std::string_view rest;
  } cases[] = {{"", true, ""},     {" ", true, ""},     {",", true, ""},   {" , b", true, "b"},
               {",,b", true, "b"}, {";b", false, ";b"}, {" b", false, "b"}};
  for (const auto& c : cases) {
    std::string_view list = c.given;
    EXPECT_EQ(TakeListComma(list), c.isGood) << c.given;
    EXPECT_EQ(list, c.rest) << c.given;
  }
}

}  // namespace
}  // namespace TesselServer::Modern
