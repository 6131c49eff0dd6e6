#include "platform/world/HostProcess.h"

#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <thread>
#include <utility>

#include "platform/tasks/WorkerThreads.h"
#include "platform/world/AllSignalsBlocked.h"
#include "platform/world/World.h"

namespace TesselServer {
namespace {

// Whether a write that failed just now may succeed once this returns.
bool WaitToWriteAgain(int descriptor) {
  if (errno == EINTR) return true;
  if (errno != EAGAIN) return false;
  pollfd watched{descriptor, POLLOUT, 0};
  return poll(&watched, 1, -1) > 0 || errno == EINTR;
}

}  // namespace

std::int64_t RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  return SystemWorld().DescriptorLimit();
}

std::size_t WriteWhole(StandardStream stream, std::string_view bytes) {
  const int descriptor = stream == StandardStream::Output ? STDOUT_FILENO : STDERR_FILENO;
  std::size_t written = 0;
  while (written < bytes.size()) {
    const auto count = write(descriptor, bytes.data() + written, bytes.size() - written);
    if (count > 0) written += static_cast<std::size_t>(count);
    if (count < 0 && !WaitToWriteAgain(descriptor)) break;
  }
  return written;
}

void RunDetached(std::function<void()> work) {
  const AllSignalsBlocked inTheNewThreadToo;
  std::thread(std::move(work)).detach();
}

void WaitForNoThread() { WorkerThreads::Shared()->WaitForNone(); }

}  // namespace TesselServer
