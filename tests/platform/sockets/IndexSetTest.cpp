#include <gtest/gtest.h>

#include <random>
#include <set>

#include "platform/sockets/IndexSet.h"

namespace TesselServer {
namespace {

constexpr std::size_t kNone = 10'001;

TEST(IndexSetTest, IsEmptyAtFirst) {
  const IndexSet set;
  EXPECT_EQ(set.LowestFrom(0, kNone), kNone);
  EXPECT_EQ(set.LowestFrom(5000, kNone), kNone);
  EXPECT_FALSE(set.Contains(0));
}

TEST(IndexSetTest, FindsTheLowestMemberAcrossItsWords) {
  struct {
    std::size_t member, from, found;
    const char* why;
  } const cases[] = {
      {0, 0, 0, "the first"},
      {63, 0, 63, "the end of a word"},
      {64, 0, 64, "the beginning of the next word"},
      {64, 63, 64, "from the word before"},
      {64, 64, 64, "from itself"},
      {64, 65, kNone, "from behind it"},
      {4095, 0, 4095, "the end of a group of words"},
      {4096, 0, 4096, "the beginning of the next group"},
      {4096, 4095, 4096, "from the last word of a group"},
      {4096, 4097, kNone, "from behind it in its own word"},
      {8192, 63, 8192, "two groups on"},
      {10'000, 2, 10'000, "the highest element"},
      {10'000, 10'000, 10'000, "the highest element from itself"},
      {2, 9999, kNone, "from far behind"},
  };
  for (const auto& c : cases) {
    IndexSet set;
    set.Add(c.member);
    EXPECT_TRUE(set.Contains(c.member)) << c.why;
    EXPECT_EQ(set.LowestFrom(c.from, kNone), c.found) << c.why;
    set.Remove(c.member);
    EXPECT_FALSE(set.Contains(c.member)) << c.why;
    EXPECT_EQ(set.LowestFrom(c.from, kNone), kNone) << c.why;
  }
}

TEST(IndexSetTest, AddingAndRemovingTwiceChangesNothing) {
  IndexSet set;
  set.Add(70);
  set.Add(70);
  set.Add(71);
  set.Remove(70);
  set.Remove(70);
  EXPECT_EQ(set.LowestFrom(0, kNone), 71u);
}

TEST(IndexSetTest, RemovingWhatWasNeverAddedDoesNothing) {
  IndexSet set;
  set.Remove(9000);
  set.Add(3);
  set.Remove(9000);
  set.Remove(4);
  EXPECT_EQ(set.LowestFrom(0, kNone), 3u);
}

TEST(IndexSetTest, AgreesWithAnOrdinarySetWhateverIsDone) {
  std::mt19937 random(20260401);
  std::uniform_int_distribution<std::size_t> number(0, 10'000);
  IndexSet set;
  std::set<std::size_t> expected;
  for (int step = 0; step < 40'000; ++step) {
    const std::size_t index = number(random);
    // long stretches of filling and of emptying, so that whole words and groups come and go
    if (step / 8000 % 2 == 0) {
      set.Add(index);
      expected.insert(index);
    } else {
      const auto victim = expected.lower_bound(index);
      if (victim == expected.end()) continue;
      set.Remove(*victim);
      expected.erase(victim);
    }
    const std::size_t from = number(random);
    const auto lowest = expected.lower_bound(from);
    ASSERT_EQ(set.LowestFrom(from, kNone), lowest == expected.end() ? kNone : *lowest) << step << " from " << from;
    ASSERT_EQ(set.Contains(from), expected.contains(from)) << step << " " << from;
  }
}

}  // namespace
}  // namespace TesselServer
