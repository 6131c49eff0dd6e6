#include <gtest/gtest.h>

#include <string>

#include "platform/files/LruCache.h"

namespace TesselServer {
namespace {

TEST(LruCacheTest, FindsWhatWasPutAndNothingElse) {
  LruCache<int> cache(100);
  EXPECT_EQ(cache.Find("a"), nullptr);
  cache.Put("a", 1, 10);
  cache.Put("b", 2, 10);
  ASSERT_NE(cache.Find("a"), nullptr);
  EXPECT_EQ(*cache.Find("a"), 1);
  EXPECT_EQ(*cache.Find("b"), 2);
  EXPECT_EQ(cache.Find(""), nullptr);
  EXPECT_EQ(cache.Bytes(), 20u);
}

TEST(LruCacheTest, PuttingAgainReplaces) {
  LruCache<std::string> cache(100);
  cache.Put("a", "one", 10);
  cache.Put("a", "two", 30);
  EXPECT_EQ(*cache.Find("a"), "two");
  EXPECT_EQ(cache.Bytes(), 30u);
}

TEST(LruCacheTest, WhatWasNotAskedForLongestGoesFirst) {
  LruCache<int> cache(30);
  cache.Put("a", 1, 10);
  cache.Put("b", 2, 10);
  cache.Put("c", 3, 10);
  cache.Find("a");
  cache.Put("d", 4, 10);
  EXPECT_EQ(cache.Find("b"), nullptr);
  for (const char* kept : {"a", "c", "d"}) EXPECT_NE(cache.Find(kept), nullptr) << kept;
  cache.Put("e", 5, 25);
  for (const char* gone : {"a", "c", "d"}) EXPECT_EQ(cache.Find(gone), nullptr) << gone;
  EXPECT_EQ(cache.Bytes(), 25u);
}

TEST(LruCacheTest, WhatIsTooLargeIsNotKeptAndDrivesNothingOut) {
  LruCache<int> cache(30);
  cache.Put("a", 1, 10);
  cache.Put("b", 2, 31);
  EXPECT_EQ(cache.Find("b"), nullptr);
  EXPECT_NE(cache.Find("a"), nullptr);
  cache.Put("a", 2, 31);
  EXPECT_EQ(cache.Find("a"), nullptr) << "the old value must not stand for the new one";
  EXPECT_EQ(cache.Bytes(), 0u);
}

TEST(LruCacheTest, DroppingForgets) {
  LruCache<int> cache(30);
  cache.Put("a", 1, 10);
  cache.Drop("a");
  cache.Drop("a");
  EXPECT_EQ(cache.Find("a"), nullptr);
  EXPECT_EQ(cache.Bytes(), 0u);
}

TEST(LruCacheTest, ANameIsAskedAgainWithinAMinuteOnly) {
  constexpr std::int64_t kMinute = LruCache<int>::kAskedAgainMilliseconds;
  LruCache<int> cache(30);
  EXPECT_FALSE(cache.IsAskedAgain("a", 5'000'000'000));
  EXPECT_FALSE(cache.IsAskedAgain("b", 5'000'000'000)) << "another one";
  EXPECT_TRUE(cache.IsAskedAgain("a", 5'000'000'000 + kMinute - 1));
  EXPECT_TRUE(cache.IsAskedAgain("a", 5'000'000'000 + 2 * kMinute - 2)) << "counted from the latest request";
  EXPECT_FALSE(cache.IsAskedAgain("b", 5'000'000'000 + kMinute));
  EXPECT_TRUE(cache.IsAskedAgain("b", 5'000'000'000 + kMinute));
  EXPECT_EQ(cache.Bytes(), 0u) << "nothing is kept of it";
}

TEST(LruCacheTest, MostOfTenThousandNamesAreSeenComingBack) {
  constexpr int kNames = 10'000;
  LruCache<int> cache(30);
  int again = 0;
  for (int round = 0; round < 2; ++round) {
    again = 0;
    for (int i = 0; i < kNames; ++i) again += cache.IsAskedAgain("name" + std::to_string(i), 1000) ? 1 : 0;
  }
  EXPECT_GT(again, kNames / 2);
  for (int i = 0; i < 20 * kNames; ++i) cache.IsAskedAgain("other" + std::to_string(i), 2000);
  EXPECT_FALSE(cache.IsAskedAgain("name0", 2000)) << "notes are bounded";
}

}  // namespace
}  // namespace TesselServer
