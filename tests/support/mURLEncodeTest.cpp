#include <gtest/gtest.h>

#include "support/mURLEncode.h"

namespace TesselServer {
namespace {

TEST(mURLEncodeTest, LettersAndDigitsAreCopied) {
  const std::string_view copied = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  EXPECT_EQ(URLEncode(copied, false), copied);
  EXPECT_EQ(URLEncode(copied, true), copied);
}

TEST(mURLEncodeTest, EverythingElseIsWrittenAsANumber) {
  struct {
    std::string_view text, encoded, withPlus;
  } const cases[] = {
      {"", "", ""},
      {"a b/c", "a%20b%2Fc", "a+b%2Fc"},
      {"  ", "%20%20", "++"},
      {".-_/", "%2E%2D%5F%2F", "%2E%2D%5F%2F"},
      {"\t", "%9", "%9"},
      {"\x0F\x10", "%F%10", "%F%10"},
      {std::string_view("\0", 1), "%0", "%0"},
      {"\xC3\xA4\xFF", "%C3%A4%FF", "%C3%A4%FF"},
      {"+%", "%2B%25", "%2B%25"},
      {"@[`{:", "%40%5B%60%7B%3A", "%40%5B%60%7B%3A"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(URLEncode(c.text, false), c.encoded) << c.text;
    EXPECT_EQ(URLEncode(c.text, true), c.withPlus) << c.text;
  }
}

TEST(mURLEncodeTest, EveryByteHasItsNumberWithoutALeadingZero) {
  for (unsigned i = 0; i < 256; ++i) {
    const std::string encoded = URLEncode(std::string(1, static_cast<char>(i)), false);
    if (encoded.size() == 1) {
      EXPECT_TRUE((i >= '0' && i <= '9') || (i >= 'A' && i <= 'Z') || (i >= 'a' && i <= 'z')) << i;
      EXPECT_EQ(static_cast<unsigned char>(encoded[0]), i);
      continue;
    }
    EXPECT_EQ(encoded.size(), i < 16 ? 2u : 3u) << i;
    EXPECT_EQ(encoded[0], '%') << i;
    EXPECT_EQ(std::stoul(encoded.substr(1), nullptr, 16), i);
    EXPECT_EQ(encoded.find_first_of("abcdef"), std::string::npos) << i;
  }
}

}  // namespace
}  // namespace TesselServer
