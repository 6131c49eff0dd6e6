// The program `tessel`: one control, one loop, a console.
//
// Thread:    the main thread.
// Ownership: none.
// Errors:    SettingError and StartError; nothing was started then.
#pragma once

#include <stdexcept>
#include <string>

#include <TesselServer/EventLoop.h>
#include <TesselServer/Tessel.h>

#include "host/Console.h"
#include "host/Options.h"

namespace TesselServer {

// A start that failed; what() is one line with the address and the reason.
class StartError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Does what the options ask for; serving lasts until SIGINT or SIGTERM.
void RunProgram(const Options& options);

// Has the console write what the loop and the control report, and keeps the latest report of an error in `lastReport`.
// All of them outlive the control.
void ConnectOutputs(EventLoop& loop, Tessel& tessel, Console& console, std::string& lastReport);

}  // namespace TesselServer
