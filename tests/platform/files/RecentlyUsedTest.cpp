#include <gtest/gtest.h>

#include <string>

#include "platform/files/RecentlyUsed.h"

namespace TesselServer {
namespace {

TEST(RecentlyUsedTest, FindsWhatWasPutAndNothingElse) {
  RecentlyUsed<int> memory(100);
  EXPECT_EQ(memory.Find("a"), nullptr);
  memory.Put("a", 1, 10);
  memory.Put("b", 2, 10);
  ASSERT_NE(memory.Find("a"), nullptr);
  EXPECT_EQ(*memory.Find("a"), 1);
  EXPECT_EQ(*memory.Find("b"), 2);
  EXPECT_EQ(memory.Find(""), nullptr);
  EXPECT_EQ(memory.Bytes(), 20u);
}

TEST(RecentlyUsedTest, PuttingAgainReplaces) {
  RecentlyUsed<std::string> memory(100);
  memory.Put("a", "one", 10);
  memory.Put("a", "two", 30);
  EXPECT_EQ(*memory.Find("a"), "two");
  EXPECT_EQ(memory.Bytes(), 30u);
}

TEST(RecentlyUsedTest, WhatWasNotAskedForLongestGoesFirst) {
  RecentlyUsed<int> memory(30);
  memory.Put("a", 1, 10);
  memory.Put("b", 2, 10);
  memory.Put("c", 3, 10);
  memory.Find("a");
  memory.Put("d", 4, 10);
  EXPECT_EQ(memory.Find("b"), nullptr);
  for (const char* kept : {"a", "c", "d"}) EXPECT_NE(memory.Find(kept), nullptr) << kept;
  memory.Put("e", 5, 25);
  for (const char* gone : {"a", "c", "d"}) EXPECT_EQ(memory.Find(gone), nullptr) << gone;
  EXPECT_EQ(memory.Bytes(), 25u);
}

TEST(RecentlyUsedTest, WhatIsTooLargeIsNotKeptAndDrivesNothingOut) {
  RecentlyUsed<int> memory(30);
  memory.Put("a", 1, 10);
  memory.Put("b", 2, 31);
  EXPECT_EQ(memory.Find("b"), nullptr);
  EXPECT_NE(memory.Find("a"), nullptr);
  memory.Put("a", 2, 31);
  EXPECT_EQ(memory.Find("a"), nullptr) << "the old value must not stand for the new one";
  EXPECT_EQ(memory.Bytes(), 0u);
}

TEST(RecentlyUsedTest, DroppingForgets) {
  RecentlyUsed<int> memory(30);
  memory.Put("a", 1, 10);
  memory.Drop("a");
  memory.Drop("a");
  EXPECT_EQ(memory.Find("a"), nullptr);
  EXPECT_EQ(memory.Bytes(), 0u);
}

}  // namespace
}  // namespace TesselServer
