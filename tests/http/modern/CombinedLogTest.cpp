#include <gtest/gtest.h>

#include <limits>
#include <regex>

#include "http/modern/CombinedLog.h"

namespace TesselServer::Modern {
namespace {

constexpr std::int64_t kLogMoment = 1795300128;  // Saturday, 21 November 2026, 22:28:48 UTC
constexpr std::string_view kLogStamp = "[21/Nov/2026:22:28:48 +0000]";

std::string LineOf(const CombinedLogEntry& entry) {
  std::string line;
  AppendCombinedLogLine(line, entry);
  return line;
}

TEST(CombinedLogTest, StampsHaveTheirZoneWithItsMinutes) {
  const struct {
    std::int64_t seconds;
    std::int32_t bias;
    const char *stamp, *why;
  } cases[] = {
      {kLogMoment, 0, "[21/Nov/2026:22:28:48 +0000]", "UTC"},
      {kLogMoment, -60, "[21/Nov/2026:23:28:48 +0100]", "an hour east"},
      {kLogMoment, 300, "[21/Nov/2026:17:28:48 -0500]", "five hours west"},
      {kLogMoment, -330, "[22/Nov/2026:03:58:48 +0530]", "half an hour counts"},
      {kLogMoment, 210, "[21/Nov/2026:18:58:48 -0330]", "west, too"},
      {kLogMoment, -345, "[22/Nov/2026:04:13:48 +0545]", "a quarter"},
      {kLogMoment, -840, "[22/Nov/2026:12:28:48 +1400]", "the most eastern"},
      {kLogMoment, 5, "[21/Nov/2026:22:23:48 -0005]", "less than an hour west"},
      {0, 0, "[01/Jan/1970:00:00:00 +0000]", "one digit is two"},
      {951782400, 1, "[28/Feb/2000:23:59:00 -0001]", "the day before a leap day"},
  };
  for (const auto& c : cases) EXPECT_EQ(CombinedLogStamp(c.seconds, c.bias), c.stamp) << c.why;
}

TEST(CombinedLogTest, ALineHasItsParts) {
  EXPECT_EQ(LineOf({.address = "192.0.2.7",
                    .user = "alice",
                    .stamp = kLogStamp,
                    .requestLine = "GET /a?b HTTP/1.1",
                    .status = 206,
                    .bodyBytes = 5'368'709'120,
                    .referer = "http://example.org/",
                    .userAgent = "curl/7.88.1"}),
            "192.0.2.7 - alice [21/Nov/2026:22:28:48 +0000] \"GET /a?b HTTP/1.1\" 206 5368709120 "
            "\"http://example.org/\" \"curl/7.88.1\"");
  EXPECT_EQ(LineOf({.address = "2001:db8::7", .stamp = kLogStamp, .status = 408}),
            "2001:db8::7 - - [21/Nov/2026:22:28:48 +0000] \"-\" 408 0 \"-\" \"-\"")
      << "a client that said nothing";
  EXPECT_EQ(LineOf({.address = "", .stamp = kLogStamp, .status = 200, .bodyBytes = -1}),
            "- - - [21/Nov/2026:22:28:48 +0000] \"-\" 200 0 \"-\" \"-\"")
      << "no address, and no count below zero";
}

TEST(CombinedLogTest, IsAppendedWithoutALineEnd) {
  std::string text = "before\n";
  AppendCombinedLogLine(text, {.address = "a", .stamp = "[s]"});
  EXPECT_EQ(text, "before\na - - [s] \"-\" 200 0 \"-\" \"-\"");
}

TEST(CombinedLogTest, TextsOfTheClientKeepTheirQuotes) {
  const struct {
    std::string_view sent;
    const char *written, *why;
  } cases[] = {
      {"plain text/1.0 (x; y) [z]", "plain text/1.0 (x; y) [z]", "nothing to do"},
      {"a\"b", "a\\\"b", "a quote"},
      {"a\\", "a\\\\", "a backslash at the end does not take the quote"},
      {"\\\"", "\\\\\\\"", "both"},
      {"\\x41", "\\\\x41", "a code that was sent is told from one that was written"},
      {"a\r\nb", "a\\x0D\\x0Ab", "a line's end"},
      {"a\tb", "a\\x09b", "a tab"},
      {std::string_view("a\0b", 3), "a\\x00b", "a NUL"},
      {"\x1B[2J", "\\x1B[2J", "what controls a terminal"},
      {"\x7F", "\\x7F", "a delete"},
      {"Caf\xC3\xA9", "Caf\\xC3\\xA9", "bytes from 0x80"},
      {"\x80\x9B\xFF", "\\x80\\x9B\\xFF", "that are no text"},
      {"", "-", "nothing"},
      {"-", "-", "as good as nothing"},
  };
  for (const auto& c : cases) {
    const std::string quoted = "\"" + std::string(c.written) + "\"";
    const std::string begin = "a - - [s] ";
    EXPECT_EQ(LineOf({.address = "a", .stamp = "[s]", .requestLine = c.sent}), begin + quoted + " 200 0 \"-\" \"-\"")
        << c.why;
    EXPECT_EQ(LineOf({.address = "a", .stamp = "[s]", .referer = c.sent}), begin + "\"-\" 200 0 " + quoted + " \"-\"")
        << c.why;
    EXPECT_EQ(LineOf({.address = "a", .stamp = "[s]", .userAgent = c.sent}), begin + "\"-\" 200 0 \"-\" " + quoted)
        << c.why;
  }
}

TEST(CombinedLogTest, AUsersNameIsOneWord) {
  const struct {
    std::string_view user;
    const char* written;
  } cases[] = {
      {"alice", "alice"},
      {"", "-"},
      {"a b", "a\\x20b"},
      {"a\"b", "a\\x22b"},
      {"a\\b", "a\\\\b"},
      {"a [01/Jan/1970:00:00:00 +0000] \"", "a\\x20\\x5B01/Jan/1970:00:00:00\\x20+0000\\x5D\\x20\\x22"},
      {"\xC3\xA9\n", "\\xC3\\xA9\\x0A"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(LineOf({.address = "a", .user = c.user, .stamp = "[s]"}),
              "a - " + std::string(c.written) + " [s] \"-\" 200 0 \"-\" \"-\"");
  }
}

TEST(CombinedLogTest, NoByteOfAClientForgesALine) {
  // Whatever single byte is in it, and wherever: the same nine parts, by which a reader of logs cuts a line.
  const std::regex parts(
      R"re(^(\S+) (\S+) (\S+) \[([^\]\[]+)\] "((?:[^"\\]|\\.)*)" ([0-9]{3}) ([0-9]+) "((?:[^"\\]|\\.)*)" "((?:[^"\\]|\\.)*)"$)re");
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    for (const std::string& text : {std::string(1, c), std::string(2, c), std::string("a") + c + "b"}) {
      const std::string line = LineOf({.address = "192.0.2.7",
                                       .user = text,
                                       .stamp = kLogStamp,
                                       .requestLine = text,
                                       .referer = text,
                                       .userAgent = text});
      std::smatch found;
      ASSERT_TRUE(std::regex_match(line, found, parts)) << line;
      EXPECT_EQ(found[4], "21/Nov/2026:22:28:48 +0000") << line;
      EXPECT_EQ(found[6], "200") << line;
      EXPECT_EQ(found[5], found[8]) << line;
    }
  }
}

TEST(CombinedLogTest, LongTextsAreCut) {
  const std::string text(1'000'000, '\n');
  const std::string line =
      LineOf({.address = "a", .user = text, .stamp = "[s]", .requestLine = text, .referer = text, .userAgent = text});
  EXPECT_LE(line.size(), 4 * 4 * kMaxCombinedLogText + 100);
  EXPECT_GE(line.size(), 4 * 4 * kMaxCombinedLogText);
}

}  // namespace
}  // namespace TesselServer::Modern
