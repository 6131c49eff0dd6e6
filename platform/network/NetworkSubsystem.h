// The network of this machine as something that is started, used and ended. One interface, so that a test can have a
// network that does not start, is of another version, or has hosts that never answer.
//
// Thread:    any.
// Ownership: SystemNetwork() lives as long as the process.
// Errors:    none; returned in the results, by the numbers of socket errors (10004 to 11004).
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/network/Echo.h"

namespace TesselServer {

// A version in two bytes: the major number is the low one, the minor number the high one. 0x0101 is 1.1.
using VersionWord = std::uint16_t;

struct NetworkStart {
  std::int32_t error = 0;  // 0 when it has started
  VersionWord version = 0;
  std::uint16_t maxSockets = 0;  // how many sockets this process may have, 65535 for that many and more
};

class NetworkSubsystem {
 public:
  virtual ~NetworkSubsystem() = default;

  // Starts it in the version asked for or in the one it has. The system's returns the error of a socket that could not
  // be created, where that is not a mere lack of descriptors or memory, and has every version.
  virtual NetworkStart StartUp(VersionWord version) = 0;

  // Ends what one StartUp began. 0, or the error: the system's has 10093 for an end without a start.
  virtual std::int32_t CleanUp() = 0;

  // SendEcho.
  virtual EchoReply Echo(std::uint32_t address, std::string_view payload, std::int32_t milliseconds) = 0;
};

// The real one, made on first use.
NetworkSubsystem& SystemNetwork();

}  // namespace TesselServer
