// Which answer a complete request gets: a forced error, the host's data, 404, 401, 403, a folder's page or a file.
//
// Thread:    the host's thread.
// Ownership: keeps references to the control's state and its sending part, which outlive every slot.
// Errors:    none; trapped, reported through LogEvent and answered with an error answer for 500.
#pragma once

#include <cstdint>
#include <string_view>

#include "control/answer/Answering.h"

namespace TesselServer {

class Dispatch final : public Answering {
 public:
  using Answering::Answering;

  // A request is complete: finds its target and answers it, or offers it to the host through FileRequest.
  void Begin(std::int32_t Index);

  // Whether the host may read the body of the slot's request, by the current settings: in FileRequest, or in
  // CallFunction for the page that is the answer. True where that cannot be determined within this turn.
  bool BodyIsRead(Slot& slot) const;

 private:
  void Prepare(Call& call) override;
  Step ForcedStep(Call& call, std::string_view statusCode) override;
  Step NextStep(Call& call) override;
  Step StepAfterFailure(Call& call) override;
  Task<void> WorkFor(Call& call, Step& step) override;
  void Deliver(Call& call, Decision& decision) override;

  void Proceed(std::int32_t Index, Slot& slot);
  Task<void> FindAndProceed(std::int32_t Index, Slot& slot);
  bool IsForHost(const Slot& slot) const;
  bool MayCallFunctions(const FoundEntry& target) const;
  void OfferToHost(std::int32_t Index, Slot& slot);

  Step ErrorStep(Call& call, std::string_view statusCode, bool logged) const;
  Step DirectoryStep(Call& call) const;
  Step FileStep(Call& call) const;
  Decision HostAnswer(Call& call) const;
  Decision Challenge(const Call& call, std::string_view field) const;

  // Each makes the next step of its `step`.
  Task<void> LookForTarget(Call& call, Step& step);
  Task<void> AskAdmission(Call& call, Step& step);
  Task<void> ErrorPage(Call& call, Step& step);
  Task<void> DirectoryAnswer(Call& call, Step& step);
  Task<void> PageAnswer(Call& call, Step& step);
};

}  // namespace TesselServer
