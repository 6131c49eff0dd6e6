// The program's two outputs: the access log on standard output, everything else on standard error. Each text is one
// line, printable as <TesselServer/Printable.h> has it. Neither output ever holds the caller, whatever its reader does:
// see LogWriter.
//
// Thread:    one thread.
// Errors:    std::system_error from Release when no thread can be had; what cannot be written is lost and counted.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <TesselServer/HostProcess.h>

#include "host/LogWriter.h"

namespace TesselServer {

//   Console console;
//   console.Tell("Starting Server ...");   // kept back
//   console.Release();                     // now it is seen, and every later text soon after it came
class Console {
 public:
  // How long the end waits for both outputs together, so that the program ends within a second.
  static constexpr std::chrono::milliseconds kEndMilliseconds{700};

  // Starts by keeping every text back, so that a start that fails leaves one clear line and no other.
  Console() = default;
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;
  ~Console();  // what can be written in kEndMilliseconds is written

  void Log(std::string_view line);   // to standard output; a line of HTTPLog
  void Tell(std::string_view text);  // to standard error

  // Writes what was kept back, in order, and keeps nothing back from now on.
  void Release();

 private:
  void Put(StandardStream stream, std::string_view line);

  std::vector<std::pair<StandardStream, std::string>> kept_;
  std::optional<LogWriter> output_;  // both from Release on
  std::optional<LogWriter> error_;
};

}  // namespace TesselServer
