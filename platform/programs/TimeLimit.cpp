#include "platform/programs/TimeLimit.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/world/World.h"

namespace TesselServer {
namespace {

// One sleep of the timer, which counts in 32 bits.
constexpr std::int64_t kMaxTimerMilliseconds = 3600 * 1000;

}  // namespace

TimeLimit::TimeLimit(EventLoop& loop, std::int64_t milliseconds)
    : loop_(loop),
      begin_(Now()),
      end_(begin_ + std::clamp<std::int64_t>(milliseconds, 0, kMaxMilliseconds) * 1000),
      timer_(loop) {
  timer_.OnTick([this] { Tick(); });
}

bool TimeLimit::IsOver() const { return Now() >= end_; }

std::int64_t TimeLimit::Passed() const { return (Now() - begin_) / 1000; }

void TimeLimit::OnOver(std::function<void()> handler) {
  handler_ = std::move(handler);
  handler_ ? Arm() : timer_.Enabled(false);
}

std::int64_t TimeLimit::Now() const { return loop_.TheWorld().MonotonicMicroseconds(); }

// The timer counts in whole milliseconds of the clock: the end is rounded up, so that the last one passes too.
void TimeLimit::Arm() {
  const std::int64_t left = (end_ + 999) / 1000 - Now() / 1000;
  timer_.Interval(static_cast<std::int32_t>(std::clamp<std::int64_t>(left, 1, kMaxTimerMilliseconds)));
  timer_.Enabled(true);
}

void TimeLimit::Tick() {
  try {
    if (!IsOver()) return Arm();
  } catch (const std::bad_alloc&) {
    // rather too early than never
  }
  timer_.Enabled(false);
  const auto handler = std::exchange(handler_, nullptr);
  if (handler) handler();
}

}  // namespace TesselServer
