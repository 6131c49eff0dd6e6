// A moment on two clocks, in milliseconds: the one on the wall, and the processor time of the calling thread.
//
// Errors: none; both clocks are always there, clock_gettime(2).
#pragma once

#include <time.h>

namespace Comparison {

struct Moment {
  static double Milliseconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
  }

  double wall = Milliseconds(CLOCK_MONOTONIC);
  double cpu = Milliseconds(CLOCK_THREAD_CPUTIME_ID);
};

}  // namespace Comparison
