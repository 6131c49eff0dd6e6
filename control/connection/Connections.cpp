#include "control/connection/Connections.h"

#include <memory>

#include "support/Text.h"

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
  if (state_.slots) state_.slots->At(slot)->Reset(state_.maxBodyBytes);
  return true;
}

// A request that fails on its way in will not be complete any more: its connection is closed, and its memory goes.
template <typename Step>
void Connections::OrGiveUp(std::int32_t Index, const Step& step) {
  const std::uint64_t generation = state_.sckWS.Generation(Index);
  if (state_.reporter.Trap(ErrorPrefix::kDataArrival, step)) return;
  const auto slots = state_.slots;
  Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
  if (slot == nullptr || slot->Phase() != RequestPhase::kReceiving) return;
  if (state_.sckWS.Generation(Index) != generation) return;
  state_.reporter.Trap(ErrorPrefix::kDataArrival, [&] { sending_.CloseConnection(Index); });
}

void Connections::DataArrival(std::int32_t Index) {
  OrGiveUp(Index, [&] {
    const std::string_view chunk = state_.sckWS.GetData(Index);
    state_.statistics.BytesReceived += static_cast<double>(chunk.size());
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->At(Index) : nullptr;
    if (slot == nullptr) return;
    slot->LastActivity = state_.world.UtcSeconds();
    Follow(Index, *slot, slot->Request.Data(chunk));
  });
}

void Connections::Close(std::int32_t Index) {
  state_.reporter.Trap(ErrorPrefix::kClose, [&] {
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
    if (slot == nullptr) return;
    if (slot->Phase() == RequestPhase::kOfferedToHost || slot->Phase() == RequestPhase::kAnswering) return;
    const Reception::Outcome outcome = slot->Request.EndOfInput();
    if (outcome == Reception::Outcome::kIgnored) slot->LetGoOfBody();
    Follow(Index, *slot, outcome);
  });
}

void Connections::Follow(std::int32_t Index, Slot& slot, Reception::Outcome outcome) {
  using Outcome = Reception::Outcome;
  outcome = BoundBody(slot, outcome);
  // a line end may follow a body without being announced: a client's old habit
  const bool mayCome = slot.Request.InputMayCome() || slot.Fields().RequestMethod == "POST";
  state_.sckWS.InputMayCome(Index, mayCome);
  switch (outcome) {
    case Outcome::kHolding:
      Wait(Index, slot, outcome, Reception::kHoldMilliseconds);
      return;
    case Outcome::kGrace:
      Wait(Index, slot, outcome, Reception::kGraceMilliseconds);
      return;
    case Outcome::kLateBody:
      Wait(Index, slot, outcome, Reception::kLateBodyMilliseconds);
      return;
    case Outcome::kWaiting:
    case Outcome::kIgnored:
      break;
    case Outcome::kComplete:
    case Outcome::kBad:
      state_.sckWS.AnswerPending(Index, true);
      break;
  }
  slot.StopWaiting();
  if (outcome == Outcome::kComplete) dispatch_.Begin(Index);
  if (outcome == Outcome::kBad) dispatch_.SendWebPage(Index, "400", true);
}

// Bodies are bounded over all connections, and one that the host cannot read is not kept. Finding
// that out costs a look-up of the target, so it is done only where the body did not arrive together with its header, or
// would exceed the limit.
Reception::Outcome Connections::BoundBody(Slot& slot, Reception::Outcome outcome) {
  Reception& request = slot.Request;
  const bool isDue = slot.Fields().BodyPending || !slot.BodyMemory.Fits(state_.bodyMemory, request.BodyBytes());
  if (request.Body() == Reception::BodyUse::kUndecided && isDue) {
    const bool isRead = dispatch_.BodyIsRead(slot);
    request.Body(isRead ? Reception::BodyUse::kKept : Reception::BodyUse::kDropped);
    if (isRead && !slot.BodyMemory.Fits(state_.bodyMemory, request.AnnouncedBytes())) return request.Refuse();
  }
  return slot.BodyMemory.Resize(state_.bodyMemory, request.BodyBytes()) ? outcome : request.Refuse();
}

// The time runs from the first outcome of its kind; later ones do not prolong it.
void Connections::Wait(std::int32_t Index, Slot& slot, Reception::Outcome reason, std::int32_t milliseconds) {
  if (slot.WaitsFor == reason) return;
  slot.WaitTimer = std::make_unique<Timer>(state_.loop);
  slot.WaitTimer->Interval(milliseconds);
  slot.WaitTimer->OnTick([this, Index] { TimeUp(Index); });
  slot.WaitTimer->Enabled(true);
  slot.WaitsFor = reason;
}

void Connections::TimeUp(std::int32_t Index) {
  OrGiveUp(Index, [&] {
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
    if (slot == nullptr) return;
    slot->StopWaiting();
    Follow(Index, *slot, slot->Request.TimeUp());
  });
}

}  // namespace TesselServer
