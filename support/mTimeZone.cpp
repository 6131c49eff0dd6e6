#include "support/mTimeZone.h"

#include <cmath>

#include "platform/world/World.h"
#include "support/Format.h"

namespace TesselServer {

std::string GMTDate(std::int64_t utcSeconds) {
  return FormatDate(CivilFromSeconds(utcSeconds), "ddd, dd mmm yyyy hh:mm:ss").append(" GMT");
}

std::string GMTDate(const World& world) { return GMTDate(world.UtcSeconds()); }

std::string WeekdayAbbrev(Date date) { return FormatDate(date, "ddd"); }

std::string MonthAbbrev(Date date) { return FormatDate(date, "mmm"); }

std::string UTCOffsetText(std::int32_t biasMinutes) {
  const std::string hours = FormatNumber(std::floor(biasMinutes / 60.0), "0#");
  const bool east = hours.front() == '-';
  std::string text(1, east ? '+' : '-');
  return text.append(hours, east ? 1 : 0).append("00");
}

std::string UTCOffsetText(const World& world, std::int64_t utcSeconds) {
  return UTCOffsetText(world.BiasMinutes(utcSeconds));
}

}  // namespace TesselServer
