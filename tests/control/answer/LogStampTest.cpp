#include <gtest/gtest.h>

#include "control/answer/LogStamp.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

TEST(LogStampTest, FollowsTheClockForwardsAndBackwards) {
  Kit::FakeWorld world;
  LogStamp stamp;
  EXPECT_EQ(stamp.Now(world), "[15/11/2026:18:20:05 -0000]");
  EXPECT_EQ(stamp.Now(world), "[15/11/2026:18:20:05 -0000]");
  world.utcSeconds += 1;
  EXPECT_EQ(stamp.Now(world), "[15/11/2026:18:20:06 -0000]");
  world.utcSeconds -= 3601;
  EXPECT_EQ(stamp.Now(world), "[15/11/2026:17:20:05 -0000]");
  world.utcSeconds = 0;
  EXPECT_EQ(stamp.Now(world), "[01/01/1970:00:00:00 -0000]");
}

TEST(LogStampTest, FollowsTheZoneWithinTheSecond) {
  Kit::FakeWorld world;
  LogStamp stamp;
  EXPECT_EQ(stamp.Now(world), "[15/11/2026:18:20:05 -0000]");
  world.bias = [](std::int64_t) { return -60; };
  EXPECT_EQ(stamp.Now(world), "[15/11/2026:19:20:05 +0100]");
  world.utcSeconds += 1;
  EXPECT_EQ(stamp.Now(world), "[15/11/2026:19:20:06 +0100]");
}

TEST(LogStampTest, AsksForTheZoneOfEveryLine) {
  Kit::FakeWorld world;
  int asked = 0;
  world.bias = [&asked](std::int64_t) { return ++asked, 0; };
  LogStamp stamp;
  for (int i = 0; i < 5; ++i) stamp.Now(world);
  EXPECT_EQ(asked, 5);
}

TEST(LogStampTest, TheFirstSecondThereIsHasAStamp) {
  Kit::FakeWorld world;
  world.utcSeconds = -1;
  EXPECT_EQ(LogStamp().Now(world), "[31/12/1969:23:59:59 -0000]");
}

}  // namespace
}  // namespace TesselServer
