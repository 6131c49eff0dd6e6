#include "platform/programs/ProgramStarts.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/programs/ChildEnvironment.h"
#include "platform/programs/LeftOverChildren.h"
#include "platform/programs/StartChild.h"
#include "platform/programs/TimeLimit.h"

namespace TesselServer {
namespace {

using Failure = ProgramResult::Failure;

StartedProgram NotStarted(Failure failure, std::int32_t error) {
  StartedProgram none;
  none.failure = failure;
  none.error = error;
  return none;
}

// On any thread.
StartedProgram StartProgram(const ProgramStart& start, const std::vector<std::string>& environment) {
  StartedProgram program;
  program.child.MakeRoom();
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return NotStarted(Failure::kPipe, errno);
  program.output = UniqueDescriptor(ends[0]);
  const UniqueDescriptor writeEnd(ends[1]);
  const UniqueDescriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!nothing.IsOpen()) return NotStarted(Failure::kStart, errno);
  const StartedChild child = StartChild(start, environment, nothing.Get(), writeEnd.Get());
  if (child.number < 0) return NotStarted(Failure::kStart, child.error);
  program.child.Own(child.number);
  fcntl(program.output.Get(), F_SETFL, O_NONBLOCK);  // of this end only: the child's own is as programs expect it
  return program;
}

}  // namespace

StartedProgram ProgramStarts::Work::operator()() const {
  return *isWanted ? StartProgram(start, environment) : NotStarted(Failure::kStart, ECANCELED);
}

ProgramStarts::~ProgramStarts() {
  for (const UnderWay& each : underWay_) *each.isWanted = false;
}

// The task of one start, which outlives the one that waits for it.
Task<void> ProgramStarts::Carry(Entry own, ProgramStart start) {
  StartedProgram program;
  std::exception_ptr thrown;
  try {
    std::vector<std::string> environment = ChildEnvironment(environ, start.environment);
    auto started = workers_.Do(Workers::Kind::kPrograms, Work{std::move(start), std::move(environment), own->isWanted});
    program = co_await started;
  } catch (...) {
    thrown = std::current_exception();
  }
  Start* const waiter = own->waiter;
  if (waiter == nullptr) {
    leftOver_.Add(std::move(program.child), std::move(own->place), own->until);
    underWay_.erase(own);
    co_return;
  }
  waiter->started_ = std::move(program);
  waiter->thrown_ = thrown;
  waiter->isUnderWay_ = false;
  if (!waiter->isWaiting_) co_return;  // done in the call, which takes it off the list
  underWay_.erase(own);
  waiter->limit_.OnOver(nullptr);
  waiter->Resume();
}

ProgramStarts::Start::Start(ProgramStarts& starts, ProgramStart start, ProgramPlaces::Place place, TimeLimit& limit)
    : starts_(starts), start_(std::move(start)), place_(std::move(place)), limit_(limit) {}

ProgramStarts::Start::~Start() { GiveUp(); }

bool ProgramStarts::Start::MustWait() {
  starts_.underWay_.push_back({this, std::make_shared<std::atomic<bool>>(true), std::move(place_), limit_.End()});
  own_ = std::prev(starts_.underWay_.end());
  isUnderWay_ = true;
  try {
    own_->task = RunningTask::Start(starts_.Carry(own_, std::move(start_)));
  } catch (...) {
    isUnderWay_ = false;
    starts_.underWay_.erase(own_);
    throw;
  }
  if (!isUnderWay_) {
    starts_.underWay_.erase(own_);
    return false;
  }
  isWaiting_ = true;
  if (limit_.IsZero()) return true;
  limit_.OnOver([this] {
    GiveUp();
    Resume();
  });
  return true;
}

StartedProgram ProgramStarts::Start::Take() {
  if (thrown_) std::rethrow_exception(thrown_);
  return std::move(started_);
}

// Leaves the start, if it is under way, to itself.
void ProgramStarts::Start::GiveUp() {
  if (!std::exchange(isUnderWay_, false)) return;
  *own_->isWanted = false;
  own_->waiter = nullptr;
  limit_.OnOver(nullptr);
}

}  // namespace TesselServer
