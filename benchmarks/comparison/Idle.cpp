#include "benchmarks/comparison/Idle.h"

#include <algorithm>

#include "benchmarks/comparison/Moment.h"

namespace Comparison {

IdleResult WatchTheClock(std::int64_t milliseconds) {
  IdleResult result;
  const Moment begin;
  for (Moment last; last.wall - begin.wall < static_cast<double>(milliseconds);) {
    const Moment now;
    result.wallMilliseconds = std::max(result.wallMilliseconds, now.wall - last.wall);
    result.cpuMilliseconds = std::max(result.cpuMilliseconds, now.cpu - last.cpu);
    last = now;
  }
  return result;
}

}  // namespace Comparison
