// Takes connections up.
//
// Thread:    the host's thread.
// Ownership: keeps references to the control's state and its sending part.
// Errors:    none; trapped and reported through LogEvent.
#pragma once

#include <cstdint>

#include "control/answer/Sending.h"
#include "control/life/ControlState.h"

namespace TesselServer {

class Connections {
 public:
  // How often a connection that finds no closed element looks for one in any free state before it is left in the
  // backlog.
  static constexpr int kRecoveryPasses = 10;

  Connections(ControlState& state, Sending& sending) : state_(state), sending_(sending) {}

  void ConnectionRequest(std::int32_t Index, std::int32_t requestID);

 private:
  void AcceptOnListener(std::int32_t requestID);
  void AcceptSecondary(std::int32_t Index, std::int32_t requestID);
  bool TakeSlot(std::int32_t slot, std::int32_t requestID);

  ControlState& state_;
  Sending& sending_;
};

}  // namespace TesselServer
