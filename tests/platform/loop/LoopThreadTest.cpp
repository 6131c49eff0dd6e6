#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "platform/loop/EventLoop.h"
#include "platform/loop/LoopCore.h"
#include "platform/loop/Timer.h"
#include "tests/kit/LoopTools.h"
#include "tests/kit/Pipe.h"

namespace TesselServer {
namespace {

using Kit::Every;

TEST(EventLoopThreadTest, IsTheOneThatRunsIt) {
  EventLoop loop;
  Timer timer(loop);  // made here, and handed over
  Every(timer, 1000, [] {});
  loop.Core().Thread().Start();
  std::thread other([&] {
    EXPECT_TRUE(IsOnThreadOf(&loop)) << "whoever comes first after a start";
    loop.RunOnce(0);
  });
  other.join();
  EXPECT_FALSE(IsOnThreadOf(&loop));
  EXPECT_TRUE(IsOnThreadOf(nullptr));
}

TEST(EventLoopThreadTest, BeforeTheFirstTurnItMayBeHandedOver) {
  EventLoop loop;
  loop.Core().Thread().Start();
  EXPECT_TRUE(IsOnThreadOf(&loop));
  std::thread other([&] {
    EXPECT_FALSE(IsOnThreadOf(&loop)) << "the other was first";
    loop.RunOnce(0);
    EXPECT_TRUE(IsOnThreadOf(&loop)) << "but this one runs it";
  });
  other.join();
}

TEST(EventLoopThreadTest, AfterRunItBelongsToWhicheverComesNext) {
  EventLoop loop;
  std::thread other([&] {
    loop.Stop();
    loop.Run();
  });
  other.join();
  EXPECT_TRUE(IsOnThreadOf(&loop));
  loop.RunOnce(0);
}

TEST(EventLoopThreadTest, AClaimAloneDoesNotMakeAPostTheLoopsOwn) {
  EventLoop loop;
  loop.Core().Thread().Start();
  ASSERT_TRUE(IsOnThreadOf(&loop));
  std::string order;
  std::thread([&] { loop.Post([&] { order += "1"; }); }).join();
  loop.Post([&] { order += "2"; });  // another thread may be about to run the loop
  loop.RunOnce(0);
  EXPECT_EQ(order, "12");
}

TEST(EventLoopThreadTest, ATurnIsRunByOneThreadUntilItEnds) {
  EventLoop loop;
  LoopThread& thread = loop.Core().Thread();
  bool inside = false;
  loop.Post([&] { inside = thread.RunsTurn(); });
  EXPECT_FALSE(thread.RunsTurn());
  loop.RunOnce(0);
  EXPECT_TRUE(inside);
  EXPECT_FALSE(thread.RunsTurn());
}

#ifndef NDEBUG
TEST(EventLoopThreadDeathTest, DebugBuildsAssertIt) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EventLoop loop;
  Timer timer(loop);
  loop.RunOnce(0);
  const auto elsewhere = [](const std::function<void()>& use) { std::thread(use).join(); };
  EXPECT_DEATH(elsewhere([&] { loop.RunOnce(0); }), "");
  EXPECT_DEATH(elsewhere([&] { loop.DoEvents(); }), "");
  EXPECT_DEATH(elsewhere([&] { loop.Descriptor(); }), "");
  EXPECT_DEATH(elsewhere([&] { timer.Enabled(true); }), "");
  EXPECT_DEATH(elsewhere([&] { timer.Interval(5); }), "");
  EXPECT_DEATH(elsewhere([&] { loop.HandlerFailed = nullptr; }), "");
  elsewhere([&] { loop.Post([] {}); });
}

TEST(EventLoopThreadDeathTest, DebugBuildsAssertThatTheLoopIsDestroyedLast) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      {
        auto loop = std::make_unique<EventLoop>();
        Timer timer(*loop);
        timer.Enabled(true);
        loop.reset();
      },
      "timers_");
  EXPECT_DEATH(
      {
        auto loop = std::make_unique<EventLoop>();
        Kit::LoopEar ear(loop->Core());
        const Kit::Pipe pipe;
        ear.Watch(pipe, 0);
        loop.reset();
      },
      "watches_");
}
#endif

}  // namespace
}  // namespace TesselServer
