#include "control/life/TesselCore.h"

namespace TesselServer {

TesselCore::TesselCore(EventLoop& loop, Tessel& control)
    : state(loop, control, *this),
      sending(state),
      connections(state, sending),
      manners(state, sending),
      timeOuts(state, sending),
      lifecycle(state, sending, manners, timeOuts, *this),
      hostAnswers(state) {
  state.tmrCheckConn.Interval(TimeOuts::kCheckMilliseconds);
  state.tmrCheckConn.OnTick([this] { timeOuts.TimerCheckConnections(); });
}

void TesselCore::ConnectionRequest(std::int32_t Index, std::int32_t requestID) {
  connections.ConnectionRequest(Index, requestID);
}

void TesselCore::DataArrival(std::int32_t Index, std::int64_t) { state.manner->DataArrival(Index); }

void TesselCore::SendComplete(std::int32_t Index) { state.manner->SendComplete(Index); }

void TesselCore::Close(std::int32_t Index) { state.manner->Close(Index); }

void TesselCore::SocketError(std::int32_t Index, std::int32_t Number, const std::string& Description) {
  sending.SocketError(Index, Number);
  // last, for its event may start the server anew
  if (Index == kListener) state.reporter.ReportError(ErrorPrefix::kListen, {Number, Description});
}

std::shared_ptr<const std::string> TesselCore::RaiseCallFunction(std::int32_t Index, const std::string& FunctionName,
                                                                 const std::string&, const std::string& Params) {
  return hostAnswers.RaiseCallFunction(Index, FunctionName, Params);
}

bool TesselCore::FunctionWasAnswered(std::int32_t Index) const { return hostAnswers.FunctionWasAnswered(Index); }

void TesselCore::ReportProgram(const std::string& text) { state.reporter.RaiseStatusLine(text); }

}  // namespace TesselServer
