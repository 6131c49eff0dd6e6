#include "control/connection/Connections.h"

namespace TesselServer {

void Connections::ConnectionRequest(std::int32_t Index, std::int32_t requestID) {
  state_.reporter.Trap(ErrorPrefix::kConnectionRequest, [&] {
    if (state_.holdConnections) return;
    if (Index == kListener) {
      AcceptOnListener(requestID);
    } else {
      AcceptSecondary(Index, requestID);
    }
  });
}

void Connections::AcceptOnListener(std::int32_t requestID) {
  state_.lastConnectionTick = state_.TickCount();
  const std::int32_t closed = state_.sckWS.LowestClosed(kFirstConnection, state_.HighestConnection());
  if (closed >= 0) {
    TakeSlot(closed, requestID);
    return;
  }
  if (state_.manner->MakeRoom()) {
    const std::int32_t spared = state_.sckWS.LowestClosed(kFirstConnection, state_.HighestConnection());
    if (spared >= 0) TakeSlot(spared, requestID);
    return;
  }
  for (int pass = 0; pass < kRecoveryPasses && !state_.holdConnections; ++pass) {
    const std::int32_t free = state_.sckWS.LowestFree(kFirstConnection, state_.HighestConnection());
    if (free >= 0) {
      sending_.CloseConnection(free);
      TakeSlot(free, requestID);
      return;
    }
    state_.loop.DoEvents();
  }
}

// kept: only the listener ever receives a connection request; another element would pass it to element 0.
void Connections::AcceptSecondary(std::int32_t Index, std::int32_t requestID) {
  if (state_.sckWS.State(0) != SocketState::kClosed) return;
  const auto slots = state_.slots;
  if (Slot* slot = slots ? slots->At(Index) : nullptr) slot->SecondaryAccepted = true;
  TakeSlot(0, requestID);
}

bool Connections::TakeSlot(std::int32_t slot, std::int32_t requestID) {
  if (state_.sckWS.Accept(slot, requestID) != SocketArray::AcceptResult::kAccepted) return false;
  if (!state_.slots) return true;
  state_.slots->At(slot)->Reset(state_.maxBodyBytes);
  state_.manner->Accepted(slot);
  return true;
}

}  // namespace TesselServer
