#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "http/modern/JsonListing.h"

namespace TesselServer::Modern {
namespace {

std::string JsonOf(const std::vector<ListedEntry>& entries) {
  JsonListing page;
  std::string text;
  page.Begin(text);
  for (const ListedEntry& entry : entries) page.AppendRow(text, entry);
  page.End(text, true);
  return text;
}

TEST(JsonListingTest, IsAnArrayOfWhatAFolderHas) {
  EXPECT_EQ(JsonListing().Type(), "application/json");
  EXPECT_EQ(JsonOf({}), "[]\n");
  EXPECT_EQ(JsonOf({{"music", true, 0, 1795367109}, {"a b.txt", false, 12345, 0}}),
            "[\n"
            "{\"name\":\"music\",\"link\":\"music/\",\"type\":\"folder\",\"size\":null,"
            "\"modified\":\"2026-11-22T17:05:09Z\"},\n"
            "{\"name\":\"a b.txt\",\"link\":\"a%20b.txt\",\"type\":\"file\",\"size\":12345,"
            "\"modified\":\"1970-01-01T00:00:00Z\"}\n"
            "]\n");
}

TEST(JsonListingTest, NamesAreValidStringsAndLinksHaveTheTrueBytes) {
  const struct {
    std::string_view name;
    const char *shown, *link, *why;
  } cases[] = {
      {"plain", "\"plain\"", "\"plain\"", "nothing special"},
      {"a\"b", "\"a\\\"b\"", "\"a%22b\"", "a quote"},
      {"a\\b", "\"a\\\\b\"", "null", "no request leads there"},
      {"a\nb", "\"a\\u000Ab\"", "null", "a control"},
      {"\x01\x1F\x7F", "\"\\u0001\\u001F\\u007F\"", "null", "others"},
      {"a/../b", "\"a/../b\"", "\"a/../b\"", "no name has a slash; shown as it is"},
      {"</script>", "\"</script>\"", "\"%3C/script%3E\"", "nothing of HTML counts here"},
      {"\xC3\xA4", "\"\xC3\xA4\"", "\"%C3%A4\"", "UTF-8"},
      {"\xE4", "\"\xEF\xBF\xBD\"", "\"%E4\"", "none"},
      {"\xF0\x9F\x8Ez\xFF", "\"\xEF\xBF\xBDz\xEF\xBF\xBD\"", "\"%F0%9F%8Ez%FF\"", "one for each attempt"},
      {"\xED\xA0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"", "\"%ED%A0%80\"", "a surrogate is no character"},
      {"\xC2\x85", "\"\xC2\x85\"", "\"%C2%85\"", "a control that JSON takes as it is"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(JsonOf({{c.name, false, 1, 0}}),
              std::string("[\n{\"name\":") + c.shown + ",\"link\":" + c.link +
                  ",\"type\":\"file\",\"size\":1,\"modified\":\"1970-01-01T00:00:00Z\"}\n]\n")
        << c.why;
  }
}

TEST(JsonListingTest, NoRowIsLongerThanTheMost) {
  for (const char c : {'x', '"', '\x01', '\xE4', '\\'}) {
    JsonListing page;
    std::string text;
    page.AppendRow(text, {std::string(255, c), true, INT64_MAX, INT64_MIN});
    EXPECT_LE(text.size(), ListingPage::kMaxRowBytes) << int{c};
  }
}

TEST(JsonListingTest, TimesHaveFourDigitsOfTheYear) {
  const struct {
    std::int64_t seconds;
    const char *timestamp, *minute, *why;
  } cases[] = {
      {0, "1970-01-01T00:00:00Z", "1970-01-01 00:00", "the beginning"},
      {-1, "1969-12-31T23:59:59Z", "1969-12-31 23:59", "before it"},
      {951'782'400, "2000-02-29T00:00:00Z", "2000-02-29 00:00", "a leap day"},
      {253'402'300'799, "9999-12-31T23:59:59Z", "9999-12-31 23:59", "the last one"},
      {253'402'300'800, "9999-12-31T23:59:59Z", "9999-12-31 23:59", "after it"},
      {INT64_MAX, "9999-12-31T23:59:59Z", "9999-12-31 23:59", "a time that a disk made up"},
      {-62'167'219'200, "0000-01-01T00:00:00Z", "0000-01-01 00:00", "the first one"},
      {INT64_MIN, "0000-01-01T00:00:00Z", "0000-01-01 00:00", "before it"},
  };
  for (const auto& c : cases) {
    std::string timestamp, minute;
    AppendTimestamp(timestamp, c.seconds);
    AppendMinute(minute, c.seconds);
    EXPECT_EQ(timestamp, c.timestamp) << c.why;
    EXPECT_EQ(minute, c.minute) << c.why;
  }
}

}  // namespace
}  // namespace TesselServer::Modern
