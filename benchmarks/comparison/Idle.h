// A program that does nothing but look at the clock, and so finds out for how long the machine takes a thread away:
// other programs on the same processor, the kernel's own work, a hypervisor.
//
// Thread:    any; it takes all of its processor's time.
// Ownership: none.
// Errors:    none.
#pragma once

#include <cstdint>

namespace Comparison {

// The longest time between two looks, in milliseconds.
struct IdleResult {
  double wallMilliseconds = 0;
  double cpuMilliseconds = 0;  // by the processor time of this thread, in which interrupts and a hypervisor count
};

IdleResult WatchTheClock(std::int64_t milliseconds);

}  // namespace Comparison
