// What tests of the loop on the real clock share.
#pragma once

#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <utility>

#include "platform/loop/Timer.h"

namespace TesselServer::Kit {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

inline milliseconds Since(Clock::time_point start) {
  return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

// Far longer than anything here takes, far shorter than a test that hangs.
constexpr milliseconds kTooLong{20000};

// Lets real time pass.
inline void PassTime(milliseconds time) {
  for (const auto start = Clock::now(); Clock::now() - start <= time;) sched_yield();
}

// Returns when a thread of this process waits in the kernel, at the latest after kTooLong.
inline void UntilItWaits(pid_t thread) {
  const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
  for (const auto start = Clock::now(); Since(start) < kTooLong; sched_yield()) {
    std::string line;
    std::getline(std::ifstream(path), line);
    const std::size_t name = line.rfind(')');
    if (name != std::string::npos && line.compare(name, 3, ") S") == 0) return;
  }
}

inline void Every(Timer& timer, std::int32_t interval, std::function<void()> tick) {
  timer.OnTick(std::move(tick));
  timer.Interval(interval);
  timer.Enabled(true);
}

}  // namespace TesselServer::Kit
