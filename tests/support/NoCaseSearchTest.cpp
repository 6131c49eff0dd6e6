#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "platform/world/AsciiCase.h"
#include "support/NoCaseSearch.h"
#include "support/Text.h"
#include "tests/kit/Cuts.h"

namespace TesselServer {
namespace {

// Where each place ends, overlapping ones too, as the meaning of the search says it.
std::vector<std::size_t> EndsByTrying(std::string_view text, std::string_view wanted) {
  std::vector<std::size_t> ends;
  for (std::size_t at = 0; at + wanted.size() <= text.size(); ++at) {
    if (EqualNoCase(text.substr(at, wanted.size()), wanted)) ends.push_back(at + wanted.size());
  }
  return ends;
}

std::vector<std::size_t> EndsIn(const Kit::Pieces& pieces, std::string_view wanted) {
  NoCaseSearch search(wanted);
  std::vector<std::size_t> ends;
  std::size_t before = 0;
  for (std::string_view piece : pieces) {
    for (auto end = search.Take(piece); end != kNpos; end = search.Take(piece)) {
      before += end;
      ends.push_back(before);
      piece.remove_prefix(end);
    }
    before += piece.size();
  }
  return ends;
}

std::string RandomText(std::mt19937& random, std::size_t size, std::string_view alphabet) {
  std::string text;
  while (text.size() < size) text += alphabet[random() % alphabet.size()];
  return text;
}

TEST(NoCaseSearchTest, FindsEachPlaceHoweverTheTextIsCut) {
  const struct {
    std::string_view text, wanted;
  } cases[] = {
      {"abcABC", "bC"},
      {"aAaAa", "aa"},
      {"aabaabaaab", "aabaaab"},
      {"abababac", "ababac"},
      {"ann:sec", "secret"},
      {"a\xC4x\xE4", "\xE4"},
      {"", "a"},
      {"@[`{", "`{"},
      {"abc", "abcd"},
      {"secretsecret", "T"},
  };
  for (const auto& c : cases) {
    for (const Kit::Pieces& pieces : Kit::AllCuts(c.text)) {
      EXPECT_EQ(EndsIn(pieces, c.wanted), EndsByTrying(c.text, c.wanted)) << c.text << ", pieces: " << pieces.size();
    }
  }
}

TEST(NoCaseSearchTest, AgreesWithTryingEachPlaceWhereBothTextsRepeatThemselves) {
  std::mt19937 random(7);
  for (int round = 0; round < 20'000; ++round) {
    const std::string_view alphabet = round % 2 == 0 ? "aB" : "abA:";
    const std::string text = RandomText(random, random() % 60, alphabet);
    const std::string wanted = RandomText(random, 1 + random() % 8, alphabet);
    const std::size_t cut = random() % (text.size() + 1);
    const Kit::Pieces pieces = {std::string_view(text).substr(0, cut), std::string_view(text).substr(cut)};
    ASSERT_EQ(EndsIn(pieces, wanted), EndsByTrying(text, wanted)) << wanted << " in " << text << " cut at " << cut;
  }
}

TEST(NoCaseSearchTest, AnEmptyTextIsNeverFound) {
  NoCaseSearch search("");
  EXPECT_EQ(search.Take(""), kNpos);
  EXPECT_EQ(search.Take("a"), kNpos);
}

// A Fibonacci word makes the most of the ways back that there are.
std::string FibonacciWord(std::size_t size) {
  std::string shorter = "a";
  std::string word = "ab";
  while (word.size() < size) {
    shorter.swap(word);
    word.insert(0, shorter);
  }
  word.resize(size);
  return word;
}

TEST(NoCaseSearchTest, ComparesAtMostTwiceForEachByte) {
  constexpr std::size_t kBytes = 50'000;
  const std::string repeated(kBytes, '#');
  const std::string fibonacci = FibonacciWord(kBytes);
  const struct {
    std::string text, wanted;
    const char* why;
  } cases[] = {
      {repeated + repeated, "#:" + repeated, "the beginning is nowhere in it again"},
      {repeated + repeated, repeated + ":#", "it differs at its end"},
      {repeated + repeated, "b" + repeated, "it differs at its beginning"},
      {repeated + ":" + repeated, repeated + "#", "all ways back at one place"},
      {fibonacci + fibonacci, fibonacci + "c", "many ways back"},
      {fibonacci, fibonacci.substr(0, 1000) + "c", "many ways back, often"},
      {std::string(kBytes, 'A'), std::string(100, 'a') + "b", "the other case"},
  };
  for (const auto& c : cases) {
    NoCaseSearch search(c.wanted);
    EXPECT_LE(search.Compared(), 2 * c.wanted.size()) << c.why;
    search.Take(c.text);
    EXPECT_LE(search.Compared(), 2 * (c.wanted.size() + c.text.size())) << c.why;
    EXPECT_GE(search.Compared(), c.text.size()) << c.why;
  }
}

}  // namespace
}  // namespace TesselServer
