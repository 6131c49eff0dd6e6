// The time stamp of log lines, formatted again only when the second or the zone has changed: there may be thousands of
// lines a second.
//
// Thread:    the host's thread.
// Ownership: keeps one text of some thirty bytes.
// Errors:    none.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "platform/world/World.h"

namespace TesselServer {

class LogStamp {
 public:
  // LogTimestamp of this moment in the world's local time. A clock that was set back and a time zone that was changed
  // are followed at once.
  const std::string& Now(const World& world);

 private:
  std::int64_t second_ = std::numeric_limits<std::int64_t>::min();  // that text_ is of; no clock shows the first value
  std::int32_t bias_ = 0;                                           // and in which zone
  std::string text_;
};

}  // namespace TesselServer
