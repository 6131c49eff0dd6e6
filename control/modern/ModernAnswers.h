// Which answer a whole request gets in the second manner: a refusal, the host's data, a redirection, a folder's page, a
// file or a part of it, a page.
//
// Thread:    the host's thread.
// Ownership: as Answering.
// Errors:    as Answering.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "control/answer/Answering.h"
#include "control/modern/ModernAdmission.h"
#include "control/modern/ModernInput.h"
#include "http/modern/ResponseHead.h"

namespace TesselServer {

class ModernAnswers final : public Answering {
 public:
  using Answering::Answering;

  // A request is whole: finds its target and answers it, or offers it to the host through FileRequest.
  void Begin(std::int32_t Index, Slot& slot);

  // Whether the host may read the body of the slot's request, by the current settings. True where that cannot be
  // determined within this turn.
  bool BodyIsRead(Slot& slot) const;

  // The status of the refusal that a request will get whatever its body is, as far as that is known at once; 0 for
  // none.
  int RefusalAtOnce(Slot& slot) const;

  ModernAdmission& Passwords() { return admission_; }
  const ModernAdmission& Passwords() const { return admission_; }

 private:
  void Prepare(Call&) override {}
  Step ForcedStep(Call& call, std::string_view statusCode) override;
  Step NextStep(Call& call) override;
  Step StepAfterFailure(Call& call) override;
  Task<void> WorkFor(Call& call, Step& step) override;
  AnswerCalls::FileGuard GuardOf(Call& call) override;
  void Deliver(Call& call, Decision& decision) override;

  void Proceed(std::int32_t Index, Slot& slot);
  Task<void> FindAndProceed(std::int32_t Index, Slot& slot);
  void OfferToHost(std::int32_t Index, Slot& slot);
  bool IsForHost(const Slot& slot) const;
  bool IsProcessed(const FoundEntry& target) const;
  bool IsProgram(const FoundEntry& target) const;
  int RefusalOfTarget(const Slot& slot) const;

  Step ErrorStep(Call& call, int status) const;
  Step GuardedStep(Call& call);
  Step TargetStep(Call& call);
  Step DirectoryStep(Call& call);
  Step FileStep(Call& call);
  Step PlainFile(Call& call);
  std::string_view AllowedFor(const FoundEntry& target) const;
  Step NotAllowed(Call& call, std::string_view allow) const;
  Step Options(Call& call, std::string_view allow) const;
  Step Redirect(Call& call) const;
  Step Unauthorized(Call& call, std::string_view realm) const;
  Step HostAnswer(Call& call) const;

  Modern::ResponseHead HeadFor(const Call& call, int status) const;
  Decision Made(const Call& call, Modern::ResponseHead head, Answer answer) const;
  Decision ErrorPageWith(const Call& call, int status, Answer page) const;
  // "" for an unknown one; the view may look into `kept`.
  std::string_view TypeOf(const FoundEntry& target, std::string& kept) const;
  void Log(const Call& call, std::string_view address, int status, std::int64_t bytes);
  const std::string& Stamp();

  GuardedPlace PlaceOf(const Slot& slot) const;
  Task<void> LookForTarget(Call& call, Step& step);
  Task<void> AskAdmission(Call& call, Step& step);
  Task<bool> MayInclude(Call& call, const FoundEntry& found);
  Task<void> ErrorPage(Call& call, Step& step);
  Task<void> PageAnswer(Call& call, Step& step);
  Task<void> ListingAnswer(Call& call, Step& step);

  ModernAdmission admission_{state_};
  std::string stamp_;  // of log lines, of this second and zone:
  std::int64_t stampSecond_ = 0;
  std::int32_t stampBias_ = 0;
};

}  // namespace TesselServer
