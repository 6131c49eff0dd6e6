#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "platform/loop/EventLoop.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/Pipe.h"

namespace TesselServer {
namespace {

class DeferredDeletionTest : public testing::Test {
 protected:
  Kit::FakeWorld world;
  EventLoop loop{world};
  Kit::LoopEar ear{loop.Core()};
  std::shared_ptr<int> thing = std::make_shared<int>(1);
  const std::weak_ptr<int> alive = thing;
};

TEST_F(DeferredDeletionTest, WhatIsDeletedOutsideANotificationDiesAtOnce) {
  loop.DeleteLater(std::move(thing));
  EXPECT_TRUE(alive.expired());
}

TEST_F(DeferredDeletionTest, WhatIsDeletedInsideLivesUntilTheLastHandlerHasReturned) {
  ear.onTask = [&](std::uint64_t cookie) {
    if (cookie == 1) {
      ear.Post(2);
      loop.DoEvents();
      EXPECT_FALSE(alive.expired()) << "the inner handler has returned, this one has not";
    } else {
      loop.DeleteLater(std::move(thing));
      EXPECT_FALSE(alive.expired());
    }
  };
  ear.Post(1);
  loop.RunOnce(0);
  EXPECT_TRUE(alive.expired());
}

TEST_F(DeferredDeletionTest, WhatDiesMayDeleteMoreAndYield) {
  struct Chain {
    EventLoop& loop;
    int left;
    int& dead;
    ~Chain() {
      ++dead;
      loop.DoEvents();
      if (left > 0) loop.DeleteLater(std::make_shared<Chain>(loop, left - 1, dead));
    }
    Chain(EventLoop& l, int n, int& d) : loop(l), left(n), dead(d) {}
  };
  int dead = 0;
  ear.onTask = [&](std::uint64_t) { loop.DeleteLater(std::make_shared<Chain>(loop, 3, dead)); };
  ear.Post(1);
  loop.RunOnce(0);
  EXPECT_EQ(dead, 4);
}

TEST_F(DeferredDeletionTest, AnExceptionThroughATurnLeavesTheLoopWhole) {
  std::uint64_t ran = 0;
  ear.onTask = [&](std::uint64_t cookie) {
    ran = cookie;
    if (cookie != 1) return;
    loop.DeleteLater(std::move(thing));
    throw std::runtime_error("lost");
  };
  ear.Post(1);
  ear.Post(2);
  EXPECT_THROW(loop.RunOnce(0), std::runtime_error);
  EXPECT_TRUE(alive.expired());
  EXPECT_EQ(ran, 1u);
  loop.RunOnce(0);
  EXPECT_EQ(ran, 2u);
}

}  // namespace
}  // namespace TesselServer
