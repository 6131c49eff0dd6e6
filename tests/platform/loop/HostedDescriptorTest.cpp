// The loop in a program with its own poll.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/LoopTools.h"
#include "tests/kit/Pipe.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/SocketOwner.h"

namespace TesselServer {
namespace {

using Kit::Clock;
using Kit::Every;
using Kit::kTooLong;
using Kit::Since;
using Milliseconds = std::chrono::milliseconds;

class EventLoopDescriptorTest : public testing::Test {
 protected:
  // Whether the descriptor becomes readable within the time.
  bool Readable(int wait) {
    pollfd watched{loop.Descriptor(), POLLIN, 0};
    return poll(&watched, 1, wait) == 1;
  }
  // Runs turns as a host does, only when the descriptor says so, until it says nothing more.
  void FollowDescriptor() {
    for (int turns = 0; turns < 10'000 && Readable(0); ++turns) loop.RunOnce(0);
    EXPECT_FALSE(Readable(0)) << "it must not spin";
  }

  EventLoop loop;
};

TEST_F(EventLoopDescriptorTest, IsAlwaysTheSame) { EXPECT_EQ(loop.Descriptor(), loop.Descriptor()); }

TEST_F(EventLoopDescriptorTest, IsQuietWhenThereIsNothingToDo) {
  EXPECT_FALSE(Readable(20));
  loop.RunOnce(0);
  EXPECT_FALSE(Readable(20));
}

TEST_F(EventLoopDescriptorTest, TellsOfAWatchedDescriptor) {
  Kit::LoopEar ear(loop.Core());
  Kit::Pipe pipe;
  ear.Watch(pipe, 1);
  ear.onEvents = [&](std::uint64_t) { pipe.Drain(); };
  EXPECT_FALSE(Readable(0));
  pipe.Fill();
  EXPECT_TRUE(Readable(0));
  loop.RunOnce(0);
  EXPECT_FALSE(Readable(0));
}

TEST_F(EventLoopDescriptorTest, TellsOfATimerEachTimeItIsDue) {
  loop.Descriptor();
  Timer timer(loop);
  int ticks = 0;
  Every(timer, 15, [&] { ++ticks; });
  for (int expected = 1; expected <= 3; ++expected) {
    const auto start = Clock::now();
    ASSERT_TRUE(Readable(4000));
    loop.RunOnce(0);
    EXPECT_EQ(ticks, expected);
    EXPECT_LT(Since(start), kTooLong);
  }
}

TEST_F(EventLoopDescriptorTest, TellsOfATimerThatRanBeforeItWasAskedFor) {
  Timer timer(loop);
  int ticks = 0;
  Every(timer, 10, [&] { ++ticks; });
  ASSERT_TRUE(Readable(4000));
  loop.RunOnce(0);
  EXPECT_EQ(ticks, 1);
}

TEST_F(EventLoopDescriptorTest, TellsOfATimerMadeInsideATick) {
  loop.Descriptor();
  Timer first(loop);
  std::optional<Timer> second;
  int ticks = 0;
  Every(first, 2, [&] {
    first.Enabled(false);
    Every(second.emplace(loop), 5, [&] { ++ticks; });
  });
  ASSERT_TRUE(Readable(4000));
  loop.RunOnce(0);
  ASSERT_TRUE(second.has_value());
  ASSERT_TRUE(Readable(4000));
  loop.RunOnce(0);
  EXPECT_EQ(ticks, 1);
}

TEST_F(EventLoopDescriptorTest, IsQuietAgainWhenItsTimerIsTakenAway) {
  loop.Descriptor();
  Timer timer(loop);
  int ticks = 0;
  Every(timer, 5, [&] { ++ticks; });
  timer.Enabled(false);
  if (Readable(20)) loop.RunOnce(0);  // one wake for nothing is allowed, a second is not
  EXPECT_FALSE(Readable(20));
  EXPECT_EQ(ticks, 0);
}

TEST_F(EventLoopDescriptorTest, TellsOfTimersLeftOverFromATurn) {
  Kit::FakeWorld world;  // in which no turn is ever long
  EventLoop still(world);
  pollfd watched{still.Descriptor(), POLLIN, 0};
  constexpr int kMany = EventLoop::kTimersPerTurn + 20;
  std::vector<std::unique_ptr<Timer>> timers;
  int ticks = 0;
  for (int i = 0; i < kMany; ++i) {
    timers.push_back(std::make_unique<Timer>(still));
    Timer& timer = *timers.back();
    Every(timer, 5, [&] {
      ++ticks;
      timer.Enabled(false);
    });
  }
  world.Advance(6);
  ASSERT_EQ(poll(&watched, 1, 4000), 1);
  still.RunOnce(0);
  EXPECT_EQ(ticks, EventLoop::kTimersPerTurn);
  ASSERT_EQ(poll(&watched, 1, 4000), 1);
  still.RunOnce(0);
  EXPECT_EQ(ticks, kMany);
}

TEST_F(EventLoopDescriptorTest, TellsOfWorkLeftOverFromATurn) {
  loop.Descriptor();
  Kit::LoopEar ear(loop.Core());
  std::string heard;
  ear.onTask = [&](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    if (cookie < 3) ear.Post(cookie + 1);
  };
  ear.Post(1);
  EXPECT_TRUE(Readable(0)) << "work given from outside a turn";
  loop.RunOnce(0);
  EXPECT_EQ(heard, "1");
  EXPECT_TRUE(Readable(0)) << "work that a turn left over";
  FollowDescriptor();
  EXPECT_EQ(heard, "123");
}

TEST_F(EventLoopDescriptorTest, MayBeAskedForInsideANotificationAndTellsOfTheRest) {
  Kit::LoopEar ear(loop.Core());
  std::string heard;
  ear.onTask = [&](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    if (cookie > 1) return;
    loop.Descriptor();
    ear.Post(2);
  };
  ear.Post(1);
  loop.RunOnce(0);
  EXPECT_TRUE(Readable(0));
  FollowDescriptor();
  EXPECT_EQ(heard, "12");
}

TEST_F(EventLoopDescriptorTest, TellsOfAStop) {
  loop.Descriptor();
  loop.Stop();
  EXPECT_TRUE(Readable(0));
  loop.RunOnce(0);
  EXPECT_FALSE(Readable(0));
}

// Calls RunOnce inside handlers, each inside the one before, as deep as it delivers, and does `innermost` there.
class Nested {
 public:
  Nested(EventLoop& loop, std::size_t depth, std::function<void()> innermost) : ear_(loop.Core()), pipes_(depth) {
    for (std::size_t i = 0; i < depth; ++i) ear_.Watch(pipes_[i], i);
    ear_.onEvents = [this, &loop, innermost](std::uint64_t cookie) {
      pipes_[cookie].Drain();
      if (++entered_ == pipes_.size()) return innermost();
      pipes_[entered_].Fill();
      loop.RunOnce(0);
    };
    pipes_[0].Fill();
    loop.RunOnce(0);
  }
  std::size_t Entered() const { return entered_; }

 private:
  Kit::LoopEar ear_;
  std::vector<Kit::Pipe> pipes_;
  std::size_t entered_ = 0;
};

TEST_F(EventLoopDescriptorTest, AtTheGreatestDepthNothingIsAnnouncedAndNothingDelivered) {
  loop.Descriptor();
  Kit::LoopEar ear(loop.Core());
  Kit::Pipe pipe;
  Timer timer(loop);
  int ticks = 0, heard = 0;
  ear.onEvents = [&](std::uint64_t) {
    ++heard;
    pipe.Drain();
  };
  ear.onTask = [&](std::uint64_t) { ++heard; };
  ear.Watch(pipe, 0);
  const Nested nested(loop, EventLoop::kMaxNesting + 1, [&] {
    pipe.Fill();
    ear.Post(1);
    loop.Post([&] { ++heard; });
    Every(timer, 1, [&] { ++ticks; });
    EXPECT_FALSE(Readable(20));
    EXPECT_FALSE(loop.RunOnce(0));
    loop.DoEvents();
    EXPECT_EQ(heard, 0);
  });
  EXPECT_EQ(nested.Entered(), static_cast<std::size_t>(EventLoop::kMaxNesting) + 1);
  EXPECT_TRUE(Readable(0)) << "afterwards it is";
  FollowDescriptor();
  EXPECT_EQ(heard, 3);
  timer.Enabled(false);
}

TEST_F(EventLoopDescriptorTest, InsideAHandlerItIsReadableForWhatCanBeDelivered) {
  loop.Descriptor();
  Kit::LoopEar ear(loop.Core());
  Kit::Pipe pipe;
  Timer timer(loop);
  int ticks = 0;
  ear.onEvents = [&](std::uint64_t) { pipe.Drain(); };
  ear.Watch(pipe, 0);
  const Nested nested(loop, 2, [&] {
    EXPECT_FALSE(Readable(0));
    ear.Post(1);
    EXPECT_TRUE(Readable(0)) << "a task";
    EXPECT_TRUE(loop.RunOnce(0));
    EXPECT_FALSE(Readable(0));
    pipe.Fill();
    EXPECT_TRUE(Readable(0)) << "an event";
    EXPECT_TRUE(loop.RunOnce(0));
    Every(timer, 1, [&] { ++ticks; });
    EXPECT_FALSE(Readable(10)) << "timers wait for the end of the turn";
    EXPECT_FALSE(loop.RunOnce(0));
  });
  EXPECT_TRUE(Readable(1000));
  loop.RunOnce(0);
  EXPECT_EQ(ticks, 1);
}

TEST_F(EventLoopDescriptorTest, TellsOfATaskThatAnotherThreadPosts) {
  loop.Descriptor();
  bool ran = false;
  std::thread other([&] { loop.Post([&] { ran = true; }); });
  EXPECT_TRUE(Readable(4000));
  other.join();
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_TRUE(ran);
  EXPECT_FALSE(Readable(0));
}

TEST_F(EventLoopDescriptorTest, AHostThatFollowsItServesEveryClient) {
  Kit::SocketOwner owner(loop);
  owner.onData = [&](std::int32_t index) { owner.sockets.SendData(index, Kit::TextAnswer(Kit::Pattern(200'000))); };
  owner.onSent = [&](std::int32_t index) { owner.sockets.Reload(index); };
  const std::int32_t port = owner.Listen(2);  // fewer elements than clients
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < 20; ++i) {
    clients.push_back(std::make_unique<Kit::RawClient>(port));
    ASSERT_EQ(send(clients.back()->Descriptor(), "hello", 5, MSG_NOSIGNAL), 5);
  }
  const auto start = Clock::now();
  const auto allServed = [&] {
    return std::all_of(clients.begin(), clients.end(), [](const auto& client) { return client->Ended(); });
  };
  std::vector<pollfd> watched(clients.size() + 1);
  while (!allServed() && Since(start) < kTooLong) {
    watched[0] = {loop.Descriptor(), POLLIN, 0};
    for (std::size_t i = 0; i < clients.size(); ++i) {
      watched[i + 1] = {clients[i]->Ended() ? -1 : clients[i]->Descriptor(), POLLIN, 0};
    }
    ASSERT_GT(poll(watched.data(), watched.size(), 1000), 0) << "somebody must have something to do";
    if (watched[0].revents != 0) loop.RunOnce(0);
    for (std::size_t i = 0; i < clients.size(); ++i) {
      if (watched[i + 1].revents != 0) clients[i]->Poll();
    }
  }
  for (const auto& client : clients) {
    EXPECT_EQ(client->Received(), Kit::Pattern(200'000));
    EXPECT_FALSE(client->WasReset());
  }
}

}  // namespace
}  // namespace TesselServer
