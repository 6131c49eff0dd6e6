// The event loop that carries sockets and timers, on the thread of whoever runs it. Three ways to host it:
//
//   loop.Run();                      // a program of its own: until Stop()
//   while (busy) loop.RunOnce(20);   // a program with a loop of another kind: one turn, waiting at most 20 ms
//   watch(loop.Descriptor());        // a program with its own poll or epoll: whenever the descriptor is readable,
//                                    // call loop.RunOnce(0)
//
// Thread:    one thread runs the loop and uses everything that hangs on it. Only Stop may be called from another thread
//            or from a signal handler.
// Ownership: the loop outlives every timer and control made for it.
// Errors:    the constructor and the first Descriptor raise Error when there are no descriptors left; nothing else
//            raises. An exception that leaves a timer's handler is dropped.
#pragma once

#include <cstdint>
#include <memory>

namespace TesselServer {

class LoopCore;
class World;

class EventLoop {
 public:
  // How deep DoEvents may nest; a deeper call returns at once, so that re-entrant handlers use bounded stack.
  static constexpr int kMaxNesting = 4;
  // How many notifications one turn takes from the kernel, so that a turn ends in bounded time.
  static constexpr int kEventsPerTurn = 256;
  // When a turn has taken so long it delivers no more: the rest comes in the next, after the timers and whatever else
  // the host does between turns. One notification is never cut short, so a turn takes this and its last ones, and the
  // time in which the connections that it answered are closed.
  static constexpr std::int64_t kMicrosecondsPerTurn = 250;
  // How many timers one turn serves; the rest come in the next.
  static constexpr int kTimersPerTurn = 256;

  // A loop on the real clock.
  EventLoop();

  // A loop on the clock of `world`, for tests that let time pass.
  explicit EventLoop(World& world);

  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  ~EventLoop();

  // Runs turns until Stop is called; returns at once when it was called before. Inside a notification the loop runs
  // already, and this returns at once.
  void Run();

  // Runs one turn: waits up to `milliseconds` (negative: without limit) for something to happen, delivers it, and
  // serves the timers that are due. True when anything was delivered. Inside a notification it is DoEvents.
  bool RunOnce(std::int32_t milliseconds);

  // Ends Run after the present turn, and wakes a waiting RunOnce. May be called from any thread and from a signal
  // handler (it writes to an eventfd(2)).
  void Stop() noexcept;

  // Yields from inside a notification: one pass without waiting. Delivers what is already known first and asks the
  // kernel only when nothing is.
  void DoEvents();

  // As DoEvents, for a caller inside a notification that itself ends soon: nothing is delivered when the turn has taken
  // its time, and what waits for the end of the turn (the ends of connections that were answered) goes on waiting.
  void Yield();

  // Does at once what waits for the end of the turn: for a caller inside a notification that may take long. Nothing is
  // delivered.
  void Flush() noexcept;

  // Whether the present turn has taken its time (kMicrosecondsPerTurn): what can wait is then better left for the next.
  bool TurnIsLong() const;

  // A descriptor that is readable whenever RunOnce(0) has something to do, timers included. It belongs to the loop: do
  // not read it, do not close it.
  int Descriptor();

  // The world whose clock the loop goes by.
  World& TheWorld() const;

  // For the library's own parts.
  LoopCore& Core() const { return *core_; }

 private:
  std::unique_ptr<LoopCore> core_;
};

}  // namespace TesselServer
