// Which answer a complete request gets: a forced error, the host's data, 404, 401, 403, a folder's page or a file.
//
// The usual answer is made in one go. One that needs something that is not there yet (a folder's names, a password
// file, a program, a name, the rest of a long page) is a task of its slot, and other clients are served meanwhile: see
// Task.h. Closing the slot's connection destroys the task.
//
// Thread:    the host's thread.
// Ownership: keeps references to the control's state and its sending part, which outlive every slot.
// Errors:    none; trapped, reported through LogEvent and answered with an error answer for 500.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "control/answer/Authentication.h"
#include "control/answer/Sending.h"
#include "control/life/ControlState.h"
#include "platform/sockets/Answer.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class Dispatch {
 public:
  Dispatch(ControlState& state, Sending& sending) : state_(state), sending_(sending) {}

  // A request is complete: finds its target and answers it, or offers it to the host through FileRequest.
  void Begin(std::int32_t Index);

  // Whether the host may read the body of the slot's request, by the current settings: in FileRequest, or in
  // CallFunction for the page that is the answer. True where that cannot be determined within this turn.
  bool BodyIsRead(Slot& slot) const;

  // Decides on the answer and hands it over. With ForceStatus it is the error answer for StatusCode. A connection that
  // got no byte of an answer is closed.
  void SendWebPage(std::int32_t Index, std::string_view StatusCode, bool ForceStatus);

 private:
  // An answer, and what its log line needs.
  struct Decision {
    Answer answer;
    std::string status;
    bool logged = false;
    bool isHostsData = false;  // it takes nothing of the memory for pages
    bool isTooLarge = false;   // there is no memory for it: the client gets "server too busy"
  };
  // What has to be there before the answer can be decided on, or made.
  struct ErrorPageFor {
    std::string status;
    bool logged;
  };
  enum class Need { kTarget, kAdmission, kListing, kPage };
  using Step = std::variant<Decision, Need, ErrorPageFor>;
  struct Call;

  void Proceed(std::int32_t Index, Slot& slot);
  Task<void> FindAndProceed(std::int32_t Index, Slot& slot);
  bool IsForHost(const Slot& slot) const;
  bool MayCallFunctions(const FoundEntry& target) const;
  void OfferToHost(std::int32_t Index, Slot& slot);

  void Take(Call& call, Step step);
  void Start(std::int32_t Index, Slot& slot, Task<void> task);
  bool IsOver(const Call& call) const;
  bool CanStillAnswer(const Call& call) const;
  Task<void> AnswerInTurns(Call call, Step step);
  Task<void> WorkFor(Call& call, Step& step);

  Step ForcedStep(Call& call, std::string_view statusCode) const;
  Step NextStep(Call& call);
  Step ErrorStep(Call& call, std::string_view statusCode, bool logged) const;
  Step StepAfterFailure(Call& call) const;
  Step DirectoryStep(Call& call) const;
  Step FileStep(Call& call) const;
  Decision HostAnswer(Call& call) const;
  Decision Challenge(const Call& call, std::string_view field) const;

  static Decision TooLarge();
  // Each makes the next step of its `step`.
  Task<void> LookForTarget(Call& call, Step& step);
  Task<void> AskAdmission(Call& call, Step& step);
  Task<void> ErrorPage(Call& call, Step& step);
  Task<void> DirectoryAnswer(Call& call, Step& step);
  Task<void> PageAnswer(Call& call, Step& step);

  void Deliver(Call& call, Decision& decision);
  void Finish(Call& call);

  ControlState& state_;
  Sending& sending_;
};

}  // namespace TesselServer
