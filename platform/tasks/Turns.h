// What a task needs of the host's loop so that it never keeps it: the end of the turn's time, the next turn, and
// threads for what waits.
//
//   for (...) {
//     Step();                                          // some microseconds
//     if (turns != nullptr && turns->TimeIsUp()) {
//       auto next = turns->Next();
//       co_await next;                                 // other clients and the host have their turn
//     }
//   }
//
// Where a function takes a `Turns*`, nullptr means that all is done in the call: it never has to wait.
//
// Thread:    the loop's thread.
// Ownership: the loop and the workers outlive it and what is waited for.
// Errors:    none but those of memory running out.
#pragma once

#include "platform/loop/LoopCore.h"
#include "platform/tasks/Task.h"
#include "platform/tasks/Workers.h"

namespace TesselServer {

class EventLoop;

// Waits for the loop's next turn.
class NextTurn final : public Wait<> {
 public:
  explicit NextTurn(EventLoop& loop) : loop_(loop) {}
  ~NextTurn();

 private:
  bool MustWait() override;
  void Take() override {}

  EventLoop& loop_;
  LoopCore::TaskPlace task_;  // that resumes it, while it is posted
  bool isPosted_ = false;
};

class Turns {
 public:
  Turns(EventLoop& loop, Workers& workers) : loop_(loop), workers_(workers) {}

  // To be called where a task is started: outside a turn, in a method that the host calls, the time of a turn runs from
  // here on; in a turn the task may go on a little longer than the turn (LoopCore::BeginWork).
  void Begin();

  // Whether the time for work in this turn is over (EventLoop::kMicrosecondsPerTurn).
  bool TimeIsUp() const;

  NextTurn Next() { return NextTurn(loop_); }

  Workers& Beside() { return workers_; }

 private:
  EventLoop& loop_;
  Workers& workers_;
};

}  // namespace TesselServer
