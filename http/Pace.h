// When long work looks at the clock.
//
//   Pace pace(turns);
//   while (const std::size_t work = something.Step()) {
//     if (!pace.IsOver(work)) continue;
//     auto next = pace.Next();
//     co_await next;
//   }
//
// Work is counted in steps of some nanoseconds each, about what a byte takes that has to be looked at by itself, so
// that what is short never asks for the time.
//
// Thread:    the loop's thread.
// Ownership: the turns outlive it.
// Errors:    none.
#pragma once

#include <cstddef>

#include "platform/tasks/Turns.h"

namespace TesselServer {

class Pace {
 public:
  // How many steps are made before the clock is looked at again: 40 us where each byte has to be looked at by itself, a
  // fraction of one where a whole line of the cache is skipped at once.
  static constexpr std::size_t kSteps = 8192;

  // `turns` null: it is never over.
  explicit Pace(Turns* turns) : turns_(turns) {}

  // Counts so much work. Whether the time of this turn is over: wait for Next() then.
  bool IsOver(std::size_t steps) {
    done_ += steps;
    if (done_ < kSteps || turns_ == nullptr) return false;
    done_ = 0;
    return turns_->TimeIsUp();
  }

  NextTurn Next() { return turns_->Next(); }

 private:
  Turns* turns_;
  std::size_t done_ = 0;
};

}  // namespace TesselServer
