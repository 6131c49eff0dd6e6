// How many descriptors this process has open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace TesselServer::Kit {

// The one that the counting itself opens is among them, each time.
inline std::size_t CountDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace TesselServer::Kit
