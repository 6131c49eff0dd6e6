#include "control/modern/ModernManner.h"

#include <utility>

#include "http/modern/ResponseHead.h"
#include "support/Text.h"

namespace TesselServer {

namespace {

using State = Modern::RequestReader::State;

}  // namespace

ModernManner::ModernManner(ControlState& state, Sending& sending)
    : state_(state),
      sending_(sending),
      deadlines_(state.loop, [this](Deadlines::Entry& place, Deadlines::Wait wait) { Overdue(place, wait); }),
      answers_(state, sending) {}

Modern::RequestReader::Limits ModernManner::Limits() const {
  return {static_cast<std::size_t>(state_.settings.MaxHeaderBytes), state_.maxBodyBytes};
}

void ModernManner::Bind(std::int32_t Index, std::int32_t port, const std::string& ip) {
  state_.sckWS.BindPersistent(Index, port, ip);
}

std::unique_ptr<RequestInput> ModernManner::NewInput() { return std::make_unique<ModernInput>(Limits()); }

std::vector<std::string> ModernManner::StartLines() const {
  const Settings& settings = state_.settings;
  return {
      "#HTTP Mode: Modern",
      "#Client Timeout [sec]: " + std::to_string(settings.ClientTimeout),
      "#Keep-Alive Timeout [sec]: " + std::to_string(settings.KeepAliveTimeout),
      "#Max Header Bytes: " + std::to_string(settings.MaxHeaderBytes),
      "#CGI File Types: " + settings.CGIFileTypes,
      "#Charset: " + settings.Charset,
  };
}

// ---- Requests.

void ModernManner::Accepted(std::int32_t Index) {
  ModernInput& input = InputOf(*state_.slots->At(Index));
  input.Place().index = Index;
  input.Limits(Limits());
  deadlines_.Limit(Deadlines::Wait::kClient, state_.settings.ClientTimeout);
  deadlines_.Limit(Deadlines::Wait::kNextRequest, state_.settings.KeepAliveTimeout);
  deadlines_.Progress(input.Place(), Deadlines::Wait::kClient);
  state_.sckWS.OneAtATime(Index);
}

// A request that fails on its way in will not be complete any more: its connection is closed, and its memory goes.
template <typename Step>
void ModernManner::OrGiveUp(std::int32_t Index, const Step& step) {
  const std::uint64_t generation = state_.sckWS.Generation(Index);
  if (state_.reporter.Trap(ErrorPrefix::kDataArrival, step)) return;
  const auto slots = state_.slots;
  Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
  if (slot == nullptr || slot->Phase() != RequestPhase::kReceiving) return;
  if (state_.sckWS.Generation(Index) != generation) return;
  state_.reporter.Trap(ErrorPrefix::kDataArrival, [&] { sending_.CloseConnection(Index); });
}

void ModernManner::DataArrival(std::int32_t Index) {
  OrGiveUp(Index, [&] {
    const std::string_view chunk = state_.sckWS.GetData(Index);
    state_.statistics.BytesReceived += static_cast<double>(chunk.size());
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->At(Index) : nullptr;
    if (slot == nullptr) return;
    Take(Index, *slot, chunk);
  });
}

// The header block has its time from its first byte on; a body has it anew with each piece.
void ModernManner::Take(std::int32_t Index, Slot& slot, std::string_view bytes) {
  ModernInput& input = InputOf(slot);
  const bool hadBegun = input.Reader().HasBegun();
  for (;;) {
    const auto step = input.Reader().Next(bytes, input.TheRequest());
    bytes.remove_prefix(step.used);
    switch (step.state) {
      case State::kMore:
        if (!hadBegun && input.Reader().HasBegun()) deadlines_.Progress(input.Place(), Deadlines::Wait::kClient);
        return;
      case State::kHead:
        if (!TakeHead(Index, slot, !bytes.empty())) return;
        break;
      case State::kBody:
        deadlines_.Progress(input.Place(), Deadlines::Wait::kClient);
        if (!TakeBody(Index, slot, step.body)) return;
        break;
      case State::kEnd:
        return TakeEnd(Index, slot, bytes);
      case State::kRefused:
        return Refuse(Index, slot, input.Reader().RefusalStatus());
    }
  }
}

// What is to become of a body is decided before it comes. False where the request is refused.
bool ModernManner::TakeHead(std::int32_t Index, Slot& slot, bool bodyHasCome) {
  ModernInput& input = InputOf(slot);
  const Modern::Request& request = input.TheRequest();
  if (request.Expects() == Modern::Request::Expectation::kUnknown) {
    Refuse(Index, slot, 417);
    return false;
  }
  if (!request.HasBody()) return true;
  input.keepsBody = answers_.BodyIsRead(slot);
  if (request.Expects() != Modern::Request::Expectation::kContinue || bodyHasCome) return true;
  if (const int status = answers_.RefusalAtOnce(slot)) {
    Refuse(Index, slot, status);
    return false;
  }
  input.isInterim = true;
  return sending_.SendData(Index, {std::string(Modern::kContinueResponse), {}}, SocketArray::AfterSend::kStaysOpen);
}

// Bodies are bounded over all connections.
bool ModernManner::TakeBody(std::int32_t Index, Slot& slot, std::string_view piece) {
  ModernInput& input = InputOf(slot);
  if (!input.keepsBody) return true;
  input.KeepBody(piece);
  if (slot.BodyMemory.Resize(state_.bodyMemory, input.BodyBytes())) return true;
  Refuse(Index, slot, 503);
  return false;
}

void ModernManner::TakeEnd(std::int32_t Index, Slot& slot, std::string_view rest) {
  ModernInput& input = InputOf(slot);
  if (!rest.empty()) state_.sckWS.PutBack(Index, rest);
  input.Place().Leave();
  input.EndRequest();
  input.keepsOpen = input.TheRequest().KeepsOpen() && state_.settings.KeepAliveTimeout != 0 && !state_.holdConnections;
  state_.sckWS.InputMayCome(Index, false);
  state_.sckWS.AnswerPending(Index, true);
  answers_.Begin(Index, slot);
}

// The connection cannot go on: where its next request begins is not known.
void ModernManner::Refuse(std::int32_t Index, Slot& slot, int status) {
  ModernInput& input = InputOf(slot);
  input.Place().Leave();
  input.keepsOpen = false;
  state_.sckWS.InputMayCome(Index, true);
  state_.sckWS.AnswerPending(Index, true);
  answers_.SendWebPage(Index, std::to_string(status), true);
}

void ModernManner::Close(std::int32_t Index) {
  state_.reporter.Trap(ErrorPrefix::kClose, [&] {
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
    if (slot != nullptr && slot->Phase() == RequestPhase::kReceiving) sending_.CloseConnection(Index);
  });
}

// ---- After an answer.

void ModernManner::SendComplete(std::int32_t Index) {
  state_.reporter.Trap(ErrorPrefix::kSendComplete, [&] {
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
    if (slot == nullptr) return;
    ModernInput& input = InputOf(*slot);
    if (std::exchange(input.isInterim, false)) {
      deadlines_.Progress(input.Place(), Deadlines::Wait::kClient);
      return;
    }
    if (!input.keepsOpen || state_.holdConnections) return sending_.CloseConnection(Index);
    slot->Reset(state_.maxBodyBytes);
    state_.sckWS.NextRequest(Index);
    state_.sckWS.InputMayCome(Index, true);
    deadlines_.Progress(input.Place(), Deadlines::Wait::kNextRequest);
  });
}

bool ModernManner::MakeRoom() {
  Deadlines::Entry* const longest = deadlines_.Longest(Deadlines::Wait::kNextRequest);
  if (longest == nullptr) return false;
  sending_.CloseConnection(longest->index);
  return true;
}

void ModernManner::Overdue(Deadlines::Entry& place, Deadlines::Wait wait) {
  const std::int32_t Index = place.index;
  state_.reporter.Trap(ErrorPrefix::kTimerCheckConnections, [&] {
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
    if (slot == nullptr) return;
    if (wait == Deadlines::Wait::kNextRequest) return sending_.CloseConnection(Index);
    ClientIsOverdue(place, *slot);
  });
}

// A part of a request is worth an answer. One that is on its way may have made progress that is not seen here.
void ModernManner::ClientIsOverdue(Deadlines::Entry& place, Slot& slot) {
  const std::int32_t Index = place.index;
  ModernInput& input = InputOf(slot);
  if (slot.Phase() == RequestPhase::kReceiving && input.Reader().HasBegun()) return Refuse(Index, slot, 408);
  const bool isSending = slot.Phase() == RequestPhase::kSending;
  const std::int64_t sent = state_.sckWS.SentBytes(Index);
  if (isSending && sent != std::exchange(input.sentBytes, sent)) {
    return deadlines_.Progress(place, Deadlines::Wait::kClient);
  }
  sending_.CloseConnection(Index);
}

// ---- What the host says and asks.

void ModernManner::AnswerAsHostSays(std::int32_t Index) { answers_.SendWebPage(Index, "", false); }

std::string ModernManner::StatusOfHost(std::string_view code) const {
  const std::string_view trimmed = Trim(code);
  const bool isStatus = trimmed.size() == 3 && trimmed[0] >= '2' && trimmed[0] <= '5' &&
                        trimmed.find_first_not_of("0123456789") == std::string_view::npos;
  if (isStatus) return std::string(trimmed);
  state_.reporter.RaiseLogEvent("A status code of the host is none that can be sent: 500 takes its place.");
  return "500";
}

std::string ModernManner::HeaderField(const Slot& slot, std::string_view name) const {
  const Modern::Request& request = InputOf(slot).TheRequest();
  return name.empty() ? std::string(request.Head()) : request.Field(name);
}

}  // namespace TesselServer
