// Takes connections up and turns what arrives on them into requests.
//
// Thread:    the host's thread.
// Ownership: keeps references to the control's state and its dispatch and sending parts.
// Errors:    none; trapped and reported through LogEvent.
#pragma once

#include <cstdint>

#include "control/answer/Dispatch.h"
#include "control/answer/Sending.h"
#include "control/life/ControlState.h"

namespace TesselServer {

class Connections {
 public:
  // How often a connection that finds no closed element looks for one in any free state before it is left in the
  // backlog.
  static constexpr int kRecoveryPasses = 10;

  Connections(ControlState& state, Dispatch& dispatch, Sending& sending)
      : state_(state), dispatch_(dispatch), sending_(sending) {}

  void ConnectionRequest(std::int32_t Index, std::int32_t requestID);
  void DataArrival(std::int32_t Index);
  // The client sends nothing more: what has come may be a request all the same.
  void Close(std::int32_t Index);

 private:
  void AcceptOnListener(std::int32_t requestID);
  void AcceptSecondary(std::int32_t Index, std::int32_t requestID);
  bool TakeSlot(std::int32_t slot, std::int32_t requestID);
  template <typename Step>
  void OrGiveUp(std::int32_t Index, const Step& step);
  void Follow(std::int32_t Index, Slot& slot, Reception::Outcome outcome);
  Reception::Outcome BoundBody(Slot& slot, Reception::Outcome outcome);
  void Wait(std::int32_t Index, Slot& slot, Reception::Outcome reason, std::int32_t milliseconds);
  void TimeUp(std::int32_t Index);

  ControlState& state_;
  Dispatch& dispatch_;
  Sending& sending_;
};

}  // namespace TesselServer
