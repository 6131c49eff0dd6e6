// What a control counts from its creation on.
#pragma once

#include <cstdint>
#include <optional>

#include "support/Dates.h"

namespace TesselServer {

struct Statistics {
  double BytesReceived = 0;          // from clients, bytes that were dropped included
  double BytesSent = 0;              // in answers that were logged
  double RequestCount = 0;           // one for each answer that was decided on
  double ErrorCount = 0;             // one for each LogEvent
  std::optional<Date> StartTime;     // local time of the last start that reached it
  std::int16_t FreeConnections = 0;  // as the last start or sweep found it
};

}  // namespace TesselServer
