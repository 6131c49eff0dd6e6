// What the program puts in for the function tags of pages.
//
// Thread:    the control's thread.
// Ownership: the control outlives it.
// Errors:    none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <TesselServer/Tessel.h>

namespace TesselServer {

//   name                                                    text
//   Version, UpTime, Requests, Errors, BytesSent,           as the control's members of the same name return it
//     BytesReceived, FreeConnections
//   Now                                                     date and time here, "2024-02-29 18:20:05"
//   Echo                                                    the value of its argument `text` (see Echo.h)
class FunctionAnswers {
 public:
  explicit FunctionAnswers(Tessel& tessel) : tessel_(tessel) {}

  // Answers the CallFunction event of connection `index`. Names are the same in any case; a name that is none of these
  // gets no answer.
  void Answer(std::int32_t index, std::string_view name) const;

 private:
  std::optional<std::string> Text(std::int32_t index, std::string_view name) const;

  Tessel& tessel_;
};

}  // namespace TesselServer
