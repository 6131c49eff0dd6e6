#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/Closings.h"
#include "tests/kit/ClosingPairs.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

class ClosingsTest : public testing::Test {
 protected:
  Kit::FakeWorld world;
  EventLoop loop{world};
  Lingering lingering{loop};
  Closings closings{lingering};
};

TEST_F(ClosingsTest, WhatWasHeldBackAndTheEndComeWhenAllAreClosed) {
  for (const std::size_t many : {1u, 2u, 5u}) {
    Kit::ClosingPairs pairs(many);
    pairs.AddAll(closings);
    EXPECT_FALSE(closings.IsEmpty());
    EXPECT_EQ(pairs.PeersSee(), std::string(many, '-'));
    closings.CloseAll();
    EXPECT_TRUE(closings.IsEmpty());
    EXPECT_EQ(pairs.PeersSee(), std::string(many, 'a')) << "the answer and the end";
    EXPECT_EQ(pairs.StillOpen(), 0u);
  }
}

TEST_F(ClosingsTest, WhoseBytesLieUnreadGetsItsAnswerAllTheSame) {
  for (const std::size_t many : {1u, 2u, 5u}) {
    for (std::size_t chosen = 0; chosen < many; ++chosen) {
      Kit::ClosingPairs pairs(many);
      pairs.PeerSends(chosen, "one more");
      const std::size_t before = lingering.Count();
      pairs.AddAll(closings);
      closings.CloseAll();
      EXPECT_EQ(pairs.PeersSee(), std::string(many, 'a')) << chosen;
      EXPECT_EQ(lingering.Count(), before + 1) << chosen;
      EXPECT_EQ(pairs.StillOpen(), 1u) << chosen;
    }
  }
}

TEST_F(ClosingsTest, AClientThatHasEndedOrGoneIsNotWaitedFor) {
  Kit::ClosingPairs pairs(3);
  pairs.PeerEnds(0);
  pairs.PeerGoes(1);
  pairs.AddAll(closings);
  closings.CloseAll();
  EXPECT_EQ(pairs.PeersSee(), "a.a");
  EXPECT_EQ(lingering.Count(), 0u);
  EXPECT_EQ(pairs.StillOpen(), 0u);
}

TEST_F(ClosingsTest, WhatIsOpenBetweenThemStaysOpen) {
  std::vector<std::unique_ptr<Kit::ClosingPairs>> groups;
  std::vector<int> others;
  for (int i = 0; i < 4; ++i) {
    groups.push_back(std::make_unique<Kit::ClosingPairs>(static_cast<std::size_t>(1 + i % 2)));
    others.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  }
  for (const int order : {2, 0, 3, 1}) groups[static_cast<std::size_t>(order)]->AddAll(closings);
  closings.CloseAll();
  for (const auto& group : groups) EXPECT_EQ(group->StillOpen(), 0u);
  for (const int other : others) {
    EXPECT_GE(fcntl(other, F_GETFD), 0);
    close(other);
  }
}

TEST_F(ClosingsTest, OneMoreThanFitClosesThoseBeforeIt) {
  Kit::ClosingPairs pairs(Closings::kMost + 1);
  pairs.AddAll(closings);
  EXPECT_EQ(pairs.PeersSee(), std::string(Closings::kMost, 'a') + "-");
  closings.CloseAll();
  EXPECT_EQ(pairs.StillOpen(), 0u);
}

TEST_F(ClosingsTest, NobodyIsForgottenWhenTheyDie) {
  const std::size_t before = Kit::CountDescriptors();
  {
    Kit::ClosingPairs pairs(3);
    Closings dying(lingering);
    pairs.AddAll(dying);
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

}  // namespace
}  // namespace TesselServer
