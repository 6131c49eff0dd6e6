#include <gtest/gtest.h>

#include <set>
#include <string>

#include "http/modern/EntityTag.h"

namespace TesselServer::Modern {
namespace {

std::string TagOf(const FileVersion& file) { return std::string(FileTag(file).Text()); }

TEST(EntityTagTest, AFilesTagIsStrongAndReadsBack) {
  const FileTag tag({.device = 2049, .inode = 1234, .size = 5678, .modified = 1'795'300'128'123'456'789});
  EXPECT_EQ(tag.Text().size(), 18u);
  std::string_view text = tag.Text();
  const auto read = TakeEntityTag(text);
  ASSERT_TRUE(read);
  EXPECT_TRUE(text.empty());
  EXPECT_FALSE(read->isWeak);
  EXPECT_EQ(read->opaque, tag.Text());
  EXPECT_EQ(tag.Text().find_first_not_of("0123456789abcdef", 1), 17u) << "digits up to the second quote";
}

TEST(EntityTagTest, EveryChangeOfAFileChangesItsTag) {
  const FileVersion file{.device = 1, .inode = 2, .size = 3, .modified = 4};
  EXPECT_EQ(TagOf(file), TagOf(file)) << "the same file has the same tag, today and tomorrow";
  std::set<std::string> tags = {TagOf(file)};
  for (std::int64_t i = 1; i <= 1000; ++i) {
    const auto more = static_cast<std::uint64_t>(i);
    EXPECT_TRUE(tags.insert(TagOf({1 + more, 2, 3, 4})).second) << "device " << i;
    EXPECT_TRUE(tags.insert(TagOf({1, 2 + more, 3, 4})).second) << "inode " << i;
    EXPECT_TRUE(tags.insert(TagOf({1, 2, 3 + i, 4})).second) << "size " << i;
    EXPECT_TRUE(tags.insert(TagOf({1, 2, 3, 4 + i})).second) << "a nanosecond " << i;
    EXPECT_TRUE(tags.insert(TagOf({1, 2, 3, -i})).second) << "before 1970 " << i;
  }
  EXPECT_TRUE(tags.insert(TagOf({2, 1, 3, 4})).second) << "values that changed their places";
  EXPECT_TRUE(tags.insert(TagOf({1, 2, 4, 3})).second) << "likewise";
  EXPECT_TRUE(tags.insert(TagOf({0, 0, 0, 0})).second) << "nothing but zeros";
}

TEST(EntityTagTest, IsTakenFromTheBeginningOfAText) {
  const struct {
    std::string_view text, opaque;
    bool isWeak;
    std::string_view rest;
    const char* why;
  } cases[] = {
      {"\"a\"", "\"a\"", false, "", "one tag"},
      {"\"\"", "\"\"", false, "", "a tag without a byte is one"},
      {"W/\"a\"", "\"a\"", true, "", "a weak one"},
      {"W/\"\"", "\"\"", true, "", "weak and empty"},
      {"\"a,b\", \"c\"", "\"a,b\"", false, ", \"c\"", "a comma between quotes is the tag's"},
      {"\"a\\\"b\"", "\"a\\\"", false, "b\"", "a backslash escapes nothing here"},
      {"\"!#$%&'()*+-./:;<=>?@[]^_`{|}~\"", "\"!#$%&'()*+-./:;<=>?@[]^_`{|}~\"", false, "", "all that may be"},
      {"\"\x80\xFF\"", "\"\x80\xFF\"", false, "", "bytes from 0x80 may be"},
      {"\"W/\"", "\"W/\"", false, "", "W/ behind the quote is the tag's"},
  };
  for (const auto& c : cases) {
    std::string_view text = c.text;
    const auto tag = TakeEntityTag(text);
    ASSERT_TRUE(tag) << c.why;
    EXPECT_EQ(tag->opaque, c.opaque) << c.why;
    EXPECT_EQ(tag->isWeak, c.isWeak) << c.why;
    EXPECT_EQ(text, c.rest) << c.why;
  }
}

TEST(EntityTagTest, WhatIsNoTagIsLeftAsItIs) {
  for (const std::string_view given :
       {std::string_view(""), std::string_view("a"), std::string_view("\""), std::string_view("\"a"),
        std::string_view("W/"), std::string_view("W/a"), std::string_view("w/\"a\""), std::string_view("W\"a\""),
        std::string_view("W/ \"a\""), std::string_view(" \"a\""), std::string_view("'a'"), std::string_view("*"),
        std::string_view("\"a b\""), std::string_view("\"a\tb\""), std::string_view("\"a\x7F\""),
        std::string_view("\"a\0\"", 4), std::string_view("\"a\r\n\"")}) {
    std::string_view text = given;
    EXPECT_FALSE(TakeEntityTag(text)) << given;
    EXPECT_EQ(text, given);
  }
}

TEST(EntityTagTest, IsComparedAsTheTableOfTheRfcSays) {
  // RFC 9110 section 8.8.3.2.
  const struct {
    const char *a, *b;
    bool strong, weak;
  } cases[] = {
      {"W/\"1\"", "W/\"1\"", false, true},
      {"W/\"1\"", "W/\"2\"", false, false},
      {"W/\"1\"", "\"1\"", false, true},
      {"\"1\"", "\"1\"", true, true},
      {"\"1\"", "\"2\"", false, false},
      {"\"a\"", "\"A\"", false, false},
      {"\"1\"", "\"1\", \"2\"", false, false},
      {"\"1\"", "1", false, false},
      {"", "", false, false},
      {"*", "\"1\"", false, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(IsSameEntityTag(c.a, c.b, TagComparison::kStrong), c.strong) << c.a << " " << c.b;
    EXPECT_EQ(IsSameEntityTag(c.b, c.a, TagComparison::kStrong), c.strong) << c.b << " " << c.a;
    EXPECT_EQ(IsSameEntityTag(c.a, c.b, TagComparison::kWeak), c.weak) << c.a << " " << c.b;
    EXPECT_EQ(IsSameEntityTag(c.b, c.a, TagComparison::kWeak), c.weak) << c.b << " " << c.a;
  }
}

TEST(EntityTagTest, IsFoundInAList) {
  const struct {
    std::string_view list;
    bool strong, weak;
    const char* why;
  } cases[] = {
      {"\"x\"", true, true, "the tag alone"},
      {"W/\"x\"", false, true, "a weak one is no strong one"},
      {"*", true, true, "whatever there is"},
      {" * ", true, true, "with blanks around it"},
      {"\"a\", \"x\"", true, true, "the second"},
      {"\"a\",\"x\",\"b\"", true, true, "no blanks"},
      {"\"a\" \t,\t \"x\" ", true, true, "blanks and tabs"},
      {",, ,\"x\"", true, true, "empty elements in front"},
      {"\"a\",, ,\"x\",,", true, true, "empty elements within and at the end"},
      {"\"a\", W/\"x\"", false, true, "a weak second"},
      {"W/\"x\", \"x\"", true, true, "weak and strong"},
      {"\"a,x\", \"b\"", false, false, "a part of a tag is none"},
      {"\"a\", \",\", \"x\"", true, true, "a comma as a tag"},
      {"\"X\"", false, false, "letters in another case"},
      {"\"x", false, false, "a quote is missing"},
      {"x", false, false, "no quotes"},
      {"", false, false, "an empty list"},
      {",", false, false, "a list of nothing"},
      {"\"a\", *", false, false, "\"*\" is no element of a list"},
      {"*, \"x\"", false, false, "likewise"},
      {"**", false, false, "likewise"},
      {"\"*\"", false, false, "a tag like any other"},
      {"\"a\" \"x\"", false, false, "no comma between"},
      {"\"x\" \"a\"", false, false, "likewise: the list is broken before it says anything"},
      {"\"x\"y", false, false, "more at the end of the tag"},
      {"\"a\"; \"x\"", false, false, "another separator"},
      {"bad, \"x\"", false, false, "nothing counts after what is broken"},
      {"\"x\", bad", true, true, "but what was before it"},
      {std::string_view("\"x\"\0", 4), false, false, "a NUL at the end"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ListsEntityTag(c.list, "\"x\"", TagComparison::kStrong), c.strong) << c.list << ": " << c.why;
    EXPECT_EQ(ListsEntityTag(c.list, "\"x\"", TagComparison::kWeak), c.weak) << c.list << ": " << c.why;
  }
}

TEST(EntityTagTest, AThingWithoutATagIsNamedByTheStarAlone) {
  for (const auto comparison : {TagComparison::kStrong, TagComparison::kWeak}) {
    EXPECT_TRUE(ListsEntityTag("*", "", comparison));
    EXPECT_FALSE(ListsEntityTag("", "", comparison));
    EXPECT_FALSE(ListsEntityTag("\"\"", "", comparison));
    EXPECT_TRUE(ListsEntityTag("\"\"", "\"\"", comparison)) << "an empty tag is one";
  }
}

TEST(EntityTagTest, LongListsArePassedOnce) {
  std::string list;
  for (int i = 0; i < 200'000; ++i) list += "\"a\",";
  EXPECT_FALSE(ListsEntityTag(list, "\"x\"", TagComparison::kWeak));
  EXPECT_TRUE(ListsEntityTag(list + "\"x\"", "\"x\"", TagComparison::kWeak));
  EXPECT_FALSE(ListsEntityTag(std::string(1'000'000, ','), "\"x\"", TagComparison::kWeak));
  EXPECT_FALSE(ListsEntityTag(std::string(1'000'000, ' '), "\"x\"", TagComparison::kWeak));
  EXPECT_FALSE(ListsEntityTag(std::string(1'000'000, '"'), "\"x\"", TagComparison::kWeak));
}

}  // namespace
}  // namespace TesselServer::Modern
