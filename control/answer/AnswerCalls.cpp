#include "control/answer/AnswerCalls.h"

#include <system_error>
#include <utility>

#include "control/answer/RecordSetup.h"
#include "control/answer/SlotTarget.h"

namespace TesselServer {

AnswerCalls::AnswerCalls(ControlState& state, std::int32_t Index, std::uint64_t generation, Slot& slot,
                         cls_HTTP& record, FileGuard guard)
    : state_(state), index_(Index), generation_(generation), slot_(slot), record_(record), guard_(std::move(guard)) {
  record_.Runner(this);
  record_.ParentControl(this);
}

AnswerCalls::~AnswerCalls() {
  record_.Runner(nullptr);
  record_.ParentControl(nullptr);
}

bool AnswerCalls::IsWanted() const { return !isTooLarge_ && state_.sckWS.Generation(index_) == generation_; }

Task<void> AnswerCalls::Run(ProgramStart start, ProgramResult& result) {
  if (IsWanted()) return state_.programs.Run(std::move(start), result);
  result.failure = ProgramResult::Failure::kStart;
  result.error = static_cast<std::int32_t>(std::errc::operation_canceled);
  return {};
}

std::shared_ptr<const std::string> AnswerCalls::RaiseCallFunction(std::int32_t Index, const std::string& FunctionName,
                                                                  const std::string& Unused,
                                                                  const std::string& Params) {
  ParentControl* const control = Control();
  if (control == nullptr || !IsWanted()) return {};
  return control->RaiseCallFunction(Index, FunctionName, Unused, Params);
}

bool AnswerCalls::FunctionWasAnswered(std::int32_t Index) const {
  const ParentControl* const control = Control();
  return control != nullptr && IsWanted() && control->FunctionWasAnswered(Index);
}

bool AnswerCalls::PageMayTake(std::int64_t bytes) {
  if (IsWanted()) isTooLarge_ = !slot_.PageMemory.Grow(state_.pageMemory, bytes);
  return IsWanted();
}

Task<bool> AnswerCalls::MayInclude(const FoundEntry& found) {
  if (!IsWanted() || !guard_) co_return false;
  auto asking = guard_(found);
  co_return co_await asking;
}

RequestInfo AnswerCalls::Request() const {
  return IsWanted() ? RequestInfoOf(state_, slot_, index_, MappedFileOf(state_, slot_)) : RequestInfo();
}

void AnswerCalls::ReportProgram(const std::string& text) { state_.reporter.RaiseStatusLine(text); }

}  // namespace TesselServer
