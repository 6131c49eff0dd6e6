#include "control/answer/Sending.h"

#include <utility>

#include "control/answer/AccessLog.h"
#include "control/answer/RecordSetup.h"
#include "platform/world/SystemErrors.h"

namespace TesselServer {

bool Sending::SendData(std::int32_t Index, Answer answer) {
  auto after = SocketArray::AfterSend::kStaysOpen;
  if (const auto slots = state_.slots) {
    if (Slot* slot = slots->At(Index)) {
      slot->LastActivity = state_.world.UtcSeconds();
      if (!slot->Fields().RequestPath.empty()) after = SocketArray::AfterSend::kCloses;  // as SendComplete will
    }
  }
  return SendData(Index, std::move(answer), after);
}

bool Sending::SendData(std::int32_t Index, Answer answer, SocketArray::AfterSend after) {
  return state_.reporter.Trap(ErrorPrefix::kSendData, [&] { state_.sckWS.SendData(Index, std::move(answer), after); });
}

void Sending::SendComplete(std::int32_t Index) {
  state_.reporter.Trap(ErrorPrefix::kSendComplete, [&] {
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
    if (slot == nullptr || slot->Fields().RequestPath.empty()) return;
    slot->Fields().RequestPath.clear();
    CloseConnection(Index);
    if (!state_.loop.TurnIsLong()) state_.loop.DoEvents();
  });
}

void Sending::SocketError(std::int32_t Index, std::int32_t Number) {
  if (Number == SocketErrorNumber::kAddressInUse || Number == SocketErrorNumber::kWouldBlock) return;
  Renew(Index);
}

void Sending::CloseConnection(std::int32_t Index) { Renew(Index); }

// Replaces the element; a later answer of the host to the old client is ignored.
void Sending::Renew(std::int32_t Index) {
  if (const auto slots = state_.slots) {
    if (Slot* slot = slots->IfUsed(Index)) slot->Reset(state_.maxBodyBytes);
  }
  state_.sckWS.Reload(Index);
}

void Sending::KillAllConnections() {
  state_.reporter.Trap(ErrorPrefix::kKillAllConnections, [&] {
    const auto slots = state_.slots;
    for (std::int32_t i = kFirstConnection; i <= state_.sckWS.HighestIndex(); ++i) {
      state_.sckWS.Unload(i);
      Slot* slot = slots ? slots->IfUsed(i) : nullptr;
      if (slot == nullptr) continue;
      slot->Reset(state_.maxBodyBytes);
      slot->Record.reset();
    }
  });
}

std::int64_t Sending::ServerTooBusy(std::int32_t Index) {
  std::int64_t sent = 0;
  state_.reporter.Trap(ErrorPrefix::kServerTooBusy, [&] {
    const auto slots = state_.slots;
    Slot* slot = slots ? slots->At(Index) : nullptr;
    if (slot == nullptr) return;
    const auto record = RecordOf(state_, *slot, Index);
    Answer answer = TooBusyAnswer(*record);
    const std::int64_t size = answer.Size();
    const std::string address = state_.sckWS.RemoteHostIP(Index);
    state_.sckWS.SendData(Index, std::move(answer));
    sent = size;
    LogRequest(Index, address, "503", size);
  });
  return sent;
}

Answer Sending::TooBusyAnswer(cls_HTTP& record) const {
  if (!state_.settings.VerboseErrorsEnable) {
    return {record.BuildHeader("503", 0, "text/html", true, ""), std::string()};
  }
  std::string page = record.ServerTooBusyPage();
  // kept: the status line says 200 while the log says 503
  std::string head = record.BuildHeader("200", static_cast<std::int64_t>(page.size()), "", true, "");
  return {std::move(head), std::move(page)};
}

std::string Sending::LogTimestamp() { return stamp_.Now(state_.world); }

void Sending::LogRequest(std::int32_t Index, const std::string& address, std::string_view status, std::int64_t size) {
  const auto slots = state_.slots;
  Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
  if (slot == nullptr || !state_.reporter.HTTPLogIsHeard()) return;
  const RequestFields& request = slot->Fields();
  state_.reporter.RaiseHTTPLog(AccessLogLine(address, stamp_.Now(state_.world), request.RequestLine, status, size,
                                             request.RequestReferer, request.RequestUserAgent));
}

}  // namespace TesselServer
