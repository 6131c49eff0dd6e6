// Whatever fails as connections are closed together: each is closed, and no answer is lost.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/Closings.h"
#include "tests/kit/ClosingPairs.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FailNth.h"
#include "tests/kit/FailNthMemory.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

class ClosingFaultsTest : public testing::Test {
 protected:
  Kit::FakeWorld world;
  EventLoop loop{world};
};

TEST_F(ClosingFaultsTest, WithoutTheCallForManyDescriptorsEachIsClosedByItself) {
  for (const int error : {ENOSYS, EPERM}) {
    Lingering lingering(loop);
    Closings closings(lingering);
    Kit::ClosingPairs pairs(3);
    pairs.AddAll(closings);
    const Kit::FailNth fault("close_range", 1, error);
    closings.CloseAll();
    EXPECT_TRUE(fault.Happened());
    EXPECT_EQ(pairs.StillOpen(), 0u);
    EXPECT_EQ(pairs.PeersSee(), "aaa");
  }
}

TEST_F(ClosingFaultsTest, WhatCannotBeAskedOfAllIsAskedOfEach) {
  Lingering lingering(loop);
  Closings closings(lingering);
  Kit::ClosingPairs pairs(3);
  pairs.PeerSends(1, "one more");
  pairs.AddAll(closings);
  const Kit::FailNth fault("poll", 1, ENOMEM);
  closings.CloseAll();
  EXPECT_TRUE(fault.Happened());
  EXPECT_EQ(pairs.PeersSee(), "aaa");
  EXPECT_EQ(lingering.Count(), 1u);
}

TEST_F(ClosingFaultsTest, OneThatCannotLingerIsClosedAtOnce) {
  const std::size_t before = Kit::CountDescriptors();
  int failed = 0;
  for (int nth = 1; nth <= 12; ++nth) {
    {
      Lingering lingering(loop);
      Closings closings(lingering);
      Kit::ClosingPairs pairs(3);
      for (const std::size_t i : {0u, 1u, 2u}) pairs.PeerSends(i, "one more");
      pairs.AddAll(closings);
      {
        const Kit::FailNthMemory fault(nth);
        closings.CloseAll();
        failed += fault.Happened() ? 1 : 0;
      }
      EXPECT_EQ(pairs.StillOpen(), lingering.Count()) << nth;
      EXPECT_GE(lingering.Count(), 2u) << nth << ": the others are not concerned";
      world.Advance(Lingering::kMilliseconds);
      for (int turn = 0; turn < 3; ++turn) loop.RunOnce(0);
      EXPECT_EQ(lingering.Count(), 0u) << nth << ": the time is watched in any case";
    }
    EXPECT_EQ(Kit::CountDescriptors(), before) << nth;
  }
  EXPECT_GT(failed, 0);
}

TEST_F(ClosingFaultsTest, AWatchThatIsRefusedIsAnEndAsWell) {
  Lingering lingering(loop);
  Closings closings(lingering);
  Kit::ClosingPairs pairs(1);
  pairs.PeerSends(0, "one more");
  pairs.AddAll(closings);
  const Kit::FailNth fault("epoll_ctl", 1, ENOSPC);
  closings.CloseAll();
  EXPECT_TRUE(fault.Happened());
  EXPECT_EQ(lingering.Count(), 0u);
  EXPECT_EQ(pairs.StillOpen(), 0u);
}

}  // namespace
}  // namespace TesselServer
