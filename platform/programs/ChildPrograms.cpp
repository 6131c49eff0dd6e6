#include "platform/programs/ChildPrograms.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/programs/ChildWait.h"
#include "platform/programs/LeftOverChildren.h"
#include "platform/programs/ProgramPlaces.h"
#include "platform/programs/ProgramStarts.h"
#include "platform/programs/TimeLimit.h"

namespace TesselServer {

struct ChildPrograms::Inside {
  Inside(EventLoop& eventLoop, Workers& workers)
      : loop(eventLoop), places(eventLoop, kDefaultMaxPrograms), leftOver(eventLoop), starts(workers, leftOver) {}

  EventLoop& loop;
  ProgramPlaces places;
  LeftOverChildren leftOver;  // may hold places
  ProgramStarts starts;
};

// A child that is waited for; afterwards, and where the waiting is given up, it is collected or left over.
class ChildPrograms::WaitedFor {
 public:
  WaitedFor(OwnedChild child, ProgramPlaces::Place place, const TimeLimit& limit, LeftOverChildren& afterwards)
      : child_(std::move(child)), place_(std::move(place)), limit_(limit), afterwards_(afterwards) {}
  WaitedFor(const WaitedFor&) = delete;
  WaitedFor& operator=(const WaitedFor&) = delete;
  ~WaitedFor() { afterwards_.Add(std::move(child_), std::move(place_), limit_.End()); }

  pid_t Number() const { return child_.Number(); }

 private:
  OwnedChild child_;
  ProgramPlaces::Place place_;
  const TimeLimit& limit_;
  LeftOverChildren& afterwards_;
};

ChildPrograms::ChildPrograms(EventLoop& loop, Workers& workers) : inside_(std::make_shared<Inside>(loop, workers)) {}

ChildPrograms::~ChildPrograms() { inside_->places.Most(0); }

std::int32_t ChildPrograms::MaxPrograms() const { return inside_->places.Most(); }

void ChildPrograms::MaxPrograms(std::int32_t most) {
  inside_->places.Most(std::clamp<std::int32_t>(most, 1, kHighestMaxPrograms));
}

Task<void> ChildPrograms::Run(ProgramStart start, ProgramResult& result) {
  return RunInTurn(inside_, std::move(start), result);
}

// Many may wait for a place: what is needed only afterwards is in the frame of RunIn.
Task<void> ChildPrograms::RunInTurn(std::shared_ptr<Inside> inside, ProgramStart start, ProgramResult& result) {
  TimeLimit limit(inside->loop, start.waitMilliseconds);
  ProgramPlaces::Arrival arrival(inside->places, limit);
  ProgramPlaces::Place place = co_await arrival;
  inside->leftOver.Collect();
  if (!place || inside->leftOver.Count() >= kMaxLeftOver) {
    result.failure = ProgramResult::Failure::kStart;
    result.error = EAGAIN;
    co_return;
  }
  start.Complete();
  auto running = RunIn(*inside, std::move(start), std::move(place), limit, result);
  co_await running;
}

Task<void> ChildPrograms::RunIn(Inside& inside, ProgramStart start, std::shared_ptr<void> place, TimeLimit& limit,
                                ProgramResult& result) {
  const std::size_t outputLimit = start.outputLimit;
  ProgramStarts::Start starting(inside.starts, std::move(start), place, limit);
  StartedProgram program = co_await starting;
  result.failure = program.failure;
  result.error = program.error;
  if (program.failure != ProgramResult::Failure::kNone) co_return;
  if (program.child.Number() < 0) {
    result.milliseconds = limit.Passed();
    co_return;
  }

  const WaitedFor child(std::move(program.child), std::move(place), limit, inside.leftOver);
  ChildWait wait(inside.loop, child.Number(), program.output.Get(), outputLimit, limit);
  result = co_await wait;
}

std::size_t ChildPrograms::LeftOver() const { return inside_->leftOver.Count(); }

}  // namespace TesselServer
