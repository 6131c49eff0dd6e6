#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "platform/world/Error.h"
#include "platform/world/World.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/Limits.h"
#include "tests/kit/Pipe.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/SocketOwner.h"

namespace TesselServer {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

milliseconds Since(Clock::time_point start) { return std::chrono::duration_cast<milliseconds>(Clock::now() - start); }

// Far longer than anything here takes, far shorter than a test that hangs.
constexpr milliseconds kTooLong{4000};

void Every(Timer& timer, std::int32_t interval, std::function<void()> tick) {
  timer.OnTick(std::move(tick));
  timer.Interval(interval);
  timer.Enabled(true);
}

// Ends a loop that would otherwise run for ever, so that the test fails instead of hanging.
class Guard {
 public:
  explicit Guard(EventLoop& loop) : timer_(loop) {
    Every(timer_, 4000, [this, &loop] {
      fired_ = true;
      loop.Stop();
    });
  }
  bool Fired() const { return fired_; }

 private:
  bool fired_ = false;
  Timer timer_;
};

// ---- A program of its own: Run.

TEST(EventLoopRunTest, ServesUntilItIsStoppedFromInside) {
  EventLoop loop;
  Timer timer(loop);
  int ticks = 0;
  Every(timer, 2, [&] {
    if (++ticks == 3) loop.Stop();
  });
  loop.Run();
  EXPECT_EQ(ticks, 3);
}

TEST(EventLoopRunTest, ReturnsAtOnceWhenItWasStoppedBefore) {
  EventLoop loop;
  loop.Stop();
  loop.Stop();
  loop.Run();
  SUCCEED() << "it returned";
}

TEST(EventLoopRunTest, MayRunAgain) {
  EventLoop loop;
  Guard guard(loop);
  Timer timer(loop);
  int ticks = 0;
  Every(timer, 1, [&] {
    ++ticks;
    loop.Stop();
  });
  for (int run = 1; run <= 3; ++run) {
    loop.Run();
    EXPECT_EQ(ticks, run);
  }
  EXPECT_FALSE(guard.Fired());
}

TEST(EventLoopRunTest, EndsTheTurnInWhichItIsStopped) {
  EventLoop loop;
  Kit::LoopEar ear(loop.Core());
  std::string heard;
  ear.onTask = [&](std::uint64_t cookie) {
    heard += std::to_string(cookie);
    if (cookie == 1) loop.Stop();
  };
  ear.Post(1);
  ear.Post(2);
  loop.Run();
  EXPECT_EQ(heard, "12");
}

TEST(EventLoopRunTest, ReturnsAtOnceInsideANotification) {
  EventLoop loop;
  Timer timer(loop);
  int ticks = 0;
  std::thread other;
  Every(timer, 2, [&] {
    ++ticks;
    timer.Enabled(false);
    other = std::thread([&] {
      std::this_thread::sleep_for(milliseconds(300));
      loop.Stop();
    });
    const auto start = Clock::now();
    loop.Run();
    EXPECT_LT(Since(start), milliseconds(250)) << "it does not wait for the stop";
  });
  Guard guard(loop);
  loop.Run();
  other.join();
  EXPECT_EQ(ticks, 1);
  EXPECT_FALSE(guard.Fired()) << "which is for the outer one";
}

TEST(EventLoopRunTest, IsStoppedFromAnotherThreadWhileItWaits) {
  EventLoop loop;
  Guard guard(loop);
  std::thread other([&] {
    std::this_thread::sleep_for(milliseconds(30));
    loop.Stop();
  });
  const auto start = Clock::now();
  loop.Run();
  other.join();
  EXPECT_FALSE(guard.Fired());
  EXPECT_GE(Since(start), milliseconds(20));
}

TEST(EventLoopRunTest, EveryStopOfAnotherThreadIsHeard) {
  EventLoop loop;
  Guard guard(loop);
  for (int i = 0; i < 200; ++i) {
    std::thread other([&] { loop.Stop(); });
    loop.Run();
    other.join();
  }
  EXPECT_FALSE(guard.Fired());
}

EventLoop* stoppedBySignal = nullptr;

void InstallStop(int signal) {
  struct sigaction stop {};
  stop.sa_handler = [](int) {
    errno = EDOM;
    stoppedBySignal->Stop();
    if (errno != EDOM) std::_Exit(99);  // a handler must leave errno alone
  };
  sigaction(signal, &stop, nullptr);
}

TEST(EventLoopRunTest, IsStoppedFromASignalHandler) {
  EventLoop loop;
  Guard guard(loop);
  stoppedBySignal = &loop;
  InstallStop(SIGUSR1);
  Timer timer(loop);
  Every(timer, 5, [] { raise(SIGUSR1); });
  loop.Run();
  timer.Enabled(false);

  const pthread_t own = pthread_self();  // and while it waits in the kernel
  std::thread other([&] {
    std::this_thread::sleep_for(milliseconds(30));
    pthread_kill(own, SIGUSR1);
  });
  loop.Run();
  other.join();
  signal(SIGUSR1, SIG_DFL);
  EXPECT_FALSE(guard.Fired());
}

TEST(EventLoopRunTest, ASignalThatStopsNothingDoesNotDisturbIt) {
  EventLoop loop;
  struct sigaction nothing {};
  nothing.sa_handler = [](int) {};
  sigaction(SIGUSR1, &nothing, nullptr);
  const pthread_t own = pthread_self();
  std::thread other([&] {
    for (int i = 0; i < 5; ++i) {
      std::this_thread::sleep_for(milliseconds(5));
      pthread_kill(own, SIGUSR1);
    }
    loop.Stop();
  });
  loop.Run();
  other.join();
  signal(SIGUSR1, SIG_DFL);
  EXPECT_FALSE(loop.RunOnce(0));
}

// ---- A program with a loop of another kind: RunOnce.

TEST(EventLoopRunOnceTest, WaitsAsLongAsToldWhenNothingHappens) {
  EventLoop loop;
  for (const std::int32_t wait : {0, 1, 30}) {
    const auto start = Clock::now();
    EXPECT_FALSE(loop.RunOnce(wait));
    EXPECT_GE(Since(start), milliseconds(wait));
    EXPECT_LT(Since(start), milliseconds(wait) + kTooLong);
  }
}

TEST(EventLoopRunOnceTest, ReturnsWhenSomethingHappens) {
  EventLoop loop;
  Kit::LoopEar ear(loop.Core());
  Kit::Pipe pipe;
  ear.Watch(pipe, 1);
  int heard = 0;
  ear.onEvents = [&](std::uint64_t) {
    ++heard;
    pipe.Drain();
  };
  std::thread other([&] {
    std::this_thread::sleep_for(milliseconds(20));
    pipe.Fill();
  });
  const auto start = Clock::now();
  EXPECT_TRUE(loop.RunOnce(60'000));
  other.join();
  EXPECT_EQ(heard, 1);
  EXPECT_LT(Since(start), kTooLong);
}

TEST(EventLoopRunOnceTest, ReturnsForATimerBeforeItsOwnLimit) {
  EventLoop loop;
  Timer timer(loop);
  int ticks = 0;
  Every(timer, 20, [&] { ++ticks; });
  const auto start = Clock::now();
  while (ticks == 0 && Since(start) < kTooLong) loop.RunOnce(60'000);
  EXPECT_EQ(ticks, 1);
  EXPECT_GE(Since(start), milliseconds(19));
  EXPECT_LT(Since(start), kTooLong);
}

TEST(EventLoopRunOnceTest, WithoutALimitItWaitsForTheTimer) {
  EventLoop loop;
  Timer timer(loop);
  int ticks = 0;
  Every(timer, 15, [&] { ++ticks; });
  const auto start = Clock::now();
  while (ticks == 0 && Since(start) < kTooLong) loop.RunOnce(-1);
  EXPECT_EQ(ticks, 1);
}

TEST(EventLoopRunOnceTest, IsWokenByAStopOfAnotherThread) {
  EventLoop loop;
  std::thread other([&] {
    std::this_thread::sleep_for(milliseconds(20));
    loop.Stop();
  });
  const auto start = Clock::now();
  loop.RunOnce(60'000);
  other.join();
  EXPECT_LT(Since(start), kTooLong);
  EXPECT_FALSE(loop.RunOnce(0));
}

TEST(EventLoopRunOnceTest, ALateTimerTicksOnceInRealTimeToo) {
  EventLoop loop;
  Timer timer(loop);
  int ticks = 0;
  Every(timer, 5, [&] { ++ticks; });
  std::this_thread::sleep_for(milliseconds(40));
  loop.RunOnce(0);
  EXPECT_EQ(ticks, 1);
}

// ---- A program with its own poll: Descriptor.

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
  loop.Descriptor();
  constexpr int kMany = EventLoop::kTimersPerTurn + 20;
  std::vector<std::unique_ptr<Timer>> timers;
  int ticks = 0;
  for (int i = 0; i < kMany; ++i) {
    timers.push_back(std::make_unique<Timer>(loop));
    Timer& timer = *timers.back();
    Every(timer, 5, [&] {
      ++ticks;
      timer.Enabled(false);
    });
  }
  std::this_thread::sleep_for(milliseconds(10));
  ASSERT_TRUE(Readable(4000));
  loop.RunOnce(0);
  EXPECT_EQ(ticks, EventLoop::kTimersPerTurn);
  ASSERT_TRUE(Readable(4000));
  loop.RunOnce(0);
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

// ---- Its thread.

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
#endif

// ---- Its descriptors.

TEST(EventLoopTest, GoesByTheRealClockWhenNothingElseIsSaid) {
  EventLoop loop;
  EXPECT_EQ(&loop.TheWorld(), &SystemWorld());
}

TEST(EventLoopTest, ClosesEverythingItOpened) {
  const std::size_t before = Kit::CountDescriptors();
  {
    EventLoop loop;
    loop.Descriptor();
    Timer timer(loop);
    Every(timer, 5, [] {});
    loop.RunOnce(0);
    EXPECT_GT(Kit::CountDescriptors(), before);
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST(EventLoopTest, RaisesTheSocketErrorWhenThereAreNoDescriptorsAndLeavesNoneOpen) {
  const std::size_t before = Kit::CountDescriptors();
  // The first needs nothing: a sanitizer can learn what an Error is only while there are descriptors.
  for (const int left : {-1, 0, 1}) {
    std::int32_t number = 0;
    std::string description;
    try {
      if (left < 0) throw Error(10024, "Too many open files.");
      const Kit::DescriptorFamine famine(left);
      const EventLoop loop;
    } catch (const Error& error) {
      number = error.Number();
      description = error.Description();
    }
    EXPECT_EQ(number, 10024) << left;
    EXPECT_EQ(description, "Too many open files.") << left;
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST(EventLoopTest, AskingForItsDescriptorMayFailAndBeTriedAgain) {
  EventLoop loop;
  {
    const Kit::DescriptorFamine famine;
    EXPECT_THROW(loop.Descriptor(), Error);
    loop.RunOnce(0);
  }
  EXPECT_GE(loop.Descriptor(), 0);
}

}  // namespace
}  // namespace TesselServer
