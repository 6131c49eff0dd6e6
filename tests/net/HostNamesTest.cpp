#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "net/HostNames.h"
#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "tests/kit/Child.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/LoopTools.h"
#include "tests/kit/NameServer.h"
#include "tests/kit/NetworkNamespace.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// One whose name server keeps silent until it is opened.
struct SilentWorld : Kit::FakeWorld {
  ~SilentWorld() override { Open(); }

  std::optional<std::string> HostNameOf(std::uint32_t address) const override {
    std::unique_lock lock(mutex_);
    asked_.push_back(address);
    changed_.notify_all();
    changed_.wait(lock, [this] { return isOpen_ || passes_ > 0; });
    if (!isOpen_) --passes_;
    if (fails) throw std::bad_alloc();
    return FakeWorld::HostNameOf(address);
  }
  void Open(bool open = true) const {
    const std::scoped_lock lock(mutex_);
    isOpen_ = open;
    changed_.notify_all();
  }
  // Lets one look-up pass.
  void LetPass() const {
    const std::scoped_lock lock(mutex_);
    ++passes_;
    changed_.notify_all();
  }
  std::uint32_t AskedAt(std::size_t place) const {
    const std::scoped_lock lock(mutex_);
    return asked_.at(place);
  }
  // How many have been asked for, once there are that many.
  std::size_t Asked(std::size_t expected) const {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, Kit::kTooLong, [&] { return asked_.size() >= expected; });
    return asked_.size();
  }

  std::atomic<bool> fails = false;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  mutable std::vector<std::uint32_t> asked_;
  mutable bool isOpen_ = true;
  mutable int passes_ = 0;
};

class HostNamesTest : public testing::Test {
 protected:
  HostNamesTest() {
    for (int i = 0; i < 5; ++i) {
      world_.hostNames[inet_addr(Address(i).c_str())] = "client-" + std::to_string(i) + ".example";
    }
  }

  static std::string Address(int number) {
    return "192.0." + std::to_string(2 + number / 250) + "." + std::to_string(number % 250);
  }

  Task<void> Note(std::string address) {
    auto asked = names_.NameOf(std::move(address));
    order_.push_back(co_await asked);
  }
  [[nodiscard]] RunningTask Ask(const std::string& address) { return RunningTask::Start(Note(address)); }
  [[nodiscard]] RunningTask Ask(int number) { return Ask(Address(number)); }

  void Until(const RunningTask& task) {
    for (const auto start = Kit::Clock::now(); !task.IsDone() && Kit::Since(start) < Kit::kTooLong;) {
      loop_.RunOnce(100);
    }
    EXPECT_TRUE(task.IsDone());
  }
  std::string NameOf(const std::string& address) {
    Until(Ask(address));
    return order_.back();
  }
  int LookUps() const { return world_.hostNameLookUps; }

  SilentWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  HostNames names_{loop_, workers_};
  std::vector<std::string> order_;
};

TEST_F(HostNamesTest, AnAddressHasItsName) {
  for (const std::int32_t threads : {4, 0}) {
    workers_.Count(threads);
    struct {
      std::string address, name;
      const char* why;
    } const cases[] = {
        {"192.0.2.3", "client-3.example", "it has one"},         {"192.0.2.99", "Unknown", "it has none"},
        {"192.0.515", "client-3.example", "written otherwise"},  {"", "Unknown", "no address"},
        {"client-3.example", "Unknown", "a name is no address"}, {"255.255.255.255", "Unknown", "nobody's"},
    };
    for (const auto& c : cases) {
      EXPECT_EQ(NameOf(c.address), c.name) << c.why;
      EXPECT_EQ(names_.NameNow(c.address), c.name) << c.why;
    }
  }
  EXPECT_EQ(LookUps(), 2) << "each address once";
}

TEST_F(HostNamesTest, OthersGoOnWhileANameServerKeepsSilent) {
  world_.Open(false);
  const RunningTask task = Ask(1);
  EXPECT_EQ(world_.Asked(1), 1U);
  Timer timer(loop_);
  Kit::Every(timer, 10, [this] { order_.push_back("tick"); });
  for (int i = 0; i < 2; ++i) {
    loop_.Post([this] { order_.push_back("client"); });
    world_.Advance(10);
    loop_.RunOnce(0);
  }
  EXPECT_THAT(order_, ElementsAre("client", "tick", "client", "tick"));
  timer.Enabled(false);
  world_.Open();
  Until(task);
  EXPECT_EQ(order_.back(), "client-1.example");
}

TEST_F(HostNamesTest, ThoseWhoAskForTheSameHostShareALookUp) {
  world_.Open(false);
  std::vector<RunningTask> tasks;
  for (const char* address : {"192.0.2.1", "192.0.513", "192.0.2.1"}) tasks.push_back(Ask(address));
  EXPECT_EQ(world_.Asked(1), 1U);
  world_.Open();
  for (const RunningTask& each : tasks) Until(each);
  EXPECT_THAT(order_, ElementsAre("client-1.example", "client-1.example", "client-1.example"));
  EXPECT_EQ(LookUps(), 1);
}

TEST_F(HostNamesTest, ThoseWhoWaitForOneNameGoOnInTurnsOfTheirOwnWhereThatTakesLong) {
  world_.Open(false);
  const auto takesLong = [&]() -> Task<void> {
    auto asked = names_.NameOf(Address(1));
    order_.push_back(co_await asked);
    world_.microseconds += EventLoop::kMicrosecondsPerTurn;
  };
  std::vector<RunningTask> tasks;
  for (int i = 0; i < 3; ++i) tasks.push_back(RunningTask::Start(takesLong()));
  world_.Open();
  for (std::size_t done = 1; done <= tasks.size(); ++done) {
    for (const auto start = Kit::Clock::now(); order_.size() < done && Kit::Since(start) < Kit::kTooLong;) {
      loop_.RunOnce(100);
    }
    EXPECT_EQ(order_.size(), done);
  }
}

TEST_F(HostNamesTest, AnAnswerIsRememberedForAMinute) {
  NameOf("192.0.2.1");
  NameOf("192.0.2.99");
  world_.Advance(HostNames::kRememberedMilliseconds - 1);
  const RunningTask task = Ask(1);
  EXPECT_TRUE(task.IsDone()) << "it need not wait";
  NameOf("192.0.2.99");
  EXPECT_EQ(LookUps(), 2) << "that there is none is remembered as well";
  world_.Advance(1);
  world_.hostNames[inet_addr("192.0.2.99")] = "new.example";
  EXPECT_EQ(NameOf("192.0.2.99"), "new.example");
  EXPECT_EQ(names_.NameNow("192.0.2.1"), "client-1.example");
  EXPECT_EQ(LookUps(), 4);
}

TEST_F(HostNamesTest, SoManyAreRememberedAndTheLatestAreKept) {
  constexpr int kMost = static_cast<int>(HostNames::kMaxRemembered);
  workers_.Count(0);
  for (int i = 0; i < kMost; ++i) NameOf(Address(i));
  EXPECT_EQ(names_.NameNow(Address(0)), "client-0.example");
  EXPECT_EQ(LookUps(), kMost);
  NameOf(Address(kMost));
  names_.NameNow(Address(0));
  EXPECT_EQ(LookUps(), kMost + 1) << "it was just used";
  names_.NameNow(Address(1));
  EXPECT_EQ(LookUps(), kMost + 2) << "it was the least recently used";
}

TEST_F(HostNamesTest, NobodyWaitsLongerThanTwoSeconds) {
  world_.Open(false);
  std::vector<RunningTask> tasks;
  for (int i = 0; i < 5; ++i) tasks.push_back(Ask(i));
  EXPECT_EQ(world_.Asked(HostNames::kAtOnce), static_cast<std::size_t>(HostNames::kAtOnce));
  world_.Advance(HostNames::kPatienceMilliseconds - 1);
  while (loop_.RunOnce(0)) {
  }
  EXPECT_THAT(order_, IsEmpty());
  world_.Advance(1);
  while (loop_.RunOnce(0)) {
  }
  EXPECT_EQ(order_, std::vector<std::string>(5, "Unknown"));
  world_.Open();
  Until(Ask(4));
  EXPECT_EQ(order_.back(), "client-4.example") << "that nobody waited for it is not remembered";
  EXPECT_EQ(world_.Asked(4), 4U) << "what nobody waits for any more is not looked up, and what had begun is remembered";
  EXPECT_EQ(NameOf(Address(0)), "client-0.example");
  EXPECT_EQ(world_.Asked(4), 4U);
}

TEST_F(HostNamesTest, OthersHaveTheirTurnInTheOrderOfAsking) {
  world_.Open(false);
  std::vector<RunningTask> tasks;
  for (int i = 0; i < 6; ++i) tasks.push_back(Ask(i));
  EXPECT_EQ(world_.Asked(HostNames::kAtOnce), static_cast<std::size_t>(HostNames::kAtOnce));
  for (int i = HostNames::kAtOnce; i < 6; ++i) {
    const std::size_t answered = order_.size() + 1;
    world_.LetPass();
    for (const auto start = Kit::Clock::now(); order_.size() < answered && Kit::Since(start) < Kit::kTooLong;) {
      loop_.RunOnce(100);
    }
    const auto place = static_cast<std::size_t>(i);
    ASSERT_EQ(world_.Asked(place + 1), place + 1);
    EXPECT_EQ(world_.AskedAt(place), inet_addr(Address(i).c_str())) << i;
  }
  world_.Open();
  for (const RunningTask& each : tasks) Until(each);
  EXPECT_EQ(order_.size(), 6U);
  EXPECT_EQ(LookUps(), 6);
}

TEST_F(HostNamesTest, ThoseThatLeaveTheQueueAreLeftOutAndTheOthersHaveTheirTurn) {
  world_.Open(false);
  std::vector<RunningTask> tasks;
  for (int i = 0; i < 8; ++i) tasks.push_back(Ask(i));
  EXPECT_EQ(world_.Asked(HostNames::kAtOnce), static_cast<std::size_t>(HostNames::kAtOnce));
  for (const std::size_t leaves : {5U, 3U, 7U}) tasks[leaves] = {};  // from between the others, the first and the last
  tasks.push_back(Ask(5));
  world_.Open();
  for (const RunningTask& each : tasks) Until(each);
  EXPECT_THAT(order_, UnorderedElementsAre("client-0.example", "client-1.example", "client-2.example",
                                           "client-4.example", "Unknown", "Unknown"));
  EXPECT_EQ(world_.Asked(6), 6U);
}

TEST_F(HostNamesTest, OneThatIsDestroyedWhileItWaitsLeavesNothing) {
  world_.Open(false);
  for (int i = 0; i < 5; ++i) {
    const RunningTask first = Ask(i), second = Ask(i);
  }
  EXPECT_EQ(world_.Asked(3), 3U);
  EXPECT_EQ(TaskPromise::living, HostNames::kAtOnce) << "the look-ups themselves";
  world_.Open();
  for (const auto start = Kit::Clock::now(); TaskPromise::living > 0 && Kit::Since(start) < Kit::kTooLong;) {
    loop_.RunOnce(100);
  }
  EXPECT_EQ(TaskPromise::living, 0);
  EXPECT_THAT(order_, IsEmpty());
  EXPECT_EQ(LookUps(), 3);
  EXPECT_FALSE(loop_.RunOnce(0));
}

TEST_F(HostNamesTest, OneThatIsAnsweredAndDestroyedBeforeItGoesOnIsNotResumed) {
  world_.Open(false);
  std::vector<RunningTask> tasks;
  const auto destroys = [&]() -> Task<void> {
    auto asked = names_.NameOf(Address(1));
    order_.push_back(co_await asked);
    tasks.clear();
  };
  const RunningTask first = RunningTask::Start(destroys());
  for (int i = 0; i < 3; ++i) tasks.push_back(Ask(1));
  world_.Open();
  Until(first);
  while (loop_.RunOnce(0)) {
  }
  EXPECT_THAT(order_, ElementsAre("client-1.example"));
  EXPECT_EQ(TaskPromise::living, 0);
}

TEST_F(HostNamesTest, AllMayGoWhileALookUpIsUnderWay) {
  world_.Open(false);
  {
    EventLoop loop(world_);
    Workers workers(loop);
    HostNames names(loop, workers);
    const auto waits = [&]() -> Task<void> {
      auto asked = names.NameOf("192.0.2.1");
      co_await asked;
    };
    const RunningTask task = RunningTask::Start(waits());
    EXPECT_EQ(world_.Asked(1), 1U);
    EXPECT_FALSE(task.IsDone());
    world_.Open();
  }
  EXPECT_EQ(TaskPromise::living, 0);
}

TEST_F(HostNamesTest, WhatFailsForWantOfMemoryIsNotRemembered) {
  for (const std::int32_t threads : {4, 0}) {
    workers_.Count(threads);
    world_.fails = true;
    EXPECT_EQ(NameOf("192.0.2." + std::to_string(threads)), "Unknown");
    world_.fails = false;
    EXPECT_EQ(NameOf("192.0.2." + std::to_string(threads)), "client-" + std::to_string(threads) + ".example");
  }
}

TEST_F(HostNamesTest, WithoutThreadsANameIsLookedUpInTheCall) {
  workers_.Count(0);
  EXPECT_EQ(RunNow(names_.NameOf("192.0.2.1")), "client-1.example");
}

TEST(HostNamesSystemTest, ASilentNameServerDoesNotHoldTheLoop) {
  const Kit::TemporaryTree tree;
  const std::string file = tree.Write("resolv.conf", "nameserver 127.0.0.1\n");
  const int status = Kit::InChild([&] {
    alarm(20);
    if (!Kit::EnterOwn(CLONE_NEWNET | CLONE_NEWNS) || !Kit::RaiseLoopback() || !Kit::KeepMountsToOneself() ||
        !Kit::PutInPlaceOf("/etc/resolv.conf", file)) {
      return Kit::kNoNamespace;
    }
    const Kit::NameServer server(Kit::NameServer::kDomainPort);
    if (!server.IsReady()) return 1;
    EventLoop loop;
    Workers workers(loop);
    HostNames names(loop, workers);
    std::string order;
    const auto asks = [&](std::string address) -> Task<void> {
      auto asked = names.NameOf(std::move(address));
      order += " " + co_await asked;
    };
    const RunningTask silent = RunningTask::Start(asks("192.0.2.8"));
    const RunningTask same = RunningTask::Start(asks("192.0.2.8"));
    loop.Post([&order] { order += "other work"; });
    while (!silent.IsDone() || !same.IsDone()) loop.RunOnce(-1);
    if (order != "other work Unknown Unknown") return 2;
    if (server.CountQuestions() != 1) return 3;
    const RunningTask answered = RunningTask::Start(asks("192.0.2.7"));
    if (!server.AnswerWithName("client-7")) return 4;
    while (!answered.IsDone()) loop.RunOnce(-1);
    return order == "other work Unknown Unknown client-7.example" ? 0 : 5;
  });
  if (status == Kit::kNoNamespace) GTEST_SKIP() << "this machine gives no network of its own";
  EXPECT_EQ(status, 0) << "1014 is the end by the alarm";
}

}  // namespace
}  // namespace TesselServer
