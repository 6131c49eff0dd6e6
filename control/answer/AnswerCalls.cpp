#include "control/answer/AnswerCalls.h"

#include <system_error>
#include <utility>

namespace TesselServer {

namespace {

Task<ProgramResult> Refused() {
  ProgramResult result;
  result.failure = ProgramResult::Failure::kStart;
  result.error = static_cast<std::int32_t>(std::errc::operation_canceled);
  co_return result;
}

}  // namespace

AnswerCalls::AnswerCalls(ControlState& state, std::int32_t Index, std::uint64_t generation, Slot& slot,
                         cls_HTTP& record)
    : state_(state), index_(Index), generation_(generation), slot_(slot), record_(record) {
  record_.Runner(this);
  record_.ParentControl(this);
}

AnswerCalls::~AnswerCalls() {
  record_.Runner(nullptr);
  record_.ParentControl(nullptr);
}

bool AnswerCalls::IsWanted() const { return !isTooLarge_ && state_.sckWS.Generation(index_) == generation_; }

Task<ProgramResult> AnswerCalls::Run(ProgramStart start) {
  return IsWanted() ? state_.programs.Run(std::move(start)) : Refused();
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

void AnswerCalls::ReportProgram(const std::string& text) { state_.reporter.RaiseStatusLine(text); }

}  // namespace TesselServer
