// How long a lone client waits for the first byte of an answer, from its wish to connect.
//
// Thread:    any. It spins while it waits, so that its own waking is no part of the time.
// Ownership: closes what it opens.
// Errors:    as Load.
#pragma once

#include <cstdint>
#include <string>

#include "benchmarks/comparison/Load.h"

namespace Comparison {

struct LatencyResult {
  std::int64_t requests = 0;
  std::int64_t wrong = 0;
  std::string firstWrong;
  double medianMicroseconds = 0;
  double p99Microseconds = 0;
};

// Asks one request after the other, as `order` says; its atOnce does not count.
LatencyResult MeasureLatency(const LoadOrder& order);

}  // namespace Comparison
