#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <future>
#include <memory>
#include <string>

#include "platform/world/HostProcess.h"
#include "platform/world/World.h"
#include "tests/kit/Child.h"

namespace TesselServer {
namespace {

// In a child of its own: limits belong to the process.
TEST(HostProcessTest, RaisesTheSoftLimitToTheHardOne) {
  const int status = Kit::InChild([] {
    rlimit limit{64, 100};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
    if (SystemWorld().DescriptorLimit() != 64) return 2;
    if (RaiseDescriptorLimit() != 100) return 3;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur != 100 || limit.rlim_max != 100) return 4;
    return RaiseDescriptorLimit() == 100 ? 0 : 5;
  });
  EXPECT_EQ(status, 0);
}

// Runs `body` in a child whose standard output and standard error are one pipe with these flags; it is given the
// reading end.
int InChildWithPipe(int flags, const std::function<int(int)>& body) {
  return Kit::InChild([&] {
    int ends[2];
    if (pipe2(ends, flags) != 0 || dup2(ends[1], STDOUT_FILENO) < 0 || dup2(ends[1], STDERR_FILENO) < 0) return 100;
    close(ends[1]);
    return body(ends[0]);
  });
}

std::string ReadWhole(int descriptor, std::size_t bytes) {
  std::string text;
  char buffer[4096];
  while (text.size() < bytes) {
    const auto count = read(descriptor, buffer, sizeof buffer);
    if (count <= 0) break;
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

TEST(HostProcessTest, WritesToEitherStream) {
  EXPECT_EQ(InChildWithPipe(O_CLOEXEC,
                            [](int reading) {
                              if (WriteWhole(StandardStream::Output, "out") != 3) return 1;
                              if (WriteWhole(StandardStream::Error, "err") != 3) return 2;
                              if (WriteWhole(StandardStream::Error, "") != 0) return 3;
                              return ReadWhole(reading, 6) == "outerr" ? 0 : 4;
                            }),
            0);
}

TEST(HostProcessTest, WaitsForAReaderWhoseOutputDoesNotBlock) {
  EXPECT_EQ(InChildWithPipe(O_CLOEXEC | O_NONBLOCK,
                            [](int reading) {
                              const std::string much(1 << 20, 'x');  // more than a pipe holds
                              auto written = std::async(std::launch::async,
                                                        [&] { return WriteWhole(StandardStream::Output, much); });
                              fcntl(reading, F_SETFL, 0);  // of the reading end alone: the ends have flags of their own
                              if (ReadWhole(reading, much.size()) != much) return 1;
                              return written.get() == much.size() ? 0 : 2;
                            }),
            0);
}

TEST(HostProcessTest, AnOutputThatCannotBeWrittenTakesNothing) {
  EXPECT_EQ(InChildWithPipe(O_CLOEXEC,
                            [](int reading) {
                              std::signal(SIGPIPE, SIG_IGN);
                              close(reading);
                              if (WriteWhole(StandardStream::Output, "x") != 0) return 1;
                              close(STDOUT_FILENO);
                              return WriteWhole(StandardStream::Output, "x") == 0 ? 0 : 2;
                            }),
            0);
}

TEST(HostProcessTest, DetachedWorkSeesNoSignalAndTheStarterKeepsItsOwn) {
  EXPECT_EQ(Kit::InChild([] {
              const auto blocked = std::make_shared<std::promise<sigset_t>>();
              RunDetached([blocked] {
                sigset_t mask;
                pthread_sigmask(SIG_SETMASK, nullptr, &mask);
                blocked->set_value(mask);
              });
              const auto mask = blocked->get_future().get();
              for (const int number : {SIGINT, SIGTERM, SIGPIPE, SIGCHLD, SIGUSR1, SIGHUP}) {
                if (sigismember(&mask, number) != 1) return 1;
              }
              sigset_t own;
              pthread_sigmask(SIG_SETMASK, nullptr, &own);
              return sigismember(&own, SIGTERM) == 0 ? 0 : 2;
            }),
            0);
}

}  // namespace
}  // namespace TesselServer
