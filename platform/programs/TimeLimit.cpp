#include "platform/programs/TimeLimit.h"

#include <algorithm>
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

// Rounded up, so that the last millisecond passes too.
void TimeLimit::Arm() {
  const std::int64_t left = (end_ - Now() + 999) / 1000;
  timer_.Interval(static_cast<std::int32_t>(std::clamp<std::int64_t>(left, 1, kMaxTimerMilliseconds)));
  timer_.Enabled(true);
}

void TimeLimit::Tick() {
  if (!IsOver()) return Arm();
  timer_.Enabled(false);
  const auto handler = std::exchange(handler_, nullptr);
  if (handler) handler();
}

}  // namespace TesselServer
