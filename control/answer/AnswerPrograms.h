// Runs programs for one answer while a client waits for it: an event raised while a page is made may stop the server,
// and a program started after that would block the host for nothing.
//
// Thread:    the host's thread.
// Ownership: borrows the control's programs and the slot, both for its own lifetime.
// Errors:    as ProgramRunner; kStart, ECANCELED when no client waits for the answer any more.
#pragma once

#include <cstdint>
#include <system_error>
#include <utility>

#include "control/connection/Slot.h"
#include "platform/programs/ProgramRunner.h"

namespace TesselServer {

class AnswerPrograms : public ProgramRunner {
 public:
  // Whether `slot` is still being answered is looked at before each program.
  AnswerPrograms(ProgramRunner& programs, const Slot& slot) : programs_(programs), slot_(slot) {}

  Task<ProgramResult> Run(ProgramStart start) override {
    if (slot_.Phase() == RequestPhase::kAnswering) return programs_.Run(std::move(start));
    return Refused();
  }

 private:
  static Task<ProgramResult> Refused() {
    ProgramResult result;
    result.failure = ProgramResult::Failure::kStart;
    result.error = static_cast<std::int32_t>(std::errc::operation_canceled);
    co_return result;
  }

  ProgramRunner& programs_;
  const Slot& slot_;
};

}  // namespace TesselServer
