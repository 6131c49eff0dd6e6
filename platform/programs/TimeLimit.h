// How long something may take, by the loop's clock, from the making of this object on.
//
// Thread:    the loop's thread.
// Ownership: the loop outlives it. The handler may destroy it.
// Errors:    none but those of memory running out.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/loop/Timer.h"

namespace TesselServer {

class EventLoop;

class TimeLimit {
 public:
  // Ten years: no limit to a user, and far from the end of the clock's numbers.
  static constexpr std::int64_t kMaxMilliseconds = std::int64_t{10} * 365 * 24 * 3600 * 1000;

  // A number outside 0 to kMaxMilliseconds is moved to its nearer end.
  TimeLimit(EventLoop& loop, std::int64_t milliseconds);
  TimeLimit(const TimeLimit&) = delete;
  TimeLimit& operator=(const TimeLimit&) = delete;

  // Whether there never was any time.
  bool IsZero() const { return begin_ == end_; }
  bool IsOver() const;

  // When it is over: World::MonotonicMicroseconds.
  std::int64_t End() const { return end_; }

  // Whole milliseconds since it was made.
  std::int64_t Passed() const;

  // Has `handler` called once, by a timer in a later turn, when the time is over; nullptr has none called any more,
  // which takes no memory.
  void OnOver(std::function<void()> handler);

 private:
  std::int64_t Now() const;
  void Arm();
  void Tick();

  EventLoop& loop_;
  std::int64_t begin_;  // microseconds
  std::int64_t end_;
  std::function<void()> handler_;
  Timer timer_;
};

}  // namespace TesselServer
