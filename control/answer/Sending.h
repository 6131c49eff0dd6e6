// The end of a connection's life: the answer goes out, the connection is closed, the element is renewed.
//
// Thread:    the host's thread.
// Ownership: keeps a reference to the control's state, which it changes: sockets, slots, counters.
// Errors:    none; trapped and reported through LogEvent.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "control/answer/LogStamp.h"
#include "control/life/ControlState.h"
#include "platform/sockets/Answer.h"

namespace TesselServer {

class Sending {
 public:
  explicit Sending(ControlState& state) : state_(state) {}

  // Hands the whole answer to the connection in one call. False when it could not be handed over. The connection closes
  // after it when its request names something.
  bool SendData(std::int32_t Index, Answer answer);
  // The same, with what comes after it.
  bool SendData(std::int32_t Index, Answer answer, SocketArray::AfterSend after);

  // The answer has gone: the connection is closed and its element renewed. Does nothing for a connection whose
  // RequestPath is empty.
  void SendComplete(std::int32_t Index);

  // The connection failed: its element is renewed, unless the error is 10048 or 10035.
  void SocketError(std::int32_t Index, std::int32_t Number);

  // Closes a connection that got no answer, or whose answer could not be handed over.
  void CloseConnection(std::int32_t Index);

  // Closes and removes every element above the listener and lets their records go.
  void KillAllConnections();

  // Answers a client for whose page there is no memory: with the page, or with VerboseErrorsEnable off with the bare
  // header and its 503. Returns the size of the answer, 0 where it could not be handed over.
  std::int64_t ServerTooBusy(std::int32_t Index);

  // "[15/11/2026:18:20:05 +0100]": now, in local time.
  std::string LogTimestamp();

  // Raises the access-log line of the connection's request. The line is not built when HTTPLog has no handler.
  void LogRequest(std::int32_t Index, const std::string& address, std::string_view status, std::int64_t size);

 private:
  Answer TooBusyAnswer(cls_HTTP& record) const;
  void Renew(std::int32_t Index);

  ControlState& state_;
  LogStamp stamp_;
};

}  // namespace TesselServer
