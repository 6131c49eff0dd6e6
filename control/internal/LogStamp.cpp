#include "control/internal/LogStamp.h"

#include "control/internal/AccessLog.h"

namespace TesselServer {

const std::string& LogStamp::Now(const World& world) {
  const std::int64_t now = world.UtcSeconds();
  if (now != second_) {
    text_ = LogTimestamp(now, world.BiasMinutes(now));
    second_ = now;
  }
  return text_;
}

}  // namespace TesselServer
