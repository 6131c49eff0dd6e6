#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "support/Printable.h"

namespace TesselServer {
namespace {

using namespace std::string_view_literals;

TEST(PrintableTest, LinesAreUnambiguousAndHarmless) {
  struct {
    std::string_view text;
    std::string_view printable;
    const char* why;
  } const cases[] = {
      {""sv, "", "nothing"},
      {"GET / \"x\" ~"sv, "GET / \"x\" ~", "printable ASCII, quotes included"},
      {"a\tb\r\n\0\x1F"sv, R"(a\x09b\x0D\x0A\x00\x1F)", "controls"},
      {"\x1B[2J\x7F"sv, R"(\x1B[2J\x7F)", "a terminal's sequence, delete"},
      {R"(\)"sv, R"(\\)", "a backslash"},
      {R"(\x1B)"sv, R"(\\x1B)", "what looks like a code"},
      {"\x80\x85\x9B\x9F"sv, R"(\x80\x85\x9B\x9F)", "C1 controls of one byte"},
      {"\xA0\xE9\xFF"sv, "\xA0\xE9\xFF", "other single bytes"},
      {"\xC2\x80\xC2\x9B\xC2\x9F"sv, R"(\xC2\x80\xC2\x9B\xC2\x9F)", "C1 controls of a UTF-8 terminal"},
      {"\xC2\xA0\xC3\x80\xC3\x9F\xDF\xBF"sv, "\xC2\xA0\xC3\x80\xC3\x9F\xDF\xBF", "characters of two bytes"},
      {"\xE0\xA0\x80\xE2\x82\xAC\xED\x9F\xBF\xEF\xBF\xBF"sv, "\xE0\xA0\x80\xE2\x82\xAC\xED\x9F\xBF\xEF\xBF\xBF",
       "of three"},
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"sv, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "of four"},
      {"\xC3\x9B\x9B"sv, "\xC3\x9B\\x9B", "a control after a character"},
      {"\xC3"sv, "\xC3", "a character that is cut at the end"},
      {"\xE2\x82"sv, "\xE2\\x82", "one that is cut later"},
      {"\xF0\x90\x80"sv, "\xF0\\x90\\x80", "one that is cut in its last byte"},
      {"\xE2\x82x"sv, "\xE2\\x82x", "one that another takes the place of"},
      {"\xC0\x9B\xC1\x9B"sv, "\xC0\\x9B\xC1\\x9B", "two bytes where one would do"},
      {"\xE0\x82\x9B"sv, "\xE0\\x82\\x9B", "three where two would do"},
      {"\xF0\x82\x82\x9B"sv, "\xF0\\x82\\x82\\x9B", "four where three would do"},
      {"\xED\xA0\x80"sv, "\xED\xA0\\x80", "half of a pair"},
      {"\xF4\x90\x80\x80"sv, "\xF4\\x90\\x80\\x80", "above the last character"},
      {"\xF5\x80\x80\x80"sv, "\xF5\\x80\\x80\\x80", "no first byte"},
  };
  for (const auto& c : cases) EXPECT_EQ(Printable(c.text), c.printable) << c.why;
}

TEST(PrintableTest, EveryByteAloneHasOneSpelling) {
  for (unsigned byte = 0; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    const auto printable = Printable(text);
    if (byte < 0x20 || (byte >= 0x7F && byte < 0xA0)) {
      ASSERT_EQ(printable.size(), 4u) << byte;
      EXPECT_EQ(printable.substr(0, 2), "\\x") << byte;
      EXPECT_EQ(std::stoul(printable.substr(2), nullptr, 16), byte);
    } else {
      EXPECT_EQ(printable, byte == '\\' ? "\\\\" : text) << byte;
    }
  }
}

TEST(PrintableTest, AppendingLeavesWhatWasThere) {
  std::string line = "\n\\|";
  AppendPrintable(line, "plain, long enough for many bytes to be looked at in one go|");
  AppendPrintable(line, "a\tb|");
  AppendPrintable(line, "");
  EXPECT_EQ(line, "\n\\|plain, long enough for many bytes to be looked at in one go|a\\x09b|");
}

}  // namespace
}  // namespace TesselServer
