#include <gtest/gtest.h>

#include <chrono>
#include <limits>

#include "support/cls_QueryString.h"

namespace TesselServer {
namespace {

cls_QueryString Query(std::string text) {
  cls_QueryString query;
  query.QueryString(std::move(text));
  return query;
}

TEST(cls_QueryStringTest, TheTextIsKeptAsItIs) {
  cls_QueryString query;
  EXPECT_EQ(query.QueryString(), "");
  query.QueryString("a=%20&b");
  EXPECT_EQ(query.QueryString(), "a=%20&b");
}

TEST(cls_QueryStringTest, OccurrencesAreCounted) {
  struct {
    std::string_view text, name;
    std::int16_t count;
    const char* why;
  } const cases[] = {
      {"a=1&b=2&a=3", "a", 2, "twice"},
      {"a=1&b=2&a=3", "A", 2, "in either case"},
      {"a=1&b=2&a=3", "b", 1, "once"},
      {"a=1&b=2&a=3", "c", 0, "never"},
      {"a=1&b=2&a=3", "", 0, "an empty name"},
      {"a=1&b=2&a=3", "   ", 0, "a blank name"},
      {"userid=7", "id", 1, "the tail of another name"},
      {"a&a", "a", 0, "a name without a value"},
      {"a=a=a", "a", 2, "a value that looks like a name"},
      {"===", "=", 1, "no overlap"},
      {"", "a", 0, "an empty text"},
      {" a=1", " a", 1, "a name is searched with its blanks"},
      {"a=1", " a", 0, "and not without"},
  };
  for (const auto& c : cases) EXPECT_EQ(Query(std::string(c.text)).Count(c.name), c.count) << c.why;
}

TEST(cls_QueryStringTest, ItemsAreFoundByNumber) {
  struct {
    std::string_view text, name;
    std::int32_t index;
    std::string_view delimiter, value;
    const char* why;
  } const cases[] = {
      {"a=1&b=2&a=3", "a", 2, "&", "3", "the second"},
      {"a=1&b=2&a=3", "A", 1, "&", "1", "in either case"},
      {"a=1&b=2&a=3", "b", 1, "&", "2", "in the middle"},
      {"a=1&b=2&a=3", "a", 3, "&", "", "one that is not there"},
      {"a=1&b=2&a=3", "a", 0, "&", "", "number 0"},
      {"a=1&b=2&a=3", "a", -1, "&", "", "below 0"},
      {"a=1&b=2&a=3", "a", std::numeric_limits<std::int32_t>::max(), "&", "", "far too many"},
      {"a=1&b=2&a=3", "c", 1, "&", "", "an unknown name"},
      {"a=1&b=2&a=3", "", 1, "&", "", "an empty name"},
      {"a=1&b=2&a=3", "  ", 1, "&", "", "a blank name"},
      {"userid=7", "id", 1, "&", "7", "the tail of another name"},
      {"a=%20+x&b", "a", 1, "&", "%20+x", "nothing is decoded"},
      {"a=&b=2", "a", 1, "&", "", "an empty value"},
      {"a=", "a", 1, "&", "", "an empty value at the end"},
      {"a=1;b=2", "a", 1, ";", "1", "another delimiter"},
      {"a=1 AND b=2", "a", 1, " and ", "1", "a delimiter in either case"},
      {"a=1&b=2", "a", 1, "", "1&b=2", "no delimiter: all of the rest"},
      {"a=1&b=2", "a", 1, "|", "1&b=2", "a delimiter that is not there"},
      {"a=1x=2", "a", 1, "&", "1x=2", "a text that was appended without a separator"},
      {"a=1x=2", "x", 1, "&", "2", "is found in it"},
      {" a=1&b=2", " a", 1, "&", "=1", "a name is measured without its blanks"},
      {"a =1", "a ", 1, "&", "=1", "behind it too"},
      {"  a=1", "  a", 1, "&", "a=1", "two of them"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Query(std::string(c.text)).Item(c.name, c.index, c.delimiter), c.value) << c.why;
  }
}

TEST(cls_QueryStringTest, ARememberedCountIsThatOfItsNameAndText) {
  cls_QueryString query;
  EXPECT_EQ(query.Count(""), 0);
  EXPECT_EQ(query.Count("a"), 0);
  query.QueryString("a=1&b=2&a=3");
  EXPECT_EQ(query.Count("a"), 2);
  EXPECT_EQ(query.Count("a"), 2);
  EXPECT_EQ(query.Count("b"), 1);
  EXPECT_EQ(query.Count(" "), 0);
  EXPECT_EQ(query.Count(" "), 0);
  EXPECT_EQ(query.Count("a"), 2);
  query.QueryString("a=1");
  EXPECT_EQ(query.Count("a"), 1) << "a new text is counted anew";
  query.QueryString("");
  EXPECT_EQ(query.Count("a"), 0);
  EXPECT_EQ(query.Count(""), 0);
}

TEST(cls_QueryStringTest, TheCountStopsAtTheLargestNumberItHolds) {
  std::string text;
  for (int i = 0; i < 32766; ++i) text += "a=";
  EXPECT_EQ(Query(text).Count("a"), 32766);
  EXPECT_EQ(Query(text + "a=").Count("a"), 32767);
  EXPECT_EQ(Query(text + "a=a=").Count("a"), 32767);
  EXPECT_EQ(Query(text + text + text).Count("a"), 32767);
}

TEST(cls_QueryStringTest, ItemsAfterTheLargestCountAreFound) {
  std::string text;
  for (int i = 0; i < 40000; ++i) text += "a=&";
  EXPECT_EQ(Query(text + "a=last").Item("a", 40001, "&"), "last");
}

TEST(cls_QueryStringTest, AnyByteCanStandInAValue) {
  for (int i = 0; i < 256; ++i) {
    const std::string byte(1, static_cast<char>(i));
    EXPECT_EQ(Query("x=" + byte + "\n").Item("x", 1, "\n"), i == '\n' ? "" : byte) << i;
  }
}

TEST(cls_QueryStringTest, AHostileTextIsReadInOnePass) {
  constexpr std::size_t kLength = 64 * 1024;
  const auto begin = std::chrono::steady_clock::now();
  for (const std::string_view unit : {"a", "A", "a=", "A=", "=", "&", "aA=", "\xFF", "a=&"}) {
    std::string text;
    while (text.size() < kLength) text += unit;
    const cls_QueryString query = Query(text);
    for (const std::string_view name : {"a", "A", "aa", "=", "\xFF", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab"}) {
      const std::int16_t count = query.Count(name);
      EXPECT_EQ(query.Item(name, count + 1, "&"), count < 32767 ? "" : query.Item(name, 32768, "&"));
      EXPECT_EQ(query.Count(name), count);
    }
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

}  // namespace
}  // namespace TesselServer
