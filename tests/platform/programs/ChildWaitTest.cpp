#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>

#include "platform/loop/EventLoop.h"
#include "platform/programs/ChildEnvironment.h"
#include "platform/programs/ChildWait.h"
#include "platform/programs/StartChild.h"
#include "platform/programs/TimeLimit.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/Await.h"
#include "tests/kit/Child.h"
#include "tests/kit/Programs.h"
#include "tests/kit/Signals.h"
#include "tests/kit/SystemCallFilter.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

constexpr std::int64_t kLongWait = 20'000;  // milliseconds; nothing here takes that long
constexpr std::size_t kPlenty = 100'000;

class ChildWaitTest : public testing::Test {
 protected:
  // Starts a script; its end is collected when the test ends.
  void Start(const std::string& script) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    readEnd_ = UniqueDescriptor(ends[0]);
    const UniqueDescriptor writeEnd(ends[1]);
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    const UniqueDescriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    child_ = StartChild({.file = Kit::WriteProgram(tree_, "program", script)}, ChildEnvironment(environ, {}),
                        nothing.Get(), writeEnd.Get())
                 .number;
    ASSERT_GT(child_, 0);
  }
  Task<ProgramResult> Waiting(int output, std::int64_t milliseconds, std::size_t limit) {
    TimeLimit time(loop_, milliseconds);
    ChildWait wait(loop_, child_, output, limit, time);
    co_return co_await wait;
  }
  ProgramResult WaitAndRead(int output, std::int64_t milliseconds, std::size_t limit) {
    return Kit::Await(loop_, Waiting(output, milliseconds, limit));
  }
  ProgramResult Wait(std::int64_t milliseconds, std::size_t limit = kPlenty) {
    return WaitAndRead(readEnd_.Get(), milliseconds, limit);
  }
  bool Exists(const char* name) const { return std::filesystem::exists(tree_.Path() / name); }

  void TearDown() override {
    gate_.Open();
    readEnd_ = UniqueDescriptor(-1);
    if (child_ > 0) waitpid(child_, nullptr, 0);
  }

  Kit::TemporaryTree tree_;
  Kit::Gate gate_{tree_};
  EventLoop loop_;
  UniqueDescriptor readEnd_{-1};
  pid_t child_ = -1;
};

using Clock = std::chrono::steady_clock;
std::int64_t MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Processor time of this process, in milliseconds.
std::int64_t ProcessorTime() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
}

TEST_F(ChildWaitTest, ReturnsTheEndAndTheOutputAndLeavesTheChildToItsOwner) {
  Start("printf 'out\\0put'");
  const ProgramResult waited = Wait(kLongWait);
  EXPECT_TRUE(waited.ended);
  EXPECT_EQ(waited.error, 0);
  EXPECT_EQ(waited.output, std::string("out\0put", 7));
  EXPECT_FALSE(Kit::HasNoChild());
}

TEST_F(ChildWaitTest, TheExitCodeOfAChildIsReported) {
  Start("exit 3");
  const ProgramResult waited = Wait(kLongWait);
  EXPECT_EQ(waited.exitCode, 3);
  EXPECT_EQ(waited.signal, std::nullopt);
  EXPECT_LT(waited.milliseconds, kLongWait);
}

TEST_F(ChildWaitTest, TheSignalThatEndedAChildIsReported) {
  Start("kill -9 $$");
  const ProgramResult waited = Wait(kLongWait);
  EXPECT_EQ(waited.exitCode, std::nullopt);
  EXPECT_EQ(waited.signal, SIGKILL);
}

TEST_F(ChildWaitTest, AChildThatIsWaitedForNoLongerHasNoEndYet) {
  Start("read line < $here/gate; exit 3");
  const ProgramResult waited = Wait(50);
  EXPECT_FALSE(waited.ended);
  EXPECT_EQ(waited.exitCode, std::nullopt);
  EXPECT_EQ(waited.signal, std::nullopt);
  EXPECT_GE(waited.milliseconds, 50);
}

TEST_F(ChildWaitTest, ThatOutputWasCutIsReported) {
  const struct {
    std::size_t limit;
    bool cut;
    const char* why;
  } cases[] = {
      {9, true, "a byte too many"}, {10, false, "exactly as many"}, {11, false, "fewer"}, {0, true, "none wanted"}};
  for (const auto& c : cases) {
    Start("printf 01234; sleep 0.02; printf 56789");
    EXPECT_EQ(Wait(kLongWait, c.limit).outputWasCut, c.cut) << c.why;
    waitpid(child_, nullptr, 0);
    child_ = -1;
  }
}

TEST_F(ChildWaitTest, TheBeginningOfTheOutputIsKept) {
  Start("printf 0123456789; sleep 0.05; printf abc");
  EXPECT_EQ(Wait(kLongWait, 12).output, "0123456789ab");
}

TEST_F(ChildWaitTest, NothingOfItIsKeptWhereNothingCounts) {
  Start("printf 0123456789");
  const ProgramResult waited = Wait(kLongWait, 0);
  EXPECT_TRUE(waited.ended);
  EXPECT_EQ(waited.output, "");
}

TEST_F(ChildWaitTest, MuchOutputIsReadToItsEnd) {
  Start("head -c 5000000 /dev/zero; echo > $here/marker");
  const ProgramResult waited = Wait(kLongWait, 1024);
  EXPECT_TRUE(waited.ended);
  EXPECT_EQ(waited.output, std::string(1024, '\0'));
  EXPECT_TRUE(Exists("marker"));
}

TEST_F(ChildWaitTest, WhatLiesInThePipeAtTheEndIsReadWhole) {
  Start("head -c 60000 /dev/zero");
  ASSERT_TRUE(Kit::Eventually([this] {
    siginfo_t state{};
    return waitid(P_PID, static_cast<id_t>(child_), &state, WEXITED | WNOHANG | WNOWAIT) == 0 && state.si_pid == child_;
  }));
  const ProgramResult waited = Wait(kLongWait);
  EXPECT_TRUE(waited.ended);
  EXPECT_EQ(waited.output.size(), 60'000u);
}

TEST_F(ChildWaitTest, OverTheTimeTellsWhatCameSoFar) {
  Start("printf early; read go < $here/gate; printf late");
  const auto start = Clock::now();
  const ProgramResult waited = Wait(200);
  EXPECT_GE(MillisecondsSince(start), 200);
  EXPECT_FALSE(waited.ended);
  EXPECT_EQ(waited.error, 0);
  EXPECT_EQ(waited.output, "early");
}

TEST_F(ChildWaitTest, NoTimeIsNoWait) {
  for (const std::int64_t none : {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
    if (child_ < 0) Start("read go < $here/gate");
    const auto start = Clock::now();
    EXPECT_FALSE(Wait(none).ended);
    EXPECT_LT(MillisecondsSince(start), 2000);
  }
}

TEST_F(ChildWaitTest, NoTimeStillTellsWhatIsThere) {
  Start("printf early; echo > $here/marker; read go < $here/gate");
  ASSERT_TRUE(Kit::Eventually([this] { return Exists("marker"); }));
  EXPECT_EQ(Wait(0, 3).output, "ear");
}

TEST_F(ChildWaitTest, VeryLongTimesAreTimesLikeOthers) {
  for (const std::int64_t ms : {std::int64_t{23} * 24 * 3600 * 1000, std::int64_t{1} << 31, std::int64_t{1} << 32,
                                std::numeric_limits<std::int64_t>::max()}) {
    Start("sleep 0.05; printf x");
    const ProgramResult waited = Wait(ms);
    EXPECT_TRUE(waited.ended) << ms;
    EXPECT_EQ(waited.output, "x") << ms;
    waitpid(child_, nullptr, 0);
    child_ = -1;
  }
}

TEST_F(ChildWaitTest, AGrandchildThatHoldsThePipeIsNotWaitedFor) {
  Start("(read go < $here/gate; echo > $here/marker) & printf output");
  const ProgramResult waited = Wait(kLongWait);
  EXPECT_TRUE(waited.ended);
  EXPECT_EQ(waited.output, "output");
  EXPECT_FALSE(Exists("marker"));
  gate_.Open();
  EXPECT_TRUE(Kit::Eventually([this] { return Exists("marker"); }));
}

TEST_F(ChildWaitTest, AnEndlessOutputIsNotReadAfterTheEndOfTheChild) {
  Start(":");
  ASSERT_EQ(waitpid(child_, nullptr, 0), child_);
  const UniqueDescriptor endless(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  const ProgramResult waited = WaitAndRead(endless.Get(), kLongWait, 100'000'000);
  child_ = -1;
  EXPECT_TRUE(waited.ended);
  EXPECT_GE(waited.output.size(), 1'000'000u) << "as much as a pipe may hold";
  EXPECT_LE(waited.output.size(), 2'000'000u);
}

TEST_F(ChildWaitTest, SleepsWhileAChildWithoutOutputLives) {
  Start("printf before; exec > /dev/null; read go < $here/gate");
  const std::int64_t before = ProcessorTime();
  const ProgramResult waited = Wait(300);
  EXPECT_FALSE(waited.ended);
  EXPECT_EQ(waited.output, "before");
  EXPECT_LT(ProcessorTime() - before, 60) << "milliseconds";
}

TEST_F(ChildWaitTest, SignalsOfTheHostDoNotShortenTheWait) {
  const Kit::SignalCounter alarms(SIGALRM);
  Start("read go < $here/gate");
  const itimerval often{{0, 5000}, {0, 5000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  const auto start = Clock::now();
  const ProgramResult waited = Wait(200);
  const itimerval never{};
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_FALSE(waited.ended);
  EXPECT_EQ(waited.error, 0);
  EXPECT_GE(MillisecondsSince(start), 200);
  EXPECT_GT(alarms.Count(), 2);
}

TEST_F(ChildWaitTest, AFailedReadIsReported) {
  Start("read go < $here/gate");
  const UniqueDescriptor folder(open(tree_.Text().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const ProgramResult waited = WaitAndRead(folder.Get(), kLongWait, kPlenty);
  EXPECT_EQ(waited.error, EISDIR);
  EXPECT_FALSE(waited.ended);
}

TEST_F(ChildWaitTest, AChildThatWasCollectedElsewhereHasEnded) {
  Start("printf output");
  ASSERT_EQ(waitpid(child_, nullptr, 0), child_);
  const ProgramResult waited = Wait(kLongWait);
  child_ = -1;
  EXPECT_TRUE(waited.ended);
  EXPECT_EQ(waited.output, "output");
}

// The same where the kernel gives no descriptor of a child.
TEST_F(ChildWaitTest, WorksOnKernelsWithoutDescriptorsOfProcesses) {
  constexpr int kNoFilter = 100;
  for (const int error : {ENOSYS, EPERM}) {
    const int status = Kit::InChild([this, error] {
      if (!Kit::RefuseSystemCall(SYS_pidfd_open, error)) return kNoFilter;
      Start("printf before; sleep 0.1; printf after");
      if (!Wait(kLongWait).ended || waitpid(child_, nullptr, WNOHANG) != child_) return 1;
      Start("printf before; sleep 0.1; printf after");
      if (Wait(kLongWait).output != "beforeafter" || waitpid(child_, nullptr, WNOHANG) != child_) return 2;
      Start("printf output");
      if (waitpid(child_, nullptr, 0) != child_ || !Wait(kLongWait).ended) return 3;
      Start("exec > /dev/null; read go < $here/gate");
      const std::int64_t before = ProcessorTime();
      const auto start = Clock::now();
      if (Wait(300).ended || MillisecondsSince(start) < 300) return 4;
      if (ProcessorTime() - before >= 60) return 5;
      gate_.Open();
      return Wait(kLongWait).ended && waitpid(child_, nullptr, WNOHANG) == child_ ? 0 : 6;
    });
    if (status == kNoFilter) GTEST_SKIP() << "this kernel takes no system call filter";
    EXPECT_EQ(status, 0) << error;
  }
}

}  // namespace
}  // namespace TesselServer
