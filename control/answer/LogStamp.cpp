#include "control/answer/LogStamp.h"

#include "control/answer/AccessLog.h"

namespace TesselServer {

const std::string& LogStamp::Now(const World& world) {
  const std::int64_t now = world.UtcSeconds();
  const std::int32_t bias = world.BiasMinutes(now);
  if (now != second_ || bias != bias_) {
    text_ = LogTimestamp(now, bias);
    second_ = now;
    bias_ = bias;
  }
  return text_;
}

}  // namespace TesselServer
