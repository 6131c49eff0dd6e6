// Starts programs on threads, so that the loop is not held while one has not taken over yet.
//
// A start whose task is destroyed, or whose time is over, is not made any more if no thread has begun with it. If one
// has, it is carried to its end, and the child is left over (class LeftOverChildren) from its beginning.
//
// Thread:    the loop's thread; the work itself any.
// Ownership: the workers and the left-over children outlive it; it outlives its Starts. A start under way when this is
//            destroyed leaves its child to the process (class OwnedChild).
// Errors:    in the result; none is raised but those of memory running out, which come out of the co_await.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "platform/programs/OwnedChild.h"
#include "platform/programs/ProgramPlaces.h"
#include "platform/programs/ProgramRunner.h"
#include "platform/tasks/Task.h"
#include "platform/tasks/Workers.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class LeftOverChildren;
class TimeLimit;

// What a start has given. Where there is neither a child nor a failure the time was over.
struct StartedProgram {
  OwnedChild child;
  UniqueDescriptor output{-1};  // the read end of the pipe that it writes to; does not block
  ProgramResult::Failure failure = ProgramResult::Failure::kNone;
  std::int32_t error = 0;  // the system's number for it
};

class ProgramStarts {
 public:
  class Start;

  ProgramStarts(Workers& workers, LeftOverChildren& leftOver) : workers_(workers), leftOver_(leftOver) {}
  ProgramStarts(const ProgramStarts&) = delete;
  ProgramStarts& operator=(const ProgramStarts&) = delete;
  ~ProgramStarts();

 private:
  struct UnderWay {
    Start* waiter;  // null when its task is gone
    std::shared_ptr<std::atomic<bool>> isWanted;
    ProgramPlaces::Place place;  // kept until it is over, so that starts that hang are bounded
    std::int64_t until;          // when the time of what it starts is over
    RunningTask task = {};
  };
  using Entry = std::list<UnderWay>::iterator;

  // The work of a thread.
  struct Work {
    ProgramStart start;
    std::vector<std::string> environment;
    std::shared_ptr<std::atomic<bool>> isWanted;
    StartedProgram operator()() const;
  };

  Task<void> Carry(Entry own, ProgramStart start);

  Workers& workers_;
  LeftOverChildren& leftOver_;
  std::list<UnderWay> underWay_;
};

// Waits for one start, no longer than `limit` says; where that is zero, for as long as it takes.
class ProgramStarts::Start final : public Wait<StartedProgram> {
 public:
  // `limit` outlives it.
  Start(ProgramStarts& starts, ProgramStart start, ProgramPlaces::Place place, TimeLimit& limit);
  ~Start();

 private:
  friend class ProgramStarts;

  bool MustWait() override;
  StartedProgram Take() override;
  void GiveUp();

  ProgramStarts& starts_;
  ProgramStart start_;
  ProgramPlaces::Place place_;
  TimeLimit& limit_;
  Entry own_;
  bool isUnderWay_ = false;
  bool isWaiting_ = false;
  StartedProgram started_;
  std::exception_ptr thrown_;
};

}  // namespace TesselServer
