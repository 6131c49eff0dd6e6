// Takes the control from creation to serving and back.
//
// Thread:    the host's thread.
// Ownership: keeps references to the control's state and its parts.
// Errors:    StartServer raises Error 10048, and Error 5 for settings that the manner does not serve with; the rest is
// reported through LogEvent.
#pragma once

#include <string>

#include "control/answer/Sending.h"
#include "control/life/ControlState.h"
#include "control/life/Manners.h"
#include "control/life/TimeOuts.h"
#include "http/ParentControl.h"

namespace TesselServer {

class Lifecycle {
 public:
  Lifecycle(ControlState& state, Sending& sending, Manners& manners, TimeOuts& timeOuts, ParentControl& control)
      : state_(state), sending_(sending), manners_(manners), timeOuts_(timeOuts), control_(control) {}

  // The control was created: what holds before any property is set.
  void Initialize();

  bool StartServer();
  bool StopServer();

  // The control is destroyed: everything is closed, nothing is raised.
  void Terminate();

  // Makes the listener and the connection elements. Raises Error 10048 when the address is in use; every other failure
  // is reported, and the server goes on without a listener until the periodic check has made one.
  void StartListening();

 private:
  // Thrown inside StartServer when an event stopped the server: the start is given up.
  struct Abandoned {};

  void Start(Manner& manner);
  void FillDefaults();
  void LoadElements();
  void NameServer();
  void LogConfiguration();
  void WarnOfDescriptors();
  void Log(std::string line);
  void Status(std::string text);
  void CheckAbandoned() const;
  void UnloadSockets();

  ControlState& state_;
  Sending& sending_;
  Manners& manners_;
  TimeOuts& timeOuts_;
  ParentControl& control_;
  std::uint32_t stopsAtStart_ = 0;  // the count of stops when the present start began
  bool stopping_ = false;           // inside StopServer, and no start has begun since
};

}  // namespace TesselServer
