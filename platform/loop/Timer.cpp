#include "platform/loop/Timer.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/loop/LoopCore.h"

namespace TesselServer {

Timer::Timer(EventLoop& loop) : state_(std::make_shared<TimerState>(loop.Core())) {}

Timer::~Timer() {
  if (state_->enabled) state_->loop.Disarm(*state_);
}

std::int32_t Timer::Interval() const { return state_->interval; }

void Timer::Interval(std::int32_t milliseconds) {
  assert(state_->loop.Thread().MayUse());
  milliseconds = std::max(milliseconds, 1);
  if (milliseconds == state_->interval) return;
  const bool running = state_->enabled;
  Enabled(false);
  state_->interval = milliseconds;
  Enabled(running);
}

bool Timer::Enabled() const { return state_->enabled; }

void Timer::Enabled(bool enabled) {
  assert(state_->loop.Thread().MayUse());
  if (enabled == state_->enabled) return;
  if (enabled) {
    state_->loop.Arm(state_);
  } else {
    state_->loop.Disarm(*state_);
  }
  state_->enabled = enabled;
}

void Timer::OnTick(std::function<void()> handler) {
  assert(state_->loop.Thread().MayUse());
  state_->handler = handler ? std::make_shared<const std::function<void()>>(std::move(handler)) : nullptr;
}

}  // namespace TesselServer
