// Whatever system call fails while a program is run: the caller is told, no child and no descriptor stays, the next
// program runs.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "platform/loop/EventLoop.h"
#include "platform/programs/ChildPrograms.h"
#include "platform/tasks/Workers.h"
#include "tests/kit/Await.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FailNth.h"
#include "tests/kit/Programs.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Failure = ProgramResult::Failure;

struct Fault {
  const char* function;
  int error;
  Failure failure;  // what the caller is told; kNone: the run goes on
};

std::string NameOfFault(const testing::TestParamInfo<Fault>& each) {
  return std::string(each.param.function) + "_" + std::to_string(each.param.error);
}

class ProgramFaultsTest : public testing::TestWithParam<Fault> {
 protected:
  ProgramResult Run() {
    return Kit::Await(loop_, programs_.Run({.file = program_, .waitMilliseconds = 20'000, .outputLimit = 1024}));
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

TEST_P(ProgramFaultsTest, AreReportedOrOvercome) {
  const Fault& expected = GetParam();
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

INSTANTIATE_TEST_SUITE_P(Calls, ProgramFaultsTest,
                         testing::Values(Fault{"pipe2", EMFILE, Failure::kPipe}, Fault{"pipe2", ENFILE, Failure::kPipe},
                                         Fault{"open", ENOENT, Failure::kStart}, Fault{"open", ENFILE, Failure::kStart},
                                         Fault{"clone", EAGAIN, Failure::kStart},
                                         Fault{"clone", ENOMEM, Failure::kStart},
                                         Fault{"epoll_wait", EINTR, Failure::kNone},
                                         Fault{"epoll_ctl", ENOSPC, Failure::kNone},
                                         Fault{"read", EINTR, Failure::kNone}, Fault{"read", EAGAIN, Failure::kNone},
                                         Fault{"read", EIO, Failure::kRead}),
                         NameOfFault);

class RunningProgramFaultsTest : public ProgramFaultsTest {};

TEST_P(RunningProgramFaultsTest, LeaveItOver) {
  const Fault& expected = GetParam();
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

}  // namespace
}  // namespace TesselServer
