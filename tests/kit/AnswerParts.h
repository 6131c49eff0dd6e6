// The parts of an answer as a client has received it.
#pragma once

#include <cstddef>
#include <string>

namespace TesselServer::Kit {

// What follows the header block, and the block itself with its blank line.
inline std::string BodyOf(const std::string& answer) {
  const std::size_t end = answer.find("\r\n\r\n");
  return end == std::string::npos ? std::string() : answer.substr(end + 4);
}
inline std::string HeadOf(const std::string& answer) {
  const std::size_t end = answer.find("\r\n\r\n");
  return end == std::string::npos ? answer : answer.substr(0, end + 4);
}

}  // namespace TesselServer::Kit
