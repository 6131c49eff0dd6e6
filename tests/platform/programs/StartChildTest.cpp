#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "platform/programs/ChildEnvironment.h"
#include "platform/programs/StartChild.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/Programs.h"
#include "tests/kit/SystemCallFilter.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using testing::Not;

class StartChildTest : public testing::Test {
 protected:
  // What the program prints, read to its end; "error N" when it did not start.
  static std::string OutputOf(const ProgramStart& start) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return "no pipe";
    const UniqueDescriptor readEnd(ends[0]);
    UniqueDescriptor writeEnd(ends[1]);
    const UniqueDescriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    const StartedChild child =
        StartChild(start, ChildEnvironment(environ, start.environment), nothing.Get(), writeEnd.Get());
    if (child.number < 0) return "error " + std::to_string(child.error);
    writeEnd = UniqueDescriptor(-1);
    std::string output;
    char bytes[4096];
    for (ssize_t count = 0; (count = read(readEnd.Get(), bytes, sizeof bytes)) > 0;) {
      output.append(bytes, static_cast<std::size_t>(count));
    }
    return waitpid(child.number, nullptr, 0) == child.number ? output : "not collected";
  }
  static std::string Error(int error) { return "error " + std::to_string(error); }

  Kit::TemporaryTree tree_;
};

// ---- The words.

TEST_F(StartChildTest, ArgumentsArriveAsTheyAre) {
  const ProgramStart start{.file = "/usr/bin/printf",
                           .arguments = {"<%s>", "a b", "", ";", "|", "$(id)", "`id`", "*", "\"", "'", "\\", "&&", "\n",
                                         "\xff", "-x", "cut\0off"s}};
  EXPECT_EQ(OutputOf(start), "<a b><><;><|><$(id)><`id`><*><\"><'><\\><&&><\n><\xff><-x><cut>");
}

TEST_F(StartChildTest, TheFirstWordIsTheFile) {
  EXPECT_EQ(OutputOf({.file = "/bin/cat", .arguments = {"/proc/self/cmdline"}}), "/bin/cat\0/proc/self/cmdline\0"s);
}

TEST_F(StartChildTest, TheEnvironmentIsInheritedAndAddedTo) {
  setenv("TESSEL_TEST_HOST", "host's", 1);
  setenv("TESSEL_TEST_BOTH", "host's", 1);
  const std::string output =
      OutputOf({.file = "/usr/bin/env",
                .environment = {{"TESSEL_TEST_BOTH", "added"}, {"TESSEL_TEST_NEW", "() { :; }; echo $(id)"}}});
  EXPECT_THAT(output, HasSubstr("TESSEL_TEST_HOST=host's\n"));
  EXPECT_THAT(output, HasSubstr("TESSEL_TEST_BOTH=added\n"));
  EXPECT_THAT(output, Not(HasSubstr("TESSEL_TEST_BOTH=host's\n")));
  EXPECT_THAT(output, HasSubstr("TESSEL_TEST_NEW=() { :; }; echo $(id)\n"));
  EXPECT_STREQ(getenv("TESSEL_TEST_BOTH"), "host's") << "this process keeps its own";
  EXPECT_EQ(getenv("TESSEL_TEST_NEW"), nullptr);
  unsetenv("TESSEL_TEST_HOST");
  unsetenv("TESSEL_TEST_BOTH");
}

TEST_F(StartChildTest, TheWorkingFolderIsThisProcessesOwn) {
  EXPECT_EQ(OutputOf({.file = "/bin/pwd", .arguments = {"-P"}}), std::filesystem::current_path().string() + "\n");
}

// ---- Failed starts.

TEST_F(StartChildTest, WhatTheKernelCannotExecuteIsAnErrorAndLeavesNoChild) {
  tree_.Write("plain", "#!/bin/sh\necho run\n");
  tree_.MakeFolder("folder");
  const auto executable = [this](const char* name, const char* bytes) {
    std::filesystem::permissions(tree_.Write(name, bytes), std::filesystem::perms(0755));
  };
  executable("no-interpreter", "#!/nonexistent/interpreter\n");
  executable("text", "echo run\n");
  executable("empty", "");
  ASSERT_EQ(mkfifo((tree_.Path() / "fifo").c_str(), 0755), 0);
  std::filesystem::create_symlink("loop", tree_.Path() / "loop");
  struct {
    std::string name;
    int error;
  } const cases[] = {
      {"plain", EACCES},
      {"folder", EACCES},
      {"missing", ENOENT},
      {"no-interpreter", ENOENT},
      {"text", ENOEXEC},
      {"empty", ENOEXEC},
      {"fifo", EACCES},
      {"loop", ELOOP},
      {"plain/x", ENOTDIR},
      {"text\0"s, ENOENT},
      {std::string(300, 'x'), ENAMETOOLONG},
  };
  const std::size_t descriptors = Kit::CountDescriptors();
  for (const auto& c : cases) {
    EXPECT_EQ(OutputOf({.file = tree_.Text() + "/" + c.name}), Error(c.error)) << c.name;
    EXPECT_TRUE(Kit::HasNoChild()) << c.name;
  }
  EXPECT_EQ(OutputOf({.file = ""}), Error(ENOENT));
  EXPECT_EQ(OutputOf({.file = "sh"}), Error(ENOENT)) << "nothing is searched for";
  EXPECT_EQ(OutputOf({.file = "/bin/echo", .environment = {{"BIG", std::string(4'000'000, 'x')}}}), Error(E2BIG));
  EXPECT_TRUE(Kit::HasNoChild());
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
}

// ---- The descriptors.

TEST_F(StartChildTest, InputAndErrorsAreNothing) {
  EXPECT_EQ(OutputOf({.file = "/usr/bin/readlink", .arguments = {"/proc/self/fd/0", "/proc/self/fd/2"}}),
            "/dev/null\n/dev/null\n");
  EXPECT_EQ(OutputOf({.file = Kit::WriteProgram(tree_, "both", "cat; echo lost >&2; echo kept")}), "kept\n");
}

TEST_F(StartChildTest, NoOtherDescriptorIsInherited) {
  const UniqueDescriptor near(fcntl(0, F_DUPFD, 3));
  const UniqueDescriptor far(fcntl(0, F_DUPFD, 500));
  ASSERT_TRUE(near.IsOpen() && far.IsOpen());
  EXPECT_EQ(OutputOf({.file = "/bin/ls", .arguments = {"/proc/self/fd"}}), "0\n1\n2\n3\n") << "3 is the folder listed";
  EXPECT_EQ(fcntl(near.Get(), F_GETFD), 0) << "this process keeps its own";
}

TEST_F(StartChildTest, NorWhereTheKernelCannotCloseThemAtOnce) {
  constexpr int kNoFilter = 100;
  for (const int error : {ENOSYS, EPERM}) {
    const int status = Kit::InChild([error] {
      if (!Kit::RefuseSystemCall(SYS_close_range, error)) return kNoFilter;
      for (int from = 3; from < 900; from += 3) {  // more than one reading of the list holds
        if (fcntl(0, F_DUPFD, from) < 0) return 1;
      }
      return OutputOf({.file = "/bin/ls", .arguments = {"/proc/self/fd"}}) == "0\n1\n2\n3\n" ? 0 : 2;
    });
    if (status == kNoFilter) GTEST_SKIP() << "this kernel takes no system call filter";
    EXPECT_EQ(status, 0) << error;
  }
}

TEST_F(StartChildTest, AHostMayHaveClosedItsStandardDescriptors) {
  for (unsigned closed = 0; closed < 8; ++closed) {
    const int status = Kit::InChild([closed] {
      for (int each = 0; each < 3; ++each) {
        if ((closed >> each & 1U) != 0) close(each);
      }
      const ProgramStart start{.file = "/usr/bin/readlink", .arguments = {"/proc/self/fd/0", "/proc/self/fd/2"}};
      return OutputOf(start) == "/dev/null\n/dev/null\n" ? 0 : 1;
    });
    EXPECT_EQ(status, 0) << closed;
  }
}

TEST_F(StartChildTest, ItsOutputBlocksAsProgramsExpect) {
  EXPECT_THAT(OutputOf({.file = "/bin/cat", .arguments = {"/proc/self/fdinfo/1"}}), HasSubstr("flags:\t01\n"));
}

// ---- The signals.

// The value of a line of /proc/.../status.
std::string Field(const std::string& status, const std::string& name) {
  const auto at = status.find("\n" + name + ":\t");
  return at == std::string::npos
             ? "none"
             : status.substr(at + name.size() + 3, status.find('\n', at + 1) - at - name.size() - 3);
}

TEST_F(StartChildTest, SignalsAreAtTheirDefaultsButThatOfABrokenPipe) {
  const int status = Kit::InChild([] {
    for (int signal = 1; signal < NSIG; ++signal)
      std::signal(
          signal, signal % 2 == 0 ? SIG_IGN : +[](int) {});
    std::signal(SIGCHLD, SIG_DFL);
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    const std::string found = OutputOf({.file = "/bin/cat", .arguments = {"/proc/self/status"}});
    if (Field(found, "SigIgn") != "0000000000001000") return 1;
    if (Field(found, "SigBlk") != "0000000000000000") return 2;
    if (Field(found, "SigCgt") != "0000000000000000") return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
}

// The child shares the host's memory until the program has taken over: what a handler did there would be done here.
TEST_F(StartChildTest, HandlersOfTheHostDoNotRunInTheChild) {
  static volatile pid_t host = -1;
  static volatile std::sig_atomic_t strangers = 0;
  const int status = Kit::InChild([] {
    setpgid(0, 0);  // the signals are for this group only
    host = getpid();
    std::signal(
        SIGUSR1, +[](int) { strangers = strangers + (getpid() == host ? 0 : 1); });
    std::atomic<bool> done = false;
    std::thread sender([&done] {
      while (!done) kill(0, SIGUSR1);
    });
    for (int i = 0; i < 300; ++i) OutputOf({.file = "/nonexistent"});
    done = true;
    sender.join();
    return strangers == 0 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(StartChildTest, ThisProcessKeepsItsSignals) {
  const int status = Kit::InChild([] {
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGUSR1, SIG_IGN);
    std::signal(
        SIGUSR2, +[](int) {});
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGHUP);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    const auto own = [] {
      std::string text;
      for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        text += std::to_string(reinterpret_cast<std::uintptr_t>(action.sa_handler)) + " ";
      }
      sigset_t now;
      pthread_sigmask(SIG_SETMASK, nullptr, &now);
      for (int signal = 1; signal < NSIG; ++signal) text += sigismember(&now, signal) == 1 ? 'b' : '-';
      return text;
    };
    const std::string before = own();
    OutputOf({.file = "/bin/true"});
    OutputOf({.file = "/nonexistent"});
    return own() == before ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace TesselServer
