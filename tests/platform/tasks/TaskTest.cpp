#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/tasks/Task.h"

namespace TesselServer {
namespace {

// Something that a test lets happen.
class Signal : public Wait<int> {
 public:
  explicit Signal(Signal*& place) : place_(place) {}
  ~Signal() { place_ = nullptr; }
  void Happens(int value) {
    value_ = value;
    Resume();
  }

 private:
  bool MustWait() override {
    place_ = this;
    return true;
  }
  int Take() override { return value_; }

  Signal*& place_;
  int value_ = 0;
};

struct TaskTest : testing::Test {
  ~TaskTest() override { EXPECT_EQ(TaskPromise::living, 0) << "a frame has outlived its owner"; }

  Task<int> Awaited() {
    Signal signal(waiting);
    co_return co_await signal;
  }
  // Adds up what comes in, a task for each.
  Task<int> SumOf(int count) {
    int sum = 0;
    for (int i = 0; i < count; ++i) {
      auto next = Awaited();
      sum += co_await next;
    }
    co_return sum;
  }
  Task<void> Keep(Task<int> given) {
    Task<int> task = std::move(given);
    result = co_await task;
  }

  Signal* waiting = nullptr;
  int result = -1;
};

TEST_F(TaskTest, RunsToTheFirstWaitAndOnWhenItIsOver) {
  const RunningTask task = RunningTask::Start(Keep(SumOf(3)));
  for (int value : {1, 20, 300}) {
    EXPECT_FALSE(task.IsDone());
    ASSERT_NE(waiting, nullptr);
    waiting->Happens(value);
  }
  EXPECT_TRUE(task.IsDone());
  EXPECT_EQ(result, 321);
  EXPECT_EQ(TaskPromise::living, 0) << "the frames go with the end, not with the owner";
}

TEST_F(TaskTest, DestroyingItTakesAllFramesAndWhatTheyWaitFor) {
  {
    const RunningTask task = RunningTask::Start(Keep(SumOf(3)));
    waiting->Happens(1);
    EXPECT_EQ(TaskPromise::living, 3);
  }
  EXPECT_EQ(waiting, nullptr);
  EXPECT_EQ(result, -1);
}

TEST_F(TaskTest, OneThatIsNeverStartedGoesAsWell) {
  const Task<int> task = SumOf(1);
  EXPECT_EQ(TaskPromise::living, 1);
}

TEST_F(TaskTest, AChainOfAnyLengthTakesNoStack) {
  const auto one = []() -> Task<int> { co_return 1; };
  const auto all = [&]() -> Task<int> {
    int sum = 0;
    for (int i = 0; i < 1'000'000; ++i) {
      auto next = one();
      sum += co_await next;
    }
    co_return sum;
  };
  EXPECT_EQ(RunNow(all()), 1'000'000);
}

Task<int> Deep(int depth) {
  if (depth == 0) co_return 0;
  auto deeper = Deep(depth - 1);
  co_return 1 + co_await deeper;
}

TEST_F(TaskTest, NestedTasksTakeNoStackEither) { EXPECT_EQ(RunNow(Deep(10'000)), 10'000); }

TEST_F(TaskTest, WhatATaskThrowsComesOutOfTheWaiting) {
  const auto failing = [this]() -> Task<int> {
    auto first = Awaited();
    co_await first;
    throw std::runtime_error("no more");
  };
  const auto catching = [&](std::string& text) -> Task<void> {
    auto task = failing();
    try {
      co_await task;
    } catch (const std::runtime_error& error) {
      text = error.what();
    }
  };
  std::string text;
  const RunningTask task = RunningTask::Start(catching(text));
  waiting->Happens(1);
  EXPECT_EQ(text, "no more");
  EXPECT_TRUE(task.IsDone());
}

TEST_F(TaskTest, WhatAStartedTaskThrowsIsLost) {
  const auto failing = []() -> Task<void> {
    throw std::runtime_error("no more");
    co_return;
  };
  EXPECT_TRUE(RunningTask::Start(failing()).IsDone());
}

TEST_F(TaskTest, RunNowPassesOnWhatIsThrown) {
  const auto failing = []() -> Task<int> {
    throw std::bad_alloc();
    co_return 1;
  };
  EXPECT_THROW(RunNow(failing()), std::bad_alloc);
}

// Its owner lets go of it while it is on the stack.
TEST_F(TaskTest, OneThatIsCancelledWhileItRunsGoesOnToItsNextWait) {
  RunningTask owner;
  bool wentOn = false;
  bool wentTooFar = false;
  const auto cancelling = [&]() -> Task<void> {
    auto first = Awaited();
    co_await first;
    owner = {};
    wentOn = true;
    auto second = Awaited();
    co_await second;
    wentTooFar = true;
  };
  owner = RunningTask::Start(cancelling());
  waiting->Happens(1);
  EXPECT_TRUE(wentOn);
  EXPECT_FALSE(wentTooFar);
  EXPECT_EQ(TaskPromise::living, 0);
  EXPECT_EQ(waiting, nullptr);
}

TEST_F(TaskTest, LocalsAreDestroyedInTheOrderOfAFunction) {
  std::string order;
  struct Noted {
    Noted(std::string& given, char ownName) : order(given), name(ownName) {}
    ~Noted() { order += name; }
    std::string& order;
    char name;
  };
  const auto waits = [&]() -> Task<void> {
    const Noted a(order, 'a');
    const auto b = std::make_unique<Noted>(order, 'b');
    auto never = Awaited();
    co_await never;
    order += '!';
  };
  { const RunningTask task = RunningTask::Start(waits()); }
  EXPECT_EQ(order, "ba");
}

}  // namespace
}  // namespace TesselServer
