#include <fcntl.h>
#include <gtest/gtest.h>
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
#include "tests/kit/LoopTools.h"
#include "tests/kit/Pipe.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/Signals.h"

namespace TesselServer {
namespace {

using Kit::Clock;
using Kit::Every;
using Kit::kTooLong;
using Kit::Since;
using Milliseconds = std::chrono::milliseconds;

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
  Guard guard(loop);
  Timer timer(loop);
  int ticks = 0;
  Every(timer, 2, [&] {
    ++ticks;
    timer.Enabled(false);
    loop.Run();
    EXPECT_FALSE(guard.Fired()) << "it does not wait for a stop";
    std::thread([&] { loop.Stop(); }).join();
  });
  loop.Run();
  EXPECT_EQ(ticks, 1);
  EXPECT_FALSE(guard.Fired()) << "the stop is for the outer one";
}

TEST(EventLoopRunTest, IsStoppedFromAnotherThreadWhileItWaits) {
  EventLoop loop;
  Guard guard(loop);
  std::thread other([&, own = gettid()] {
    Kit::UntilItWaits(own);
    loop.Stop();
  });
  loop.Run();
  other.join();
  EXPECT_FALSE(guard.Fired());
}

TEST(EventLoopRunTest, EveryStopOfAnotherThreadEndsARun) {
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
  std::thread other([&, thread = gettid()] {
    Kit::UntilItWaits(thread);
    pthread_kill(own, SIGUSR1);
  });
  loop.Run();
  other.join();
  signal(SIGUSR1, SIG_DFL);
  EXPECT_FALSE(guard.Fired());
}

TEST(EventLoopRunTest, ASignalThatStopsNothingDoesNotDisturbIt) {
  EventLoop loop;
  const Kit::SignalCounter counter(SIGUSR1);
  const pthread_t own = pthread_self();
  std::thread other([&, thread = gettid()] {
    for (int i = 0; i < 5; ++i) {
      Kit::UntilItWaits(thread);
      pthread_kill(own, SIGUSR1);
      while (counter.Count() <= i) sched_yield();
    }
    loop.Stop();
  });
  loop.Run();
  other.join();
  EXPECT_FALSE(loop.RunOnce(0));
}

// ---- A program with a loop of another kind: RunOnce.

TEST(EventLoopRunOnceTest, WaitsForItsWholeLimitWhenNothingHappens) {
  EventLoop loop;
  for (const std::int32_t wait : {0, 1, 30}) {
    const auto start = Clock::now();
    EXPECT_FALSE(loop.RunOnce(wait));
    EXPECT_GE(Since(start), Milliseconds(wait));
    EXPECT_LT(Since(start), Milliseconds(wait) + kTooLong);
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
  std::thread other([&, own = gettid()] {
    Kit::UntilItWaits(own);
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
  EXPECT_GE(Since(start), Milliseconds(19));
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
  std::thread other([&, own = gettid()] {
    Kit::UntilItWaits(own);
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
  Kit::PassTime(Milliseconds(12));
  loop.RunOnce(0);
  EXPECT_EQ(ticks, 1);
}

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
