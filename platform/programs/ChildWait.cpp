#include "platform/programs/ChildWait.h"

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadBytes = 16 * 1024;

// What a pipe may hold when its writer has ended; a grandchild that writes on is not followed further.
constexpr std::size_t kMaxLastBytes = 1024 * 1024;

// The longest wait, ten years: no limit to a user, and far from the end of the clock's numbers.
constexpr std::int64_t kMaxWait = std::int64_t{10} * 365 * 24 * 3600 * 1000;

// One sleep: poll(2) counts in an int.
constexpr milliseconds kMaxSleep = std::chrono::hours(1);

// One sleep where the kernel gives no descriptor of the child, so that its end has to be asked for.
constexpr milliseconds kBlindSleep{20};

class Waiting {
 public:
  Waiting(pid_t child, int output, std::size_t outputLimit)
      : child_(child),
        handle_(static_cast<int>(syscall(SYS_pidfd_open, child, 0U))),
        output_(output),
        outputLimit_(outputLimit) {}

  ProgramResult Until(Clock::time_point deadline) {
    do {
      pollfd watched[] = {{output_, POLLIN, 0}, {handle_.Get(), POLLIN, 0}};
      if (poll(watched, 2, Sleep(deadline)) < 0 && errno != EINTR) {
        result_.error = errno;
        break;
      }
      if (watched[0].revents != 0) Read();
      result_.ended = result_.error == 0 && (handle_.IsOpen() ? watched[1].revents != 0 : IsGone());
    } while (!result_.ended && result_.error == 0 && Clock::now() < deadline);
    if (result_.ended) ReadTheRest();
    if (result_.ended) LookHowItEnded();
    if (result_.error != 0) result_.failure = ProgramResult::Failure::kRead;
    result_.milliseconds = std::chrono::duration_cast<milliseconds>(Clock::now() - begin_).count();
    return std::move(result_);
  }

 private:
  // How long the next sleep may last: rounded up, so that the last millisecond is slept through too.
  int Sleep(Clock::time_point deadline) const {
    const milliseconds left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::clamp(left, milliseconds{0}, handle_.IsOpen() ? kMaxSleep : kBlindSleep).count());
  }

  // A child that other code of the process has waited for is gone too.
  bool IsGone() const {
    siginfo_t state{};
    return waitid(P_PID, static_cast<id_t>(child_), &state, WEXITED | WNOHANG | WNOWAIT) != 0 || state.si_pid != 0;
  }

  // Reads once. Returns how many bytes came; the output is not read again after its end or a failure.
  std::size_t Read() {
    char bytes[kReadBytes];
    ssize_t count = 0;
    do {
      count = read(output_, bytes, sizeof bytes);
    } while (count < 0 && errno == EINTR);
    if (count < 0 && errno == EAGAIN) return 0;
    if (count < 0) result_.error = errno;
    if (count <= 0) {
      output_ = -1;
      return 0;
    }
    const auto size = static_cast<std::size_t>(count);
    const std::size_t kept = std::min(size, outputLimit_ - result_.output.size());
    result_.output.append(bytes, kept);
    result_.outputWasCut = result_.outputWasCut || kept < size;
    return size;
  }

  void ReadTheRest() {
    std::size_t total = 0;
    while (total < kMaxLastBytes && output_ >= 0 && !result_.outputWasCut) {
      const std::size_t size = Read();
      if (size == 0) return;
      total += size;
    }
  }

  // Leaves it to be collected.
  void LookHowItEnded() {
    siginfo_t state{};
    if (waitid(P_PID, static_cast<id_t>(child_), &state, WEXITED | WNOHANG | WNOWAIT) != 0 || state.si_pid == 0) return;
    (state.si_code == CLD_EXITED ? result_.exitCode : result_.signal) = state.si_status;
  }

  const Clock::time_point begin_ = Clock::now();
  pid_t child_;
  UniqueDescriptor handle_;  // readable when the child has ended; none where the kernel refuses it
  int output_;               // -1 when nothing more will come; poll(2) passes over it
  std::size_t outputLimit_;
  ProgramResult result_;
};

}  // namespace

ProgramResult WaitForChild(pid_t child, int output, std::int64_t milliseconds, std::size_t outputLimit) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(std::clamp<std::int64_t>(milliseconds, 0, kMaxWait));
  return Waiting(child, output, outputLimit).Until(deadline);
}

}  // namespace TesselServer
