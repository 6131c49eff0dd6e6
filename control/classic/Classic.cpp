#include "control/classic/Classic.h"

#include <memory>
#include <utility>

#include "control/answer/HostAnswers.h"

namespace TesselServer {

namespace {

// The slots of this run were made with NewInput.
Reception& ReceptionOf(Slot& slot) { return static_cast<Reception&>(*slot.Input); }

}  // namespace

void Classic::Bind(std::int32_t Index, std::int32_t port, const std::string& ip) {
  ip.empty() ? state_.sckWS.LocalPort(Index, port) : state_.sckWS.Bind(Index, port, ip);
}

std::unique_ptr<RequestInput> Classic::NewInput() { return std::make_unique<Reception>(); }

// A request that fails on its way in will not be complete any more: its connection is closed, and its memory goes.
template <typename Step>
void Classic::OrGiveUp(std::int32_t Index, const Step& step) {
  const std::uint64_t generation = state_.sckWS.Generation(Index);
  if (state_.reporter.Trap(ErrorPrefix::kDataArrival, step)) return;
  const auto slots = state_.slots;
  Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
  if (slot == nullptr || slot->Phase() != RequestPhase::kReceiving) return;
  if (state_.sckWS.Generation(Index) != generation) return;
  state_.reporter.Trap(ErrorPrefix::kDataArrival, [&] { sending_.CloseConnection(Index); });
}

void Classic::DataArrival(std::int32_t Index) {
  OrGiveUp(Index, [&] {
    const std::string_view chunk = state_.sckWS.GetData(Index);
    state_.statistics.BytesReceived += static_cast<double>(chunk.size());
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->At(Index) : nullptr;
    if (slot == nullptr) return;
    slot->LastActivity = state_.world.UtcSeconds();
    Follow(Index, *slot, ReceptionOf(*slot).Data(chunk));
  });
}

void Classic::Close(std::int32_t Index) {
  state_.reporter.Trap(ErrorPrefix::kClose, [&] {
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
    if (slot == nullptr) return;
    if (slot->Phase() == RequestPhase::kOfferedToHost || slot->Phase() == RequestPhase::kAnswering) return;
    const Reception::Outcome outcome = ReceptionOf(*slot).EndOfInput();
    if (outcome == Reception::Outcome::kIgnored) slot->LetGoOfBody();
    Follow(Index, *slot, outcome);
  });
}

void Classic::Follow(std::int32_t Index, Slot& slot, Reception::Outcome outcome) {
  using Outcome = Reception::Outcome;
  outcome = BoundBody(slot, outcome);
  // a line end may follow a body without being announced: a client's old habit
  const bool mayCome = ReceptionOf(slot).InputMayCome() || slot.Fields().RequestMethod == "POST";
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
Reception::Outcome Classic::BoundBody(Slot& slot, Reception::Outcome outcome) {
  Reception& request = ReceptionOf(slot);
  const bool isDue = slot.Fields().BodyPending || !slot.BodyMemory.Fits(state_.bodyMemory, request.BodyBytes());
  if (request.Body() == Reception::BodyUse::kUndecided && isDue) {
    const bool isRead = dispatch_.BodyIsRead(slot);
    request.Body(isRead ? Reception::BodyUse::kKept : Reception::BodyUse::kDropped);
    if (isRead && !slot.BodyMemory.Fits(state_.bodyMemory, request.AnnouncedBytes())) return request.Refuse();
  }
  return slot.BodyMemory.Resize(state_.bodyMemory, request.BodyBytes()) ? outcome : request.Refuse();
}

// The time runs from the first outcome of its kind; later ones do not prolong it.
void Classic::Wait(std::int32_t Index, Slot& slot, Reception::Outcome reason, std::int32_t milliseconds) {
  if (slot.WaitsFor == reason) return;
  slot.WaitTimer = std::make_unique<Timer>(state_.loop);
  slot.WaitTimer->Interval(milliseconds);
  slot.WaitTimer->OnTick([this, Index] { TimeUp(Index); });
  slot.WaitTimer->Enabled(true);
  slot.WaitsFor = reason;
}

void Classic::TimeUp(std::int32_t Index) {
  OrGiveUp(Index, [&] {
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
    if (slot == nullptr) return;
    slot->StopWaiting();
    Follow(Index, *slot, ReceptionOf(*slot).TimeUp());
  });
}

// ---- The answer.

void Classic::SendComplete(std::int32_t Index) { sending_.SendComplete(Index); }

void Classic::AnswerAsHostSays(std::int32_t Index) { dispatch_.SendWebPage(Index, "", false); }

std::string Classic::StatusOfHost(std::string_view code) const { return NormaliseStatusCode(code); }

std::string Classic::HeaderField(const Slot& slot, std::string_view name) const {
  const std::string& header = slot.Fields().RequestHeader;
  return name.empty() ? header : HeaderValue(header, name);
}

}  // namespace TesselServer
