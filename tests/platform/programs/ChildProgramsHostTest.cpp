// Programs beside a host that has its own ways with children, signals, descriptors and limits.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include "platform/loop/EventLoop.h"
#include "platform/programs/ChildPrograms.h"
#include "platform/tasks/Workers.h"
#include "tests/kit/Await.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/Limits.h"
#include "tests/kit/Programs.h"
#include "tests/kit/Signals.h"
#include "tests/kit/SkippingWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Failure = ProgramResult::Failure;

class ChildProgramsHostTest : public testing::Test {
 protected:
  ProgramResult Run(const std::string& file, std::int64_t waitMilliseconds = 20'000) {
    return Kit::Await(loop_,
                      Kit::Run(programs_, {.file = file, .waitMilliseconds = waitMilliseconds, .outputLimit = 1024}));
  }
  bool Works() {
    const ProgramResult result = Run(hello_);
    return result.failure == Failure::kNone && result.ended && result.output == "hello\n";
  }
  // A child that outlives its time, is let go, and is collected or forgotten.
  bool LeavesNobody() {
    if (Run(waiting_, 20).ended || programs_.LeftOver() != 1) return false;
    gate_.Open();
    return Kit::Eventually([this] {
      world_.Skip(1000);
      loop_.RunOnce(0);
      return programs_.LeftOver() == 0;
    });
  }

  Kit::TemporaryTree tree_;
  Kit::Gate gate_{tree_};
  Kit::SkippingWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  ChildPrograms programs_{loop_, workers_};
  std::string hello_ = Kit::WriteProgram(tree_, "hello", "echo hello");
  std::string waiting_ = Kit::WriteProgram(tree_, "waiting", "read go < $here/gate");
};

// ---- Signals and children.

TEST_F(ChildProgramsHostTest, AHandlerOfSigchldIsKeptAndCalled) {
  const Kit::SignalCounter ends(SIGCHLD);
  struct sigaction before {};
  sigaction(SIGCHLD, nullptr, &before);
  EXPECT_TRUE(Works());
  EXPECT_EQ(Run("/nonexistent").error, ENOENT);
  EXPECT_TRUE(LeavesNobody());
  EXPECT_EQ(ends.Count(), 3);
  struct sigaction after {};
  sigaction(SIGCHLD, nullptr, &after);
  EXPECT_EQ(after.sa_handler, before.sa_handler);
}

TEST_F(ChildProgramsHostTest, AHostMayIgnoreSigchld) {
  const int status = Kit::InChild([this] {
    std::signal(SIGCHLD, SIG_IGN);
    for (int i = 0; i < 20; ++i) {
      if (!Works()) return 1;
    }
    if (Run("/nonexistent").error != ENOENT) return 2;
    if (!LeavesNobody()) return 3;
    return programs_.LeftOver() == 0 && Kit::HasNoChild() ? 0 : 4;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(ChildProgramsHostTest, AHostMayWaitForEveryChildInAHandler) {
  const int status = Kit::InChild([this] {
    std::signal(
        SIGCHLD, +[](int) {
          const int kept = errno;
          while (waitpid(-1, nullptr, WNOHANG) > 0) {
          }
          errno = kept;
        });
    for (int i = 0; i < 20; ++i) {
      if (!Works()) return 1;
    }
    if (Run("/nonexistent").error != ENOENT) return 2;
    return LeavesNobody() ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(ChildProgramsHostTest, AHostMayWaitForEveryChildInAThread) {
  const int status = Kit::InChild([this] {
    const pid_t lasting = fork();  // so that the thread has somebody to wait for until the end
    if (lasting == 0) {
      pause();
      _exit(0);
    }
    std::thread reaper([lasting] {
      while (waitpid(-1, nullptr, 0) != lasting) {
      }
    });
    int wrong = 0;
    for (int i = 0; i < 20 && wrong == 0; ++i) wrong = Works() ? 0 : 1;
    if (wrong == 0 && Run("/nonexistent").error != ENOENT) wrong = 2;
    if (wrong == 0 && !LeavesNobody()) wrong = 3;
    kill(lasting, SIGKILL);
    reaper.join();
    return wrong;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(ChildProgramsHostTest, OtherChildrenStayTheHostsOwn) {
  const pid_t other = fork();
  if (other == 0) _exit(7);
  EXPECT_TRUE(Works());
  EXPECT_TRUE(LeavesNobody());
  int status = 0;
  EXPECT_EQ(waitpid(other, &status, 0), other);
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

// ---- Descriptors.

TEST_F(ChildProgramsHostTest, ALackOfDescriptorsIsReportedAndPasses) {
  EXPECT_TRUE(Works());
  EXPECT_EQ(Run("/nonexistent").failure, Failure::kStart);
  const std::size_t descriptors = Kit::CountDescriptors();
  struct {
    int left;
    Failure failure;
    int error;
    const char* why;
  } const cases[] = {
      {0, Failure::kPipe, EMFILE, "no pipe"},
      {1, Failure::kPipe, EMFILE, "half a pipe"},
      {2, Failure::kStart, EMFILE, "no standard input"},
      {3, Failure::kNone, 0, "the wait makes do without one"},
      {4, Failure::kNone, 0, "enough"},
  };
  for (const auto& c : cases) {
    ProgramResult result;
    {
      const Kit::DescriptorFamine famine(c.left);
      result = Kit::Await(
          loop_,
          Kit::Run(programs_,
                   {.file = "/bin/echo", .arguments = {"fed"}, .waitMilliseconds = 20'000, .outputLimit = 1024}));
    }
    EXPECT_EQ(result.failure, c.failure) << c.why;
    EXPECT_EQ(result.error, c.error) << c.why;
    EXPECT_EQ(result.ended, c.error == 0) << c.why;
    EXPECT_EQ(result.output, c.error == 0 ? "fed\n" : "") << c.why;
    EXPECT_EQ(Kit::CountDescriptors(), descriptors) << c.why;
    EXPECT_TRUE(Kit::HasNoChild()) << c.why;
  }
  EXPECT_TRUE(Works());
}

TEST_F(ChildProgramsHostTest, AHostMayHaveClosedItsStandardDescriptors) {
  for (unsigned closed = 0; closed < 8; ++closed) {
    const int status = Kit::InChild([this, closed] {
      for (int each = 0; each < 3; ++each) {
        if ((closed >> each & 1U) != 0) close(each);
      }
      const std::size_t before = Kit::CountDescriptors();
      const ProgramResult result =
          Kit::Await(loop_, Kit::Run(programs_, {.file = "/usr/bin/readlink",
                                                 .arguments = {"/proc/self/fd/0", "/proc/self/fd/2"},
                                                 .waitMilliseconds = 20'000,
                                                 .outputLimit = 1024}));
      if (result.output != "/dev/null\n/dev/null\n") return 1;
      return Kit::CountDescriptors() == before && Works() ? 0 : 2;
    });
    EXPECT_EQ(status, 0) << closed;
  }
}

// ---- Limits.

TEST_F(ChildProgramsHostTest, ALackOfProcessesIsReported) {
  const int status = Kit::InUnprivilegedChild([this] {
    const rlimit none{0, 0};
    if (setrlimit(RLIMIT_NPROC, &none) != 0) return 1;
    const std::size_t before = Kit::CountDescriptors();
    const ProgramResult result = Run("/bin/true");
    if (result.failure != Failure::kStart || result.error != EAGAIN) return 2;
    return Kit::CountDescriptors() == before && programs_.LeftOver() == 0 ? 0 : 3;
  });
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "there is no second user to be";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace TesselServer
