// What tests of the loop on the real clock share.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <utility>

#include "platform/loop/Timer.h"

namespace TesselServer::Kit {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

inline milliseconds Since(Clock::time_point start) {
  return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

// Far longer than anything here takes, far shorter than a test that hangs.
constexpr milliseconds kTooLong{4000};

inline void Every(Timer& timer, std::int32_t interval, std::function<void()> tick) {
  timer.OnTick(std::move(tick));
  timer.Interval(interval);
  timer.Enabled(true);
}

}  // namespace TesselServer::Kit
