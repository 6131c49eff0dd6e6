// Which answer a complete request gets: a forced error, the host's data, 404, 401, 403, a folder's page or a file.
//
// Thread:    the host's thread.
// Ownership: keeps references to the control's state and its sending part.
// Errors:    none; trapped, reported through LogEvent and answered with an error answer for 500.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "control/answer/Authentication.h"
#include "control/answer/Sending.h"
#include "control/life/ControlState.h"
#include "platform/sockets/Answer.h"

namespace TesselServer {

class Dispatch {
 public:
  Dispatch(ControlState& state, Sending& sending) : state_(state), sending_(sending) {}

  // A request is complete: finds its target and answers it, or offers it to the host through FileRequest.
  void Begin(std::int32_t Index);

  // Whether the host may read the body of the slot's request, by the current settings: in FileRequest, or in
  // CallFunction for the page that is the answer. True where that cannot be determined.
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
  };
  struct Call;

  bool IsForHost(const Slot& slot) const;
  bool MayCallFunctions(const FoundEntry& target) const;
  void OfferToHost(std::int32_t Index, Slot& slot);

  void MakeAnswer(Call& call, std::string_view statusCode, bool forceStatus);
  Decision Decide(Call& call, std::string_view statusCode, bool forceStatus);
  Answer ErrorAnswer(cls_HTTP& record, std::string_view statusCode) const;
  Decision Refusal(cls_HTTP& record, std::string_view statusCode) const;
  Decision HostAnswer(Call& call) const;
  Decision Challenge(const cls_HTTP& record, std::string_view field, const std::string& realm) const;
  Decision DirectoryAnswer(Call& call, const Admission& admission);
  Decision FileAnswer(Call& call, const Admission& admission) const;
  void Deliver(Call& call, Decision decision);

  ControlState& state_;
  Sending& sending_;
};

}  // namespace TesselServer
