#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/tasks/Workers.h"
#include "platform/world/HostProcess.h"
#include "tests/kit/LoopTools.h"
#include "tests/kit/Programs.h"

namespace TesselServer {
namespace {

using Kind = Workers::Kind;

// Keeps threads waiting until it is opened.
class Barrier {
 public:
  ~Barrier() { Open(); }
  void Pass() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return isOpen_; });
  }
  void Open() {
    const std::scoped_lock lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
  }
  // Whether so many wait, which takes a moment.
  bool Holds(int count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, Kit::kTooLong, [&] { return waiting_ == count; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int waiting_ = 0;
  bool isOpen_ = false;
};

struct WorkersTest : testing::Test {
  void UntilDone(const std::vector<RunningTask>& tasks) {
    for (const RunningTask& task : tasks) {
      for (const auto start = Kit::Clock::now(); !task.IsDone() && Kit::Since(start) < Kit::kTooLong;) {
        loop.RunOnce(100);
      }
      EXPECT_TRUE(task.IsDone());
    }
  }
  Task<void> Note(Kind kind, std::function<std::string()> work) {
    auto result = workers.Do(kind, std::move(work));
    texts.push_back(co_await result);
  }
  RunningTask Start(Kind kind, std::function<std::string()> work) {
    return RunningTask::Start(Note(kind, std::move(work)));
  }

  EventLoop loop;
  Workers workers{loop};
  std::vector<std::string> texts;
};

TEST_F(WorkersTest, WorkIsDoneOnAnotherThreadWithAllSignalsBlocked) {
  const std::thread::id own = std::this_thread::get_id();
  std::vector<RunningTask> tasks;
  tasks.push_back(Start(Kind::kFiles, [own] {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    const bool isBlocked = sigismember(&blocked, SIGINT) == 1 && sigismember(&blocked, SIGCHLD) == 1;
    return std::string(std::this_thread::get_id() == own ? "same" : "other") + (isBlocked ? " blocked" : "");
  }));
  EXPECT_TRUE(texts.empty()) << "nothing is reported before the loop has its turn";
  UntilDone(tasks);
  EXPECT_EQ(texts, std::vector<std::string>{"other blocked"});
}

TEST_F(WorkersTest, NoMoreThanThreeDoWorkOfOneKindSoThatAnotherFindsOneFree) {
  Barrier barrier;
  std::vector<RunningTask> tasks;
  for (int i = 0; i < 10; ++i) {
    tasks.push_back(Start(Kind::kNames, [&] {
      barrier.Pass();
      return std::string("name");
    }));
  }
  ASSERT_TRUE(barrier.Holds(Workers::kMaxOfAKind));
  std::vector<RunningTask> file;
  file.push_back(Start(Kind::kFiles, [] { return std::string("file"); }));
  UntilDone(file);
  EXPECT_EQ(texts, std::vector<std::string>{"file"});
  EXPECT_TRUE(barrier.Holds(Workers::kMaxOfAKind));
  barrier.Open();
  UntilDone(tasks);
  EXPECT_EQ(texts.size(), 11u);
}

TEST_F(WorkersTest, WithoutThreadsTheWorkIsDoneInTheCall) {
  workers.Count(-3);
  EXPECT_EQ(workers.Count(), 0);
  const std::thread::id own = std::this_thread::get_id();
  const RunningTask task =
      Start(Kind::kFiles, [own] { return std::string(std::this_thread::get_id() == own ? "same" : "other"); });
  EXPECT_TRUE(task.IsDone());
  EXPECT_EQ(texts, std::vector<std::string>{"same"});
}

TEST_F(WorkersTest, WhatTheWorkThrowsComesOutOfTheWaiting) {
  for (const std::int32_t count : {0, 4}) {
    workers.Count(count);
    std::string caught;
    const auto catching = [&]() -> Task<void> {
      auto failing = workers.Do(Kind::kFiles, []() -> int { throw std::runtime_error("broken"); });
      try {
        co_await failing;
      } catch (const std::runtime_error& error) {
        caught = error.what();
      }
    };
    std::vector<RunningTask> tasks;
    tasks.push_back(RunningTask::Start(catching()));
    UntilDone(tasks);
    EXPECT_EQ(caught, "broken") << count;
  }
}

TEST_F(WorkersTest, TheResultOfATaskThatIsGoneIsDropped) {
  Barrier barrier;
  const auto held = std::make_shared<int>(1);
  {
    const RunningTask task = Start(Kind::kFiles, [&barrier, held] {
      barrier.Pass();
      return std::string();
    });
    ASSERT_TRUE(barrier.Holds(1));
  }
  barrier.Open();
  for (const auto start = Kit::Clock::now(); held.use_count() > 1 && Kit::Since(start) < Kit::kTooLong;) {
    loop.RunOnce(10);
  }
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_TRUE(texts.empty());
}

TEST(WorkersEndTest, WhatWasDoneForOneThatIsGoneIsNotDelivered) {
  EventLoop loop;
  {
    Workers workers(loop);
    const auto waits = [&]() -> Task<void> {
      auto work = workers.Do(Kind::kFiles, [] { return 1; });
      co_await work;
    };
    const RunningTask task = RunningTask::Start(waits());
    pollfd posted{loop.Descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&posted, 1, static_cast<int>(Kit::kTooLong.count())), 1) << "it is done and posted";
  }
  EXPECT_FALSE(loop.RunOnce(0));
}

TEST(WorkersEndTest, TheLoopWaitsForWorkUnderWay) {
  std::atomic<bool> isDone = false;
  Barrier barrier;
  std::thread opener;
  {
    EventLoop loop;
    auto workers = std::make_optional<Workers>(loop);
    const auto waits = [&]() -> Task<void> {
      auto work = workers->Do(Kind::kNames, [&] {
        barrier.Pass();
        isDone = true;
        return 1;
      });
      co_await work;
    };
    auto task = std::make_optional(RunningTask::Start(waits()));
    ASSERT_TRUE(barrier.Holds(1));
    task.reset();
    workers.reset();
    EXPECT_FALSE(isDone) << "a control that goes waits for nothing";
    opener = std::thread([&] { barrier.Open(); });
  }
  EXPECT_TRUE(isDone);
  opener.join();
}

TEST(WorkersEndTest, AProcessThatEndsWaitsForNone) {
  const auto barrier = std::make_shared<Barrier>();
  const auto isDone = std::make_shared<std::atomic<bool>>(false);
  {
    EventLoop loop;
    Workers workers(loop);
    const auto waits = [&]() -> Task<void> {
      auto work = workers.Do(Kind::kNames, [barrier, isDone] {
        barrier->Pass();
        *isDone = true;
        return 1;
      });
      co_await work;
    };
    const RunningTask task = RunningTask::Start(waits());
    ASSERT_TRUE(barrier->Holds(1));
    WaitForNoThread();
  }
  EXPECT_FALSE(*isDone);
  barrier->Open();
  EXPECT_TRUE(Kit::Eventually([&] { return isDone->load(); })) << "it goes on by itself";
}

TEST(WorkersEndTest, WorkThatNobodyWaitsForAnyMoreIsDropped) {
  EventLoop loop;
  Workers workers(loop);
  Barrier barrier;
  const auto held = std::make_shared<int>(0);
  const auto waits = [&]() -> Task<void> {
    auto work = workers.Do(Kind::kNames, [&barrier, held] {
      barrier.Pass();
      return 0;
    });
    co_await work;
  };
  std::vector<RunningTask> begun;
  for (int i = 0; i < Workers::kMaxOfAKind; ++i) begun.push_back(RunningTask::Start(waits()));
  ASSERT_TRUE(barrier.Holds(Workers::kMaxOfAKind));
  const long before = held.use_count();
  std::vector<RunningTask> queued;
  for (int i = 0; i < 10; ++i) queued.push_back(RunningTask::Start(waits()));
  EXPECT_GT(held.use_count(), before);
  queued.clear();
  EXPECT_EQ(held.use_count(), before) << "what it held is free, though no thread has come to it";
  barrier.Open();
  for (const auto start = Kit::Clock::now(); !begun.back().IsDone() && Kit::Since(start) < Kit::kTooLong;) {
    loop.RunOnce(100);
  }
  EXPECT_TRUE(begun.back().IsDone());
  EXPECT_TRUE(barrier.Holds(Workers::kMaxOfAKind)) << "no thread did the others";
}

TEST(WorkersEndTest, SeveralLoopsShareTheThreads) {
  EventLoop first, second;
  Workers one(first), other(second);
  std::mutex mutex;
  std::vector<std::thread::id> ids;
  const auto notes = [&](Workers& workers) -> Task<void> {
    auto work = workers.Do(Kind::kFiles, [&] {
      const std::scoped_lock lock(mutex);
      ids.push_back(std::this_thread::get_id());
      return 1;
    });
    co_await work;
  };
  for (int i = 0; i < 3; ++i) {
    for (auto [workers, loop] : {std::pair{&one, &first}, std::pair{&other, &second}}) {
      const RunningTask task = RunningTask::Start(notes(*workers));
      for (const auto start = Kit::Clock::now(); !task.IsDone() && Kit::Since(start) < Kit::kTooLong;) {
        loop->RunOnce(100);
      }
      EXPECT_TRUE(task.IsDone());
    }
  }
  ASSERT_EQ(ids.size(), 6u);
}

}  // namespace
}  // namespace TesselServer
