#include "control/answer/Answering.h"

#include <utility>

#include "control/answer/AnswerCalls.h"
#include "control/answer/RecordSetup.h"

namespace TesselServer {

namespace {

// The bytes of an answer's text that is in memory for this answer alone.
std::int64_t OwnTextBytes(const Answer& answer) {
  if (const auto* text = std::get_if<std::string>(&answer.body)) return static_cast<std::int64_t>(text->size());
  const auto* shared = std::get_if<Answer::SharedBytes>(&answer.body);
  return shared != nullptr && shared->use_count() == 1 ? answer.BodySize() : 0;
}

}  // namespace

void Answering::SendWebPage(std::int32_t Index, std::string_view StatusCode, bool ForceStatus) {
  const auto slots = state_.slots;
  Slot* slot = slots ? slots->At(Index) : nullptr;
  if (slot == nullptr) return;
  state_.statistics.RequestCount += 1;
  Call call{Index, slots, *slot, state_.sckWS.Generation(Index), ForceStatus};
  slot->Enter(RequestPhase::kAnswering);
  const bool isOnItsWay = state_.reporter.Trap(ErrorPrefix::kSendWebPage, [&] {
    Prepare(call);
    call.isReady = true;
    Take(call, ForceStatus ? ForcedStep(call, StatusCode) : NextStep(call));
  });
  if (isOnItsWay) return;
  if (CanStillAnswer(call)) {
    if (state_.reporter.Trap(ErrorPrefix::kSendWebPage, [&] { Take(call, StepAfterFailure(call)); })) return;
  }
  Finish(call);
}

// Delivers what is decided, or starts what has to come before.
void Answering::Take(Call& call, Step step) {
  if (auto* decision = std::get_if<Decision>(&step)) {
    Deliver(call, *decision);
    Finish(call);
    return;
  }
  if (!call.record) call.record = RecordOf(state_, call.slot, call.index);
  Start(call.index, call.slot, AnswerInTurns(call, std::move(step)));
}

void Answering::Start(std::int32_t Index, Slot& slot, Task<void> task) {
  const auto slots = state_.slots;  // the slot may be given up inside an event
  const std::uint64_t generation = state_.sckWS.Generation(Index);
  state_.turns.Begin();
  RunningTask running = RunningTask::Start(std::move(task));
  if (!running.IsDone() && state_.sckWS.Generation(Index) == generation) slot.Making = std::move(running);
}

bool Answering::IsOver(const Call& call) const { return state_.sckWS.Generation(call.index) != call.generation; }

bool Answering::CanStillAnswer(const Call& call) const { return !call.handedOver && call.isReady && !IsOver(call); }

Task<void> Answering::AnswerInTurns(Call call, Step step) {
  const AnswerCalls calls(state_, call.index, call.generation, call.slot, *call.record, GuardOf(call));
  bool hasFailed = false;
  for (;;) {
    try {
      if (hasFailed) step = StepAfterFailure(call);
      for (Task<void> work = WorkFor(call, step); work; work = WorkFor(call, step)) co_await work;
      if (calls.IsTooLarge()) step = TooLarge();
      Deliver(call, std::get<Decision>(step));
      break;
    } catch (...) {
      state_.reporter.ReportCurrent(ErrorPrefix::kSendWebPage);
    }
    if (std::exchange(hasFailed, true) || !CanStillAnswer(call)) break;
  }
  Finish(call);
}

Answering::Decision Answering::TooLarge() {
  Decision decision;
  decision.isTooLarge = true;
  return decision;
}

bool Answering::TakesPageMemory(Call& call, const Decision& decision) {
  const std::int64_t pageBytes = decision.isHostsData ? 0 : OwnTextBytes(decision.answer);
  if (!decision.isTooLarge && call.slot.PageMemory.Resize(state_.pageMemory, pageBytes)) return true;
  call.slot.PageMemory.Release();  // for those that are still being made
  return false;
}

void Answering::Finish(Call& call) {
  if (IsOver(call)) return;  // closed meanwhile, by an event or a failure
  call.slot.Enter(RequestPhase::kSending);
  call.slot.LetGoOfTarget();
  call.slot.LetGoOfBody();  // not kept for as long as the answer takes to go out
  call.slot.FunctionResult.reset();
  if (call.record) call.record->EndRequest();
  if (!call.handedOver) sending_.CloseConnection(call.index);
}

}  // namespace TesselServer
