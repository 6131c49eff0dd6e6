#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/cls_Strings.h"

namespace TesselServer {
namespace {

using List = std::vector<std::string>;
using Table = std::vector<List>;

TEST(cls_StringsTest, AListIsCutAtItsDelimiter) {
  struct {
    std::string_view list, delimiter;
    List items;
    const char* why;
  } const cases[] = {
      {"", ",", {}, "an empty list"},
      {"    ", ",", {}, "a blank list"},
      {"index.html", ",", {"index.html"}, "one piece"},
      {"index.html,index.htm", ",", {"index.html", "index.htm"}, "two"},
      {" a , b ", ",", {"a", "b"}, "outer blanks go"},
      {"a b,c", ",", {"a b", "c"}, "inner ones stay"},
      {"a,,b", ",", {"a", "", "b"}, "an empty piece"},
      {",a", ",", {"", "a"}, "an empty first piece"},
      {"a,", ",", {"a"}, "nothing behind the last delimiter"},
      {"a,  ", ",", {"a"}, "only blanks behind it"},
      {"a,,", ",", {"a", ""}, "an empty piece before it"},
      {",", ",", {""}, "only a delimiter"},
      {"a--b-c", "--", {"a", "b-c"}, "a longer delimiter"},
      {"aXbxc", "x", {"aXb", "c"}, "the delimiter is exact"},
      {"a,b", "", {"a,b"}, "no delimiter"},
      {"a,b", ";", {"a,b"}, "a delimiter that is not there"},
      {"\ta,b\t", ",", {"\ta", "b\t"}, "a tab is no blank"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(cls_Strings::ListStrToArray(c.list, c.delimiter), c.items) << c.why;
    EXPECT_EQ(cls_Strings::CountItems(c.list, c.delimiter), static_cast<std::int32_t>(c.items.size())) << c.why;
  }
}

TEST(cls_StringsTest, ATableIsCutAtBothDelimiters) {
  struct {
    std::string_view list;
    Table table;
    const char* why;
  } const cases[] = {
      {"", {}, "an empty list"},
      {"  ", {}, "a blank list"},
      {"a", {{"a"}}, "one cell"},
      {"a=1;b=2", {{"a", "1"}, {"b", "2"}}, "two rows"},
      {"a=1;b", {{"a", "1"}, {"b", ""}}, "a missing cell"},
      {"a;b=1=2;c=3", {{"a", "", ""}, {"b", "1", "2"}, {"c", "3", ""}}, "the widest row decides"},
      {"a=;=b", {{"a", ""}, {"", "b"}}, "empty cells"},
      {"a=1;;b=2", {{"a", "1"}, {"", ""}, {"b", "2"}}, "an empty row"},
      {"a;", {{"a"}, {""}}, "an empty last row"},
      {" a = 1 ; b ", {{"a", "1"}, {"b", ""}}, "outer blanks go"},
  };
  for (const auto& c : cases) EXPECT_EQ(cls_Strings::ListStrTo2DArray(c.list, ";", "="), c.table) << c.why;
}

TEST(cls_StringsTest, ATableThatIsTooLargeIsNotMade) {
  const std::string rows(999, ';');  // 1000 rows
  EXPECT_EQ(cls_Strings::ListStrTo2DArray(rows + std::string(999, '='), ";", "=").size(), 1000u);
  EXPECT_EQ(cls_Strings::ListStrTo2DArray(rows + std::string(1000, '='), ";", "=").size(), 0u);
  EXPECT_EQ(cls_Strings::ListStrTo2DArray(std::string(32768, ';') + std::string(32768, '='), ";", "=").size(), 0u);
}

TEST(cls_StringsTest, ADelimiterIsFoundFromAPosition) {
  struct {
    std::string_view list, delimiter;
    std::int32_t start, position;
  } const cases[] = {
      {"a,b,c", ",", 1, 2},
      {"a,b,c", ",", 2, 2},
      {"a,b,c", ",", 3, 4},
      {"a,b,c", ",", 5, 0},
      {"a,b,c", ",", 0, 2},
      {"a,b,c", ",", -7, 2},
      {"a,b,c", ",", 99, 0},
      {"a,b,c", ";", 1, 0},
      {"a,b,c", "", 1, 0},
      {"", ",", 1, 0},
      {"aXbx", "x", 1, 4},
      {"a,b,c", ",", std::numeric_limits<std::int32_t>::min(), 2},
      {"a,b,c", ",", std::numeric_limits<std::int32_t>::max(), 0},
  };
  for (const auto& c : cases)
    EXPECT_EQ(cls_Strings::FindDelimiter(c.list, c.delimiter, c.start), c.position) << c.start;
}

TEST(cls_StringsTest, ALongListOfDelimitersHasAsManyPieces) {
  const std::string list(64 * 1024, ',');
  EXPECT_THAT(cls_Strings::ListStrToArray(list, ","), testing::AllOf(testing::SizeIs(64 * 1024), testing::Each("")));
  EXPECT_EQ(cls_Strings::CountItems(list, ","), 64 * 1024);
}

TEST(cls_StringsTest, AnyByteCanStandInAPiece) {
  for (int i = 0; i < 256; ++i) {
    if (i == ' ' || i == ',') continue;
    const std::string byte(1, static_cast<char>(i));
    EXPECT_EQ(cls_Strings::ListStrToArray("a," + byte + ",b", ","), (List{"a", byte, "b"})) << i;
  }
}

}  // namespace
}  // namespace TesselServer
