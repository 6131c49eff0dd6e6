// What an answer that is being made asks of the control: programs to be run, the host's functions, and memory. An event
// raised meanwhile may close the connection, and the next client may be waiting on it already: from then on the answer
// gets nothing, so that no program blocks a place for nothing, and no function is asked for in another client's name.
//
// Thread:    the host's thread.
// Ownership: borrows the control's state, the slot and the record, which outlive it; the record uses it as long as it
// lives. Errors:    as ProgramRunner; kStart, ECANCELED when no client waits for the answer any more.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "control/life/ControlState.h"
#include "http/ParentControl.h"
#include "platform/programs/ProgramRunner.h"

namespace TesselServer {

class AnswerCalls final : public ProgramRunner, public ParentControl {
 public:
  // Whether the client may have a file that its page includes.
  using FileGuard = std::function<Task<bool>(const FoundEntry& found)>;

  // For the client that has connection `Index` in this `generation` of it. Without a guard it may have every file.
  AnswerCalls(ControlState& state, std::int32_t Index, std::uint64_t generation, Slot& slot, cls_HTTP& record,
              FileGuard guard = {});
  AnswerCalls(const AnswerCalls&) = delete;
  AnswerCalls& operator=(const AnswerCalls&) = delete;
  ~AnswerCalls() override;

  Task<void> Run(ProgramStart start, ProgramResult& result) override;
  std::shared_ptr<const std::string> RaiseCallFunction(std::int32_t Index, const std::string& FunctionName,
                                                       const std::string& Unused, const std::string& Params) override;
  bool FunctionWasAnswered(std::int32_t Index) const override;
  bool PageMayTake(std::int64_t bytes) override;
  bool GuardsFiles() const override { return guard_ != nullptr; }
  Task<bool> MayInclude(const FoundEntry& found) override;
  RequestInfo Request() const override;
  void ReportProgram(const std::string& text) override;

  // Whether there was no memory for the page: the client is told so in its place.
  bool IsTooLarge() const { return isTooLarge_; }

 private:
  bool IsWanted() const;
  ParentControl* Control() const { return state_.requestTemplate.ParentControl(); }

  ControlState& state_;
  std::int32_t index_;
  std::uint64_t generation_;
  Slot& slot_;
  cls_HTTP& record_;
  FileGuard guard_;
  bool isTooLarge_ = false;
};

}  // namespace TesselServer
