// The implementation of a control: its parts, wired together. It receives the notifications of the sockets and passes
// each to the part that handles it.
//
// Thread:    the loop's thread; debug builds assert it.
// Ownership: shared by the public object Tessel and by each call in progress, so that Tessel may be destroyed inside an
//            event.
// Errors:    none beyond those of its parts.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "control/answer/HostAnswers.h"
#include "control/answer/Sending.h"
#include "control/connection/Connections.h"
#include "control/life/ControlState.h"
#include "control/life/Lifecycle.h"
#include "control/life/Manners.h"
#include "control/life/TimeOuts.h"
#include "http/ParentControl.h"
#include "platform/sockets/SocketArray.h"

namespace TesselServer {

class TesselCore : private SocketNotifications, private ParentControl {
 public:
  TesselCore(EventLoop& loop, Tessel& owner);
  TesselCore(const TesselCore&) = delete;
  TesselCore& operator=(const TesselCore&) = delete;

  ControlState state;
  Sending sending;
  Connections connections;
  Manners manners;
  TimeOuts timeOuts;
  Lifecycle lifecycle;
  HostAnswers hostAnswers;

 private:
  void ConnectionRequest(std::int32_t Index, std::int32_t requestID) override;
  void DataArrival(std::int32_t Index, std::int64_t bytesTotal) override;
  void SendComplete(std::int32_t Index) override;
  void Close(std::int32_t Index) override;
  void SocketError(std::int32_t Index, std::int32_t Number, const std::string& Description) override;
  std::shared_ptr<const std::string> RaiseCallFunction(std::int32_t Index, const std::string& FunctionName,
                                                       const std::string& Unused, const std::string& Params) override;
  bool FunctionWasAnswered(std::int32_t Index) const override;
  void ReportProgram(const std::string& text) override;
};

}  // namespace TesselServer
