// How much memory this process uses, and how far a test may go under a sanitizer, which makes all of it slower and
// bigger.
#pragma once

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>

namespace TesselServer::Kit {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// VmRSS of proc(5), in bytes.
inline std::int64_t ResidentBytes() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    std::int64_t kilobytes = 0;
    if (word == "VmRSS:" && status >> kilobytes) return kilobytes * 1024;
  }
  throw std::runtime_error("no VmRSS");
}

}  // namespace TesselServer::Kit
