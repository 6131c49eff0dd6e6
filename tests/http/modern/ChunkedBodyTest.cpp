#include <gtest/gtest.h>

#include <string>

#include "http/modern/ChunkedBody.h"
#include "tests/kit/Cuts.h"

namespace TesselServer::Modern {
namespace {

constexpr std::int64_t kBodyBytes = 20;
constexpr std::size_t kLineBytes = 40;

// The body, and behind it "+" and what is left where it ended, "..." where more must come, or the status of a refusal.
std::string Decoded(const Kit::Pieces& pieces) {
  ChunkedBody chunks;
  chunks.Begin(kBodyBytes, kLineBytes);
  std::string body, left;
  auto state = ChunkedBody::State::kMore;
  for (auto bytes : pieces) {
    while (state != ChunkedBody::State::kEnd && !bytes.empty()) {
      const auto step = chunks.Next(bytes);
      bytes.remove_prefix(step.used);
      body += step.piece;
      EXPECT_EQ(chunks.Received(), static_cast<std::int64_t>(body.size()));
      EXPECT_EQ(step.state == ChunkedBody::State::kPiece, !step.piece.empty());
      state = step.state;
      if (state == ChunkedBody::State::kRefused) return body + " " + std::to_string(chunks.RefusalStatus());
    }
    left += bytes;
  }
  return body + (state == ChunkedBody::State::kEnd ? "+" + left : "...");
}

void ExpectDecoded(std::string_view coded, const std::string& expected, const char* why) {
  for (const auto& pieces : Kit::AllCuts(coded)) {
    ASSERT_EQ(Decoded(pieces), expected) << why << ", cut after " << pieces.front().size() << ":\n" << coded;
  }
}

TEST(ModernChunkedBodyTest, PutsTheChunksTogether) {
  const struct {
    const char *coded, *expected, *why;
  } cases[] = {
      {"0\r\n\r\n", "+", "no body"},
      {"3\r\nabc\r\n0\r\n\r\n", "abc+", "one chunk"},
      {"3\r\nabc\r\n1\r\nd\r\n0\r\n\r\nGET", "abcd+GET", "two, and something behind"},
      {"2\r\n\r\n\r\n0\r\n\r\n", "\r\n+", "data that are a line end"},
      {"5\r\n0\r\n\r\n\r\n0\r\n\r\n", "0\r\n\r\n+", "data that look like the last chunk"},
      {"0\r\nA: b\r\nC:\r\n\r\n", "+", "trailer fields"},
      {"000\r\n\r\n", "+", "a last chunk of several zeros"},
      {"14\r\n01234567890123456789\r\n0\r\n\r\n", "01234567890123456789+", "a body at the limit"},
      {"3\r\nabc\r\n", "abc...", "no last chunk"},
      {"3\r\nab", "ab...", "half a chunk"},
      {"0\r\n", "...", "no end of the trailer part"},
      {"0\r\n\r", "...", "half of it"},
  };
  for (const auto& c : cases) ExpectDecoded(c.coded, c.expected, c.why);
}

TEST(ModernChunkedBodyTest, LimitsAreJudgedAtTheByteThatExceedsThem) {
  const struct {
    std::string coded, expected;
    const char* why;
  } cases[] = {
      {"15", " 413", "a size above the limit, before the end of its line"},
      {"10\r\n0123456789abcdef\r\n5", "0123456789abcdef 413", "the sum of two"},
      {"14\r\n01234567890123456789\r\n1", "01234567890123456789 413", "one byte more"},
      {"99999999999999999999999999", " 413", "a number that overflows"},
      {"3;" + std::string(38, 'a') + "\r\nabc\r\n", "abc...", "a line at the limit, whose end does not count"},
      {"3;" + std::string(39, 'a'), " 431", "one byte more"},
      {"3;a=\"" + std::string(36, 'a'), " 431", "in quotes"},
      {"3 " + std::string(39, ' '), " 431", "blanks"},
      {std::string(41, '0'), " 431", "zeros"},
      {"0\r\n" + std::string(41, 'A'), " 431", "the name of a trailer field"},
      {"0\r\nA:" + std::string(39, 'b'), " 431", "its value"},
      {"0\r\nA:" + std::string(16, 'b') + "\r\nA:" + std::string(16, 'b') + "\r\n\r\n", "+",
       "two at the limit together"},
      {"0\r\nA:" + std::string(16, 'b') + "\r\nA:" + std::string(17, 'b') + "\r\n", " 431", "two above it"},
      {"1;" + std::string(38, 'a') + "\r\nx\r\n1;" + std::string(38, 'a') + "\r\ny\r\n", "xy...",
       "each line by itself"},
  };
  for (const auto& c : cases) ExpectDecoded(c.coded, c.expected, c.why);
}

TEST(ModernChunkedBodyTest, AnyOtherByteIsRefused) {
  // At each place of this body every byte that the grammar does not have there is refused.
  const std::string coded = "3;a=\"b\"\r\nabc\r\n0\r\nX: y\r\n\r\n";
  const struct {
    std::size_t place;
    const char *allowed, *why;
  } cases[] = {
      {0, "0123456789abcdefABCDEF", "a digit; a longer body is refused for its length"},
      {7, "\r", "the end of the line, or more of the extension"},
      {8, "\n", "the LF of the line"},
      {12, "\r", "the end of the chunk"},
      {13, "\n", "its LF"},
      {16, "\n", "the LF of the last size"},
      {22, "\n", "the LF of a trailer field"},
      {24, "\n", "the last LF"},
  };
  for (const auto& c : cases) {
    for (int byte = 0; byte < 256; ++byte) {
      auto changed = coded;
      changed[c.place] = static_cast<char>(byte);
      if (c.place == 7 && std::string_view(" \t;").find(changed[c.place]) != std::string_view::npos) continue;
      const bool isAllowed = std::string_view(c.allowed).find(changed[c.place]) != std::string_view::npos;
      if (isAllowed) continue;
      EXPECT_TRUE(Decoded({changed}).ends_with(" 400")) << "byte " << byte << " in place of " << c.why;
    }
  }
}

}  // namespace
}  // namespace TesselServer::Modern
