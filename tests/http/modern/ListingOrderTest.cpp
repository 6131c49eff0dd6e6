#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "http/modern/ListingOrder.h"
#include "http/modern/ListingRows.h"

namespace TesselServer::Modern {
namespace {

constexpr ListingKey kByName = ListingKey::kName, kBySize = ListingKey::kSize, kByTime = ListingKey::kTime;

TEST(ListingOrderTest, TheQueryChooses) {
  const struct {
    const char* query;
    ListingOrder order;
    const char* why;
  } cases[] = {
      {"", {kByName, false}, "nothing is said"},
      {"sort=name", {kByName, false}, "the default, said"},
      {"sort=size", {kBySize, false}, "a key"},
      {"sort=time", {kByTime, false}, "a key"},
      {"order=desc", {kByName, true}, "a direction alone"},
      {"sort=size&order=desc", {kBySize, true}, "both"},
      {"order=desc&sort=size", {kBySize, true}, "in any order"},
      {"sort=size&order=asc", {kBySize, false}, "both"},
      {"a=b&sort=size&&c&order=desc&", {kBySize, true}, "among others"},
      {"sort=colour&order=desc", {kByName, true}, "no key"},
      {"sort=size&order=down", {kBySize, false}, "no direction"},
      {"sort=Size&order=DESC", {kByName, false}, "they have a case"},
      {"Sort=size&ORDER=desc", {kByName, false}, "and so have their names"},
      {"sort=size&sort=time", {kBySize, false}, "the first one counts"},
      {"sort=x&sort=time", {kByTime, false}, "that says something"},
      {"sort=", {kByName, false}, "nothing"},
      {"sort", {kByName, false}, "nothing"},
      {"xsort=size", {kByName, false}, "another name"},
      {"sort=sizes", {kByName, false}, "another value"},
      {"&&&&", {kByName, false}, "nothing between"},
      {"sort=size%00&order=desc\"><script>", {kByName, false}, "whatever it brings"},
  };
  for (const auto& c : cases) EXPECT_EQ(ListingOrder::Of(c.query), c.order) << c.query << ": " << c.why;
}

// The names in the order of a listing.
std::string SortedNames(const std::vector<ListedEntry>& entries, ListingOrder order) {
  ListingRows rows;
  for (const ListedEntry& entry : entries) EXPECT_TRUE(rows.Add(entry));
  while (!rows.SortSome(order)) {
  }
  std::string names;
  for (std::size_t i = 0; i < rows.Count(); ++i) {
    if (!names.empty()) names += ' ';
    names += rows.Sorted(i).name;
  }
  return names;
}

TEST(ListingOrderTest, FoldersComeFirstAndEqualOnesGoByName) {
  const std::vector<ListedEntry> entries = {
      {"b", false, 10, 300}, {"a", false, 20, 300},        {"B", false, 10, 100},
      {"z", true, 0, 50},    {"y", true, 0, 50},           {"x", true, 0, 70},
      {"a.", false, 5, -1},  {"\xC3\xA4", false, 10, 200}, {std::string_view("\x01"), false, 0, 200}};
  const struct {
    ListingOrder order;
    const char *names, *why;
  } cases[] = {
      {{kByName, false}, "x y z \x01 B a a. b \xC3\xA4", "byte by byte"},
      {{kByName, true}, "z y x \xC3\xA4 b a. a B \x01", "turned, folders and files alike"},
      {{kBySize, false}, "x y z \x01 a. B b \xC3\xA4 a", "folders have no size"},
      {{kBySize, true}, "x y z a B b \xC3\xA4 a. \x01", "equal ones stay by name"},
      {{kByTime, false}, "y z x a. B \x01 \xC3\xA4 a b", "before 1970 too"},
      {{kByTime, true}, "x y z a b \x01 \xC3\xA4 B a.", "the latest first"},
  };
  for (const auto& c : cases) EXPECT_EQ(SortedNames(entries, c.order), c.names) << c.why;
}

TEST(ListingRowsTest, NothingIsSortedAtOnce) {
  ListingRows rows;
  EXPECT_EQ(rows.Count(), 0u);
  EXPECT_EQ(rows.Bytes(), 0u);
  EXPECT_TRUE(rows.SortSome({}));
}

// Names of every length, in many pieces.
TEST(ListingRowsTest, ManyEntriesAreKeptAsTheyAreAndSortedInSteps) {
  constexpr std::int64_t kMany = 20'011;  // a prime, so that the steps below meet each number once
  ListingRows rows;
  std::string name;
  std::size_t nameBytes = 0;
  for (std::int64_t i = 0, number = 0; i < kMany; ++i, number = (number + 7919) % kMany) {
    name.assign(static_cast<std::size_t>(1 + number % 255), static_cast<char>('a' + number % 26));
    nameBytes += name.size();
    ASSERT_TRUE(rows.Add({name, false, number, -number}));
  }
  EXPECT_EQ(rows.NameBytes(), nameBytes);
  EXPECT_GE(rows.Bytes(), nameBytes);
  EXPECT_LT(rows.Bytes(), nameBytes + 64 * static_cast<std::size_t>(kMany) + 128 * 1024);
  int steps = 0;
  while (!rows.SortSome({kBySize, true})) ++steps;
  EXPECT_GT(steps, 100);
  ASSERT_EQ(rows.Count(), static_cast<std::size_t>(kMany));
  for (std::int64_t i = 0; i < kMany; ++i) {
    const std::int64_t number = kMany - 1 - i;
    const ListedEntry entry = rows.Sorted(static_cast<std::size_t>(i));
    ASSERT_EQ(entry.size, number);
    ASSERT_EQ(entry.modified, -number);
    ASSERT_EQ(entry.name,
              std::string(static_cast<std::size_t>(1 + number % 255), static_cast<char>('a' + number % 26)));
  }
}

TEST(ListingRowsTest, AFullListTakesNoMore) {
  ListingRows rows;
  for (std::size_t i = 0; i < ListingRows::kMost; ++i) ASSERT_TRUE(rows.Add({"a", false, 0, 0}));
  EXPECT_FALSE(rows.Add({"b", false, 0, 0}));
  EXPECT_EQ(rows.Count(), ListingRows::kMost);
}

}  // namespace
}  // namespace TesselServer::Modern
