#include "platform/programs/ChildWait.h"

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/programs/TimeLimit.h"

namespace TesselServer {
namespace {

constexpr std::size_t kReadBytes = 16 * 1024;

}  // namespace

ChildWait::ChildWait(EventLoop& loop, pid_t child, int output, std::size_t outputLimit, TimeLimit& limit)
    : loop_(loop),
      child_(child),
      output_(output),
      outputLimit_(outputLimit),
      limit_(limit),
      outputWatch_(loop.Core(), *this, &ChildWait::OutputCame),
      handleWatch_(loop.Core(), *this, &ChildWait::ChildEnded) {}

ChildWait::~ChildWait() { StopWatching(); }

bool ChildWait::MustWait() {
  Look(IsGone());
  if (isOver_ || (limit_.IsOver() && !result_.ended)) return false;
  handle_ = UniqueDescriptor(static_cast<int>(syscall(SYS_pidfd_open, child_, 0U)));
  if (handle_.IsOpen()) handleWatch_.On(handle_.Get());
  if (output_ >= 0) outputWatch_.On(output_);
  if (IsBlind()) TickIn(kBlindMilliseconds);
  if (!result_.ended) limit_.OnOver([this] { Make(&ChildWait::TimeIsOver); });
  return true;
}

ProgramResult ChildWait::Take() {
  if (thrown_) std::rethrow_exception(thrown_);
  if (result_.ended) LookHowItEnded();
  if (result_.error != 0) result_.failure = ProgramResult::Failure::kRead;
  result_.milliseconds = limit_.Passed();
  return std::move(result_);
}

// ---- Steps. Each is made in a notification of the loop.

// The task, and this with it, may be gone afterwards.
void ChildWait::Make(Step step) {
  try {
    (this->*step)();
  } catch (...) {
    thrown_ = std::current_exception();
    isOver_ = true;
  }
  if (!isOver_) return;
  StopWatching();
  Resume();
}

void ChildWait::OutputCame() {
  Look(false);
  if (isOver_ || !result_.outputWasCut || !outputWatch_.IsOn()) return;
  outputWatch_.Rest(true);
  rests_ = true;
  TickIn(kRestMilliseconds);
}

void ChildWait::ChildEnded() { Look(true); }

void ChildWait::TimerTicked() {
  if (std::exchange(rests_, false)) outputWatch_.Rest(false);
  if (!IsBlind()) return timer_->Enabled(false);
  TickIn(kBlindMilliseconds);
  Look(handleWatch_.IsOn() ? false : IsGone());
}

// A child that has ended in time is read to its end.
void ChildWait::TimeIsOver() { isOver_ = !result_.ended; }

// ---- What there is to be seen.

// Reads what is there, and more of it when the child has ended: all that it has written is there then.
void ChildWait::Look(bool hasEnded) {
  bool isAll = ReadAll();
  if (hasEnded && !result_.ended && result_.error == 0) {
    result_.ended = true;
    isAll = result_.outputWasCut || ReadAll();
  }
  isOver_ = result_.error != 0 || (result_.ended && (isAll || result_.outputWasCut || lastBytes_ >= kMaxLastBytes));
}

// Reads up to kMaxBytesPerStep. Whether that was all there is.
bool ChildWait::ReadAll() {
  for (std::size_t total = 0; total < kMaxBytesPerStep;) {
    const std::size_t size = Read();
    if (size == 0) return true;
    total += size;
    if (result_.ended) lastBytes_ += size;
  }
  return false;
}

// Reads once. Returns how many bytes came; the output is not read again after its end or a failure.
std::size_t ChildWait::Read() {
  if (output_ < 0) return 0;
  char bytes[kReadBytes];
  ssize_t count = 0;
  do {
    count = read(output_, bytes, sizeof bytes);
  } while (count < 0 && errno == EINTR);
  if (count < 0 && errno == EAGAIN) return 0;
  if (count < 0) result_.error = errno;
  if (count <= 0) {
    outputWatch_.Off();
    output_ = -1;
    return 0;
  }
  const auto size = static_cast<std::size_t>(count);
  const std::size_t kept = std::min(size, outputLimit_ - result_.output.size());
  result_.output.append(bytes, kept);
  result_.outputWasCut = result_.outputWasCut || kept < size;
  return size;
}

// A child that other code of the process has waited for is gone too.
bool ChildWait::IsGone() const {
  siginfo_t state{};
  return waitid(P_PID, static_cast<id_t>(child_), &state, WEXITED | WNOHANG | WNOWAIT) != 0 || state.si_pid != 0;
}

// Leaves it to be collected.
void ChildWait::LookHowItEnded() {
  siginfo_t state{};
  if (waitid(P_PID, static_cast<id_t>(child_), &state, WEXITED | WNOHANG | WNOWAIT) != 0 || state.si_pid == 0) return;
  (state.si_code == CLD_EXITED ? result_.exitCode : result_.signal) = state.si_status;
}

// ---- Watches.

// Whether something may happen that the loop does not report.
bool ChildWait::IsBlind() const { return !handleWatch_.IsOn() || (output_ >= 0 && !outputWatch_.IsOn()); }

void ChildWait::TickIn(std::int32_t milliseconds) {
  if (!timer_) {
    timer_.emplace(loop_);
    timer_->OnTick([this] { Make(&ChildWait::TimerTicked); });
  }
  timer_->Interval(milliseconds);
  timer_->Enabled(true);
}

void ChildWait::StopWatching() noexcept {
  outputWatch_.Off();
  handleWatch_.Off();
  timer_.reset();
  limit_.OnOver(nullptr);
}

}  // namespace TesselServer
