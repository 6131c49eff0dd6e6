// Whatever system call fails while a program is run: the caller is told, no child and no descriptor stays, the next
// program runs.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <thread>

#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "platform/programs/ChildPrograms.h"
#include "platform/tasks/Workers.h"
#include "tests/kit/Await.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FailNth.h"
#include "tests/kit/FailNthMemory.h"
#include "tests/kit/Programs.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Failure = ProgramResult::Failure;

struct Fault {
  const char* function;
  int error;
  Failure failure;           // what the caller is told; kNone: the run goes on
  std::int32_t threads = 0;  // which start the program; with none, only the program's output is read
};

std::string NameOfFault(const testing::TestParamInfo<Fault>& each) {
  return std::string(each.param.function) + "_" + std::to_string(each.param.error) + "_" +
         std::to_string(each.param.threads);
}

class ProgramFaults : public testing::Test {
 protected:
  ProgramResult Run() {
    return Kit::Await(loop_, Kit::Run(programs_, {.file = program_, .waitMilliseconds = 20'000, .outputLimit = 1024}));
  }
  void ExpectWhole(const ProgramResult& result) {
    EXPECT_EQ(result.failure, Failure::kNone);
    EXPECT_TRUE(result.ended);
    EXPECT_EQ(result.output, "early late");
  }

  Kit::TemporaryTree tree_;
  std::string program_ = Kit::WriteProgram(tree_, "program", "printf 'early '; sleep 0.05; printf late");
  EventLoop loop_;
  Workers workers_{loop_};
  ChildPrograms programs_{loop_, workers_};
};

class ProgramFaultsTest : public ProgramFaults, public testing::WithParamInterface<Fault> {};

TEST_P(ProgramFaultsTest, AreReportedOrOvercome) {
  const Fault& expected = GetParam();
  workers_.Count(expected.threads);
  int happened = 0;
  const std::size_t descriptors = Kit::CountDescriptors();
  for (int nth = 1; nth <= 4; ++nth) {
    ProgramResult result;
    bool failed = false;
    {
      const Kit::FailNth fault(expected.function, nth, expected.error);
      result = Run();
      failed = fault.Happened();
    }
    happened += failed ? 1 : 0;
    if (failed && expected.failure != Failure::kNone) {
      EXPECT_EQ(result.failure, expected.failure) << nth;
      EXPECT_EQ(result.error, expected.error) << nth;
      // before a read that fails the program was started: it is left over, unless it has ended by itself meanwhile
      const bool started = expected.failure == Failure::kRead;
      EXPECT_EQ(programs_.LeftOver(), Kit::HasNoChild() ? 0u : 1u) << nth;
      EXPECT_TRUE(started || (Kit::HasNoChild() && !result.ended)) << nth;
      EXPECT_TRUE(Kit::HasNoChild() || !result.ended) << nth;
    } else {
      ExpectWhole(result);
    }
    EXPECT_EQ(Kit::CountDescriptors(), descriptors) << nth;
    ExpectWhole(Run());
    EXPECT_TRUE(Kit::Eventually([this] {
      ExpectWhole(Run());
      return programs_.LeftOver() == 0;
    })) << nth;
    EXPECT_TRUE(Kit::HasNoChild()) << nth;
  }
  EXPECT_GT(happened, 0) << expected.function << " was never called";
}

INSTANTIATE_TEST_SUITE_P(
    Calls, ProgramFaultsTest,
    testing::Values(Fault{"pipe2", EMFILE, Failure::kPipe}, Fault{"pipe2", ENFILE, Failure::kPipe},
                    Fault{"open", ENOENT, Failure::kStart}, Fault{"open", ENFILE, Failure::kStart},
                    Fault{"clone", EAGAIN, Failure::kStart}, Fault{"clone", ENOMEM, Failure::kStart},
                    Fault{"pipe2", EMFILE, Failure::kPipe, 4}, Fault{"open", ENFILE, Failure::kStart, 4},
                    Fault{"clone", EAGAIN, Failure::kStart, 4}, Fault{"epoll_wait", EINTR, Failure::kNone},
                    Fault{"epoll_ctl", ENOSPC, Failure::kNone}, Fault{"read", EINTR, Failure::kNone},
                    Fault{"read", EAGAIN, Failure::kNone}, Fault{"read", EIO, Failure::kRead}),
    NameOfFault);

class RunningProgramFaultsTest : public ProgramFaultsTest {};

TEST_P(RunningProgramFaultsTest, LeaveItOver) {
  const Fault& expected = GetParam();
  workers_.Count(expected.threads);
  const Kit::Gate gate(tree_);
  program_ = Kit::WriteProgram(tree_, "held", "printf early; read line < $here/gate");
  {
    const Kit::FailNth fault(expected.function, 1, expected.error);
    EXPECT_EQ(Run().failure, Failure::kRead);
    EXPECT_TRUE(fault.Happened());
  }
  EXPECT_EQ(programs_.LeftOver(), 1u);
  EXPECT_FALSE(Kit::HasNoChild());
  gate.Open();
  EXPECT_TRUE(Kit::Eventually([this] {
    loop_.RunOnce(10);
    return programs_.LeftOver() == 0;
  }));
  EXPECT_TRUE(Kit::HasNoChild());
}

INSTANTIATE_TEST_SUITE_P(Calls, RunningProgramFaultsTest, testing::Values(Fault{"read", EIO, Failure::kRead}),
                         NameOfFault);

// ---- A start that takes its time.

class HeldStartTest : public ProgramFaults {
 protected:
  using Running = Kit::Pending<ProgramResult>;

  Task<ProgramResult> Program(std::int64_t waitMilliseconds) {
    return Kit::Run(programs_, {.file = program_, .waitMilliseconds = waitMilliseconds, .outputLimit = 1024});
  }
  // Until the child is gone that came after its task.
  void ExpectNobodyStays(std::size_t descriptors) {
    EXPECT_TRUE(Kit::TurnUntil(loop_, [] { return TaskPromise::living == 0; })) << "the start comes to its end";
    EXPECT_TRUE(Kit::TurnUntil(loop_, [this] { return programs_.LeftOver() == 0 && Kit::HasNoChild(); }));
    EXPECT_EQ(Kit::CountDescriptors(), descriptors);
    ExpectWhole(Run());
  }
};

TEST_F(HeldStartTest, OfADestroyedTaskLeavesNoChildAndNoDescriptor) {
  Run();
  const std::size_t descriptors = Kit::CountDescriptors();
  Kit::HeldCall start("clone");
  std::optional<Running> running(std::in_place, Program(20'000));
  ASSERT_TRUE(start.Holds());
  running.reset();
  start.LetGo();
  ExpectNobodyStays(descriptors);
}

TEST_F(HeldStartTest, IsAnsweredInTimeAndKeepsItsPlaceUntilItIsOver) {
  Run();
  const std::size_t descriptors = Kit::CountDescriptors();
  programs_.MaxPrograms(1);
  Kit::HeldCall start("clone");
  Running running(Program(50));
  ASSERT_TRUE(start.Holds());
  ASSERT_TRUE(Kit::TurnUntil(loop_, [&] { return running.IsDone(); }));
  const ProgramResult result = running.Take();
  EXPECT_EQ(result.failure, Failure::kNone);
  EXPECT_FALSE(result.ended);
  EXPECT_GE(result.milliseconds, 50);
  EXPECT_EQ(Kit::Await(loop_, Program(20)).error, EAGAIN);
  start.LetGo();
  ExpectNobodyStays(descriptors);
}

TEST_F(HeldStartTest, MayOutliveTheObjectAndTheNextOneCollectsItsChild) {
  Run();
  const std::size_t descriptors = Kit::CountDescriptors();
  Kit::HeldCall start("clone");
  {
    ChildPrograms programs(loop_, workers_);
    const Running running(Kit::Run(programs, {.file = program_, .waitMilliseconds = 20'000, .outputLimit = 1024}));
    ASSERT_TRUE(start.Holds());
  }
  EXPECT_EQ(TaskPromise::living, 0);
  start.LetGo();
  EXPECT_TRUE(Kit::TurnUntil(loop_, [&] {
    ChildPrograms collecting(loop_, workers_);
    return Kit::CountDescriptors() == descriptors && Kit::HasNoChild();
  }));
  ExpectNobodyStays(descriptors);
}

TEST_F(HeldStartTest, MayOutliveTheLoop) {
  Run();
  const std::size_t descriptors = Kit::CountDescriptors();
  Kit::HeldCall start("clone");
  std::thread opener;
  {
    EventLoop loop;
    Workers workers(loop);
    ChildPrograms programs(loop, workers);
    const Running running(Kit::Run(programs, {.file = program_, .waitMilliseconds = 20'000, .outputLimit = 1024}));
    ASSERT_TRUE(start.Holds());
    opener = std::thread([&] { start.LetGo(); });
  }
  opener.join();
  EXPECT_TRUE(Kit::Eventually([&] {
    ChildPrograms collecting(loop_, workers_);
    return Kit::CountDescriptors() == descriptors && Kit::HasNoChild();
  }));
}

TEST_F(HeldStartTest, DoesNotHoldTheLoop) {
  Kit::HeldCall start("clone");
  Running running(Program(20'000));
  ASSERT_TRUE(start.Holds());
  int ticks = 0;
  Timer timer(loop_);
  timer.Interval(1);
  timer.OnTick([&] { ++ticks; });
  timer.Enabled(true);
  EXPECT_TRUE(Kit::TurnUntil(loop_, [&] { return ticks == 3; }));
  EXPECT_FALSE(running.IsDone());
  start.LetGo();
  ASSERT_TRUE(Kit::TurnUntil(loop_, [&] { return running.IsDone(); }));
  ExpectWhole(running.Take());
}

// ---- Memory that runs out.

class ProgramMemoryTest : public testing::TestWithParam<std::int32_t> {
 protected:
  ProgramMemoryTest() {
    workers_.Count(GetParam());
    programs_.MaxPrograms(1);
  }
  Task<ProgramResult> Program() {
    return Kit::Run(programs_, {.file = program_, .waitMilliseconds = 20'000, .outputLimit = 1024});
  }
  // Runs the program with one request for memory that fails. Whether there were so many.
  bool RunWithout(int nth) {
    const Kit::FailNthMemory fault(nth);
    std::optional<Kit::Pending<ProgramResult>> running;
    try {
      running.emplace(Program());
    } catch (const std::bad_alloc&) {
      return true;
    }
    bool isDone = false;
    EXPECT_NO_THROW(isDone = Kit::TurnUntil(loop_, [&] { return running->IsDone(); })) << nth;
    EXPECT_TRUE(isDone) << nth;
    if (!isDone) return false;
    try {
      EXPECT_EQ(running->Take().output, "early late") << nth;
    } catch (const std::bad_alloc&) {
    }
    return fault.Happened();
  }

  Kit::TemporaryTree tree_;
  std::string program_ = Kit::WriteProgram(tree_, "program", "printf 'early '; printf late");
  EventLoop loop_;
  Workers workers_{loop_};
  ChildPrograms programs_{loop_, workers_};
};

TEST_P(ProgramMemoryTest, MayRunOutAnywhereAndNothingStays) {
  EXPECT_EQ(Kit::Await(loop_, Program()).output, "early late");
  const std::size_t descriptors = Kit::CountDescriptors();
  int nth = 1;
  for (; nth < 500 && RunWithout(nth); ++nth) {
    EXPECT_EQ(Kit::Await(loop_, Program()).output, "early late") << nth << ": the place is free";
    EXPECT_TRUE(Kit::TurnUntil(loop_, [] { return TaskPromise::living == 0; })) << nth;
    EXPECT_TRUE(Kit::TurnUntil(loop_, [this] { return programs_.LeftOver() == 0 && Kit::HasNoChild(); })) << nth;
    EXPECT_EQ(Kit::CountDescriptors(), descriptors) << nth;
  }
  EXPECT_GT(nth, 10);
  EXPECT_LT(nth, 500);
}

INSTANTIATE_TEST_SUITE_P(Threads, ProgramMemoryTest, testing::Values(0, Workers::kMaxThreads));

}  // namespace
}  // namespace TesselServer
