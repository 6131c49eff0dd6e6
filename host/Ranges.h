// The ranges of the properties that are numbers, as the command line and the configuration file keep to them, and the
// values that the program starts with where they differ from the control's own.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

namespace TesselServer {

struct Range {
  std::int64_t low;
  std::int64_t high;

  bool Contains(std::int64_t value) const { return low <= value && value <= high; }
};

inline constexpr Range kServerPortRange{0, 65535};  // 0 lets the system choose
inline constexpr Range kSecondsRange{0, 2'000'000'000};
inline constexpr Range kMinutesRange{0, 2'000'000'000};
inline constexpr Range kMaxConnectionsRange{2, 10'000};
inline constexpr Range kMaxBodyBytesRange{0, std::numeric_limits<std::int32_t>::max()};
inline constexpr Range kMaxProgramsRange{1, 1000};
inline constexpr Range kClientRange{0, 86'400};
inline constexpr Range kMaxHeaderBytesRange{1024, 1'048'576};
inline constexpr Range kWorkersRange{0, 4};
inline constexpr Range kTotalBytesRange{0, std::numeric_limits<std::int64_t>::max()};  // over all connections

inline constexpr const char* kOwnServerIP = "127.0.0.1";   // a folder served for a trial stays private to this machine
inline constexpr const char* kOwnServerPort = "8080";      // needs no rights
inline constexpr const char* kOwnMaxConnections = "1000";  // a browser opens several connections at once

// "is no whole number from 0 to 65535": the end of the line that refuses a value.
inline std::string IsNoNumberFrom(const Range& range) {
  return "is no whole number from " + std::to_string(range.low) + " to " + std::to_string(range.high);
}

}  // namespace TesselServer
