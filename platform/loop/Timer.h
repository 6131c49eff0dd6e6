// A periodic timer on an event loop.
//
// Thread:    the loop's thread; debug builds assert it. It may be destroyed on any when the loop does not run.
// Ownership: keeps its handler; may be destroyed, disabled or changed inside its own tick. The loop outlives it.
// Errors:    none; an exception that leaves the handler is reported by EventLoop::HandlerFailed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace TesselServer {

class EventLoop;
struct TimerState;

//   Timer timer(loop);
//   timer.OnTick([&] { ++seconds; });
//   timer.Interval(1000);
//   timer.Enabled(true);
class Timer {
 public:
  explicit Timer(EventLoop& loop);
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;
  ~Timer();

  // Property Interval: milliseconds from one tick to the next, at least 1. Default: 10000. A change starts a running
  // timer anew.
  std::int32_t Interval() const;
  void Interval(std::int32_t milliseconds);

  // Property Enabled: whether it ticks. Default: False. Setting True on a running timer changes nothing. A loop that
  // was kept from running makes no ticks up: the next one comes an interval after the one that was late.
  bool Enabled() const;
  void Enabled(bool enabled);

  // What happens on each tick.
  void OnTick(std::function<void()> handler);

 private:
  std::shared_ptr<TimerState> state_;
};

}  // namespace TesselServer
