// The event loop that carries sockets and timers, on the thread of the program that runs it. Three ways to host it:
//
//   loop.Run();                      // a program of its own: until Stop()
//   while (busy) loop.RunOnce(20);   // a program with a loop of another kind: one turn, waiting at most 20 ms
//   watch(loop.Descriptor());        // a program with its own poll or epoll: whenever the descriptor is readable,
//                                    // call loop.RunOnce(0)
//
// Thread:    the one that runs the loop, also for everything made for it; debug builds assert it. A loop may be made
//            on one thread and handed to another before its first turn; once a control on it was started, it belongs to
//            the first thread that uses it until then. When Run has returned it belongs to the next thread that uses
//            it; a loop driven by RunOnce stays with its thread, which destroys what was made for it. Post and Stop may
//            be called from any thread, Stop also from a signal handler. A process may have several loops, each on its
//            own thread.
// Ownership: the loop outlives every timer, socket and control made for it; debug builds assert it of running timers
//            and of open sockets.
// Errors:    the constructor and the first Descriptor raise Error when there are no descriptors left. What a handler of
//            a timer or a plain socket, or a posted task, throws is reported by HandlerFailed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <TesselServer/Event.h>

namespace TesselServer {

class LoopCore;
class World;

class EventLoop {
 public:
  // How deep DoEvents may nest; a deeper call returns at once, so that re-entrant handlers use bounded stack.
  static constexpr int kMaxNesting = 4;
  // How many notifications one turn fetches from the kernel, so that a turn ends in bounded time.
  static constexpr int kEventsPerTurn = 256;
  // When a turn has taken so long it delivers no more: the rest comes in the next, after the timers and whatever else
  // the host does between turns. One event and one task are delivered in any case, and neither is cut short.
  static constexpr std::int64_t kMicrosecondsPerTurn = 250;
  // How many timers one turn serves, as far as its time goes but one in any case; the rest come in the next.
  static constexpr int kTimersPerTurn = 256;

  // A loop on the real clock.
  EventLoop();

  // A loop on the clock of `world`, for tests that let time pass.
  explicit EventLoop(World& world);

  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  ~EventLoop();

  // Event HandlerFailed(Text): a handler of a timer or a plain socket, or a posted task, has thrown; the text is
  // "Timer: ", "Socket: " or "Task: " and what the exception says. The loop goes on. What a handler of this event
  // throws is dropped.
  Event<std::string&> HandlerFailed{this};

  // Runs turns until Stop is called; returns at once when it was called before. Inside a notification the loop runs
  // already, and this returns at once.
  void Run();

  // Runs one turn: waits up to `milliseconds` (negative: without limit) for something to happen, delivers it, and
  // serves the timers that are due. True only when something was delivered. Inside a notification it is DoEvents.
  bool RunOnce(std::int32_t milliseconds);

  // Ends Run after the present turn, and wakes a waiting RunOnce. May be called from any thread and from a signal
  // handler (it writes to an eventfd(2)).
  void Stop() noexcept;

  // Has `task` run once on the loop's thread, in this turn or the next, in the order of posting. May be called from any
  // thread. A loop that is destroyed drops the tasks it has not run.
  void Post(std::function<void()> task);

  // Yields from inside a notification: delivers what is already known, or, when nothing is, what the kernel has,
  // without waiting. Timers wait for the turn's end.
  void DoEvents();

  // Whether the present turn has taken its time (kMicrosecondsPerTurn): what can wait is then better left for the next.
  bool TurnIsLong() const;

  // Drops `thing` when no handler of this loop is on the stack any more; at once when none is.
  void DeleteLater(std::shared_ptr<void> thing);

  // A descriptor that is readable exactly when RunOnce(0) would deliver something, timers included. Inside a
  // notification timers do not count, as far as RunOnce or DoEvents was called there; at the greatest depth nothing
  // does. It is readable after Stop as well. It belongs to the loop: do not read it, do not close it.
  int Descriptor();

  // The world whose clock the loop uses.
  World& TheWorld() const;

  // For the library's own parts.
  LoopCore& Core() const { return *core_; }

 private:
  std::unique_ptr<LoopCore> core_;
};

}  // namespace TesselServer
