// The component's own version, and how it is written.
#pragma once

#include <cstdint>
#include <string>

#include "support/Format.h"

namespace TesselServer {

namespace ComponentVersion {
inline constexpr std::int32_t kMajor = 1;
inline constexpr std::int32_t kMinor = 1;
inline constexpr std::int32_t kRevision = 0;
}  // namespace ComponentVersion

// "1.1.005": the revision has at least three digits.
inline std::string VersionText(std::int32_t major, std::int32_t minor, std::int32_t revision) {
  return std::to_string(major) + "." + std::to_string(minor) + "." + FormatNumber(revision, "00#");
}

}  // namespace TesselServer
