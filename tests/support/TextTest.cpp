#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <random>

#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

std::string AllBytes() {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  return bytes;
}

TEST(TextTest, TrimTakesBlanksFromBothEndsAndNothingElse) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"", ""},           {" ", ""},         {"     ", ""},      {"a", "a"},
      {"  a b  ", "a b"}, {"a  ", "a"},      {"  a", "a"},       {"\ta\t", "\ta\t"},
      {" \r\n ", "\r\n"}, {"\xA0 ", "\xA0"}, {" \x0B ", "\x0B"}, {"  \t  a ", "\t  a"},
  };
  for (const auto& [given, trimmed] : cases) EXPECT_EQ(Trim(given), trimmed);
}

TEST(TextTest, TrimReturnsAViewIntoTheTextGiven) {
  const std::string_view text = "  ab ";
  EXPECT_EQ(Trim(text).data(), text.data() + 2);
}

TEST(TextTest, CaseIsChangedForAsciiLettersOnly) {
  const std::string bytes = AllBytes();
  const std::string upper = Upper(bytes);
  const std::string lower = Lower(bytes);
  ASSERT_EQ(upper.size(), 256u);
  ASSERT_EQ(lower.size(), 256u);
  for (std::size_t i = 0; i < 256; ++i) {
    const bool isLower = i >= 'a' && i <= 'z';
    const bool isUpper = i >= 'A' && i <= 'Z';
    EXPECT_EQ(static_cast<unsigned char>(upper[i]), isLower ? i - 32 : i) << i;
    EXPECT_EQ(static_cast<unsigned char>(lower[i]), isUpper ? i + 32 : i) << i;
  }
}

TEST(TextTest, FindNoCaseFindsTheFirstPlaceFromAPosition) {
  struct {
    std::string_view text, needle;
    std::size_t from, found;
    const char* why;
  } const cases[] = {
      {"abcABC", "B", 0, 1, "other case"},
      {"abcABC", "b", 2, 4, "from a position on"},
      {"abcABC", "b", 4, 4, "at the position itself"},
      {"abcABC", "b", 5, kNone, "behind the last"},
      {"abc", "abc", 0, 0, "the whole text"},
      {"abc", "abcd", 0, kNone, "longer than the text"},
      {"abc", "bc", 2, kNone, "longer than the rest"},
      {"", "a", 0, kNone, "an empty text"},
      {"abc", "", 0, 0, "an empty needle"},
      {"abc", "", 3, 3, "an empty needle at the end"},
      {"abc", "", 4, kNone, "an empty needle behind the end"},
      {"abc", "a", kNone, kNone, "from far behind the end"},
      {"", "", 0, 0, "nothing in nothing"},
      {"<%=FUNCTIONX()%>", "<%=function", 0, 0, "a tag"},
      {"aab", "ab", 0, 1, "a start that fails"},
      {"\xC4x\xE4", "\xE4", 0, 2, "bytes of 0x80 and above have no case"},
      {std::string_view("a\0b", 3), std::string_view("\0B", 2), 0, 1, "NUL is a byte as any other"},
      {"@[`{", "`", 0, 2, "neighbours of the letters have no case"},
      {"@[`{", "{", 0, 3, "neighbours of the letters have no case"},
  };
  for (const auto& c : cases) EXPECT_EQ(FindNoCase(c.text, c.needle, c.from), c.found) << c.why;
}

// Looked for step by step, as the meaning of the function says it.
std::size_t FindSlowly(std::string_view text, std::string_view needle, std::size_t from) {
  for (std::size_t at = from; at + needle.size() <= text.size(); ++at) {
    if (EqualNoCase(text.substr(at, needle.size()), needle)) return at;
  }
  return kNone;
}

TEST(TextTest, FindNoCaseAgreesWithASlowSearchAtAnyDistance) {
  for (const std::string_view needle : {"k", "K", "kK", "Key=", "=", "xk"}) {
    for (std::size_t distance = 0; distance < 800; distance += 1 + distance / 16) {
      for (const char filler : {'x', 'X', 'k', 'K', '='}) {
        const std::string text = std::string(distance, filler) + "kEy=" + std::string(300, filler) + "KkeY=";
        for (const std::size_t from : {std::size_t{0}, std::size_t{1}, distance, distance + 1, distance + 300}) {
          ASSERT_EQ(FindNoCase(text, needle, from), FindSlowly(text, needle, from))
              << needle << " behind " << distance << " of " << filler << " from " << from;
        }
      }
    }
  }
}

TEST(TextTest, FindNoCaseAgreesWithASlowSearchWhereBothTextsRepeatThemselves) {
  std::mt19937 random(3);
  for (int round = 0; round < 3000; ++round) {
    const std::string_view alphabet = round % 3 == 0 ? "aaaaaaB" : round % 3 == 1 ? "abAB" : "nNamE=&";
    const auto make = [&](std::size_t size) {
      std::string text;
      while (text.size() < size) text += alphabet[random() % alphabet.size()];
      return text;
    };
    const std::string text = make(random() % 1200);
    const std::string needle = make(1 + random() % (round % 5 == 0 ? 100 : 12));
    const std::size_t from = random() % (text.size() + 2);
    ASSERT_EQ(FindNoCase(text, needle, from), FindSlowly(text, needle, from)) << needle << " in " << text << from;
    const std::string_view inside = std::string_view(text).substr(text.size() / 2, 1 + random() % 100);
    if (!inside.empty()) {
      ASSERT_EQ(FindNoCase(text, inside), FindSlowly(text, inside, 0)) << inside << " in " << text;
    }
  }
}

// Each place of a search that tried the needle at every one of them would take a million steps: none would ever be
// over.
TEST(TextTest, FindNoCaseIsLinearWhateverBothTextsAre) {
  constexpr std::size_t kBytes = 8 * 1024 * 1024;
  const std::string text(kBytes, 'i');
  const std::string most(kBytes / 3, 'I');
  EXPECT_EQ(FindNoCase(text, most + "b"), kNone);
  EXPECT_EQ(FindNoCase(text, "b" + most), kNone);
  EXPECT_EQ(FindNoCase(text, most + "b" + most), kNone);
  EXPECT_EQ(FindNoCase(text + "B" + most, most + "b" + most), kBytes - most.size());
  std::size_t count = 0;
  const std::string key = most.substr(0, 1000) + "=";
  const std::string pairs = ReplaceAll(text, text.substr(0, 2000), most.substr(0, 1999) + "=");
  for (std::size_t at = FindNoCase(pairs, key); at != kNone; at = FindNoCase(pairs, key, at + key.size())) ++count;
  EXPECT_EQ(count, kBytes / 2000);
}

TEST(TextTest, FindNoCaseFindsEachByteInItsPlace) {
  const std::string bytes = AllBytes();
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::size_t expected = i >= 'a' && i <= 'z' ? i - 32 : i;
    EXPECT_EQ(FindNoCase(bytes, std::string_view(bytes).substr(i, 1)), expected) << i;
  }
}

TEST(TextTest, FindNoCaseDoesNotLookThroughTheWholeTextForTheRareCaseAgainAndAgain) {
  const std::string text(4 * 1024 * 1024, 'a');  // each "A" that is not there would cost a pass to the end
  const auto begin = std::chrono::steady_clock::now();
  std::size_t count = 0;
  for (std::size_t at = FindNoCase(text, "A"); at != kNone; at = FindNoCase(text, "A", at + 1)) ++count;
  EXPECT_EQ(count, text.size());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST(TextTest, ReplaceAllReplacesWithoutLookingAtWhatItPutIn) {
  struct {
    std::string_view text, from, to, result;
  } const cases[] = {
      {"a b c", " ", "%20", "a%20b%20c"},
      {"aaa", "a", "aa", "aaaaaa"},
      {"aaaa", "aa", "b", "bb"},
      {"aaa", "aa", "b", "ba"},
      {"abc", "", "x", "abc"},
      {"abc", "d", "x", "abc"},
      {"abc", "abc", "", ""},
      {"", "a", "b", ""},
      {"aAa", "a", "x", "xAx"},
      {"a%20b%20", "%20", " ", "a b "},
      {"....//", "..", ".", "..//"},
      {"%%20%2", "%20", " ", "% %2"},
      {"x%20%20y%2", "%20", " ", "x  y%2"},
      {"a\\b\\", "\\", "/", "a/b/"},
      {"a\r\n\r\nb", "\r\n", "<br>", "a<br><br>b"},
  };
  for (const auto& c : cases) EXPECT_EQ(ReplaceAll(c.text, c.from, c.to), c.result) << c.text;
}

TEST(TextTest, LeadingNumberReadsDigitsAfterBlanks) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  struct {
    std::string_view text;
    std::optional<std::int64_t> number;
  } const cases[] = {
      {"0", 0},
      {"00", 0},
      {"5", 5},
      {"  12abc", 12},
      {"\t 12", 12},
      {"1 2", 1},
      {"1e9", 1},
      {"007", 7},
      {"80.5", 80},
      {"", std::nullopt},
      {"   ", std::nullopt},
      {"abc", std::nullopt},
      {"-5", std::nullopt},
      {"+5", std::nullopt},
      {"&H10", std::nullopt},
      {".5", std::nullopt},
      {"\r\n5", std::nullopt},
      {"\xB2", std::nullopt},
      {"9223372036854775806", kMost - 1},
      {"9223372036854775807", kMost},
      {"9223372036854775808", kMost},
      {"99999999999999999999999999", kMost},
      {"0000000000000000000000000000000012", 12},
  };
  for (const auto& c : cases) EXPECT_EQ(LeadingNumber(c.text), c.number) << c.text;
  EXPECT_EQ(LeadingNumber(std::string(65536, '9')), kMost);
}

TEST(TextTest, FindLineEndFindsTheFirstOfBoth) {
  const struct {
    std::string_view text;
    std::size_t end;
  } cases[] = {{"", 0}, {"a", 1}, {"a\r\nb", 1}, {"a\nb\r", 1}, {"a\rb\n", 1}, {"\n", 0}, {"\r", 0}, {"\na", 0}};
  for (const auto& c : cases) EXPECT_EQ(FindLineEnd(c.text), c.end) << testing::PrintToString(c.text);
}

TEST(TextTest, EmptyKeepsSmallMemoryOnly) {
  std::string small(100, 'a');
  std::string large(101, 'a');
  large.shrink_to_fit();
  Empty(small, small.capacity());
  Empty(large, 100);
  EXPECT_EQ(small + large, "");
  EXPECT_GE(small.capacity(), 100u);
  EXPECT_LT(large.capacity(), 100u);
}

}  // namespace
}  // namespace TesselServer
