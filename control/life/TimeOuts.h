// The control's periodic check: the element of a listener that has gone quiet is renewed, and connections that failed
// or were closed by their client are swept up.
//
// Thread:    the host's thread.
// Ownership: keeps references to the control's state and its sending part.
// Errors:    none; trapped and reported through LogEvent.
#pragma once

#include <cstdint>

#include "control/answer/Sending.h"
#include "control/life/ControlState.h"

namespace TesselServer {

class TimeOuts {
 public:
  // The timer's first interval, and the one that every check sets again while ConnectionTimeout is not 0.
  static constexpr std::int32_t kCheckMilliseconds = 10000;
  // A listener that received no connection request for longer than this is rebuilt.
  static constexpr std::uint32_t kQuietMilliseconds = 30000;

  TimeOuts(ControlState& state, Sending& sending) : state_(state), sending_(sending) {}

  // The handler of tmrCheckConn.
  void TimerCheckConnections();

  // Renews the listening element on the address of this run, whatever the properties say by now. The kernel's
  // listening socket stays where it can. Raises the socket error when it cannot be bound.
  void OpenListener();

 private:
  void WatchListener();
  void Sweep();

  ControlState& state_;
  Sending& sending_;
  std::int32_t elapsedSeconds_ = 0;
  std::int32_t elapsedMinutes_ = 0;
};

}  // namespace TesselServer
