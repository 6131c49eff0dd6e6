// How an answer comes about, whatever the manner of speaking: step by step to the decision what it is, in one go where
// nothing has to be waited for, and then out of the door.
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
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "control/answer/AnswerCalls.h"
#include "control/answer/Authentication.h"
#include "control/answer/Sending.h"
#include "control/life/ControlState.h"
#include "platform/sockets/Answer.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class Answering {
 public:
  Answering(ControlState& state, Sending& sending) : state_(state), sending_(sending) {}
  Answering(const Answering&) = delete;
  Answering& operator=(const Answering&) = delete;
  virtual ~Answering() = default;

  // Decides on the answer and hands it over. With ForceStatus it is the error answer for StatusCode. A connection that
  // got no byte of an answer is closed.
  void SendWebPage(std::int32_t Index, std::string_view StatusCode, bool ForceStatus);

 protected:
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

  // One call of SendWebPage. Holds on to what an event inside it could take away.
  struct Call {
    std::int32_t index;
    std::shared_ptr<SlotTable> slots;
    Slot& slot;
    std::uint64_t generation;
    bool isForced;
    std::shared_ptr<cls_HTTP> record = nullptr;
    std::shared_ptr<const Admission> admission = nullptr;  // once it is known; null where nothing may guard the target
    bool isTargetTaken = false;                            // the path has lost its leading separator
    bool isReady = false;                                  // an error can be answered
    bool handedOver = false;  // the socket has taken an answer: there is never a second one

    bool IsGranted() const { return !admission || admission->granted; }
  };

  // ---- The manner's part.

  // Makes the call ready for the first step.
  virtual void Prepare(Call& call) = 0;
  // The steps: that of an error answer, the first and every further one, and the one after a failure.
  virtual Step ForcedStep(Call& call, std::string_view statusCode) = 0;
  virtual Step NextStep(Call& call) = 0;
  virtual Step StepAfterFailure(Call& call) = 0;
  // What has to be waited for before `step` is the next one; empty when it is the decision.
  virtual Task<void> WorkFor(Call& call, Step& step) = 0;
  // Whether the client may have what its page includes; empty where it may have every file. `call` outlives it.
  virtual AnswerCalls::FileGuard GuardOf(Call& /*call*/) { return {}; }
  // Sends and logs; takes the answer.
  virtual void Deliver(Call& call, Decision& decision) = 0;

  // ---- What every manner uses.

  // Runs a task of the slot until it waits for the first time; from then on the slot owns it.
  void Start(std::int32_t Index, Slot& slot, Task<void> task);
  bool IsOver(const Call& call) const;
  static Decision TooLarge();
  // Takes the memory for what the answer keeps of it until it has gone. False where there is none.
  bool TakesPageMemory(Call& call, const Decision& decision);

  ControlState& state_;
  Sending& sending_;

 private:
  void Take(Call& call, Step step);
  bool CanStillAnswer(const Call& call) const;
  Task<void> AnswerInTurns(Call call, Step step);
  void Finish(Call& call);
};

}  // namespace TesselServer
