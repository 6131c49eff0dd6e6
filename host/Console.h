// The program's two outputs: the access log on standard output, everything else on standard error. Each text is one
// line, in which control characters are written as "\xHH", and is flushed at once.
//
// Thread:    one thread.
// Ownership: the standard streams outlive it.
// Errors:    none; what cannot be written is lost.
#pragma once

#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TesselServer {

// `text` with every byte below 0x20 and 0x7F as "\xHH".
std::string Printable(std::string_view text);

//   Console console;
//   console.Tell("Starting Server ...");   // kept back
//   console.Release();                     // now it is seen, and every later text at once
class Console {
 public:
  // Starts by keeping every text back, so that a start that fails leaves one clear line and no other.
  Console() = default;

  void Log(std::string_view line);   // to standard output
  void Tell(std::string_view line);  // to standard error

  // Writes what was kept back, in order, and keeps nothing back from now on.
  void Release();

 private:
  void Put(std::ostream& stream, std::string_view line);

  bool released_ = false;
  std::vector<std::pair<std::ostream*, std::string>> kept_;
};

}  // namespace TesselServer
