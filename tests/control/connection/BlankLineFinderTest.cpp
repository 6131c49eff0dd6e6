#include <gtest/gtest.h>

#include <string>

#include "control/connection/BlankLineFinder.h"
#include "tests/kit/Cuts.h"

namespace TesselServer {
namespace {

TEST(BlankLineFinderTest, FindsTheFirstBlankLineHoweverTheTextIsCut) {
  struct {
    std::string_view text;
    std::size_t end;  // 0: none
  } const cases[] = {
      {"\r\n\r\n", 4},       {"a\r\n\r\nb", 5},     {"a\r\n\r\nb\r\n\r\n", 5},    {"\r\r\n\r\n", 5},
      {"\r\n\r\r\n\r\n", 7}, {"\r\n\n\r\n\r\n", 7}, {"a: b\r\nc: d\r\n\r\n", 14}, {"\r\nx\r\n", 0},
      {"\n\n", 0},           {"\r\n\r", 0},         {"\r\r\r\r\n\n\n\n", 0},
  };
  for (const auto& c : cases) {
    for (const auto& pieces : Kit::AllCuts(c.text)) {
      BlankLineFinder finder;
      std::string behind;
      for (const auto piece : pieces) behind += piece.substr(finder.Feed(piece));
      EXPECT_EQ(finder.Found(), c.end != 0);
      EXPECT_EQ(finder.End(), c.end != 0 ? c.end : c.text.size());
      EXPECT_EQ(behind, c.end != 0 ? c.text.substr(c.end) : "");
    }
  }
}

TEST(BlankLineFinderTest, TakesNothingAfterTheEnd) {
  BlankLineFinder finder;
  EXPECT_EQ(finder.Feed("\r\n\r\n"), 4U);
  EXPECT_EQ(finder.Feed("\r\n\r\n"), 0U);
  EXPECT_EQ(finder.End(), 4U);
}

TEST(BlankLineFinderTest, TakesEmptyPieces) {
  BlankLineFinder finder;
  EXPECT_EQ(finder.Feed(""), 0U);
  EXPECT_EQ(finder.Feed("\r\n\r"), 3U);
  EXPECT_EQ(finder.Feed({}), 0U);
  EXPECT_EQ(finder.Feed("\n"), 1U);
  EXPECT_TRUE(finder.Found());
}

}  // namespace
}  // namespace TesselServer
