#include "platform/network/NetworkSubsystem.h"

#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>

#include "platform/world/SystemErrors.h"
#include "platform/world/UniqueDescriptor.h"
#include "platform/world/World.h"

namespace TesselServer {

namespace {

constexpr std::int32_t kNotInitialized = 10093;

// The error that keeps this process from having any socket, 0 for none. A temporary lack of descriptors or memory does
// not count.
std::int32_t ErrorOfSockets() {
  const UniqueDescriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (probe.IsOpen() || errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) return 0;
  return SocketErrorOf(errno);
}

class RealNetwork final : public NetworkSubsystem {
 public:
  NetworkStart StartUp(VersionWord version) override {
    const std::int32_t error = ErrorOfSockets();
    if (error != 0) return {error, 0, 0};
    ++starts_;
    constexpr std::int64_t kMost = std::numeric_limits<std::uint16_t>::max();
    return {0, version, static_cast<std::uint16_t>(std::min(SystemWorld().DescriptorLimit(), kMost))};
  }

  std::int32_t CleanUp() override {
    std::int32_t before = starts_;
    do {
      if (before == 0) return kNotInitialized;
    } while (!starts_.compare_exchange_weak(before, before - 1));
    return 0;
  }

  EchoReply Echo(std::uint32_t address, std::string_view payload, std::int32_t milliseconds) override {
    return SendEcho(address, payload, milliseconds);
  }

 private:
  std::atomic<std::int32_t> starts_ = 0;  // that no CleanUp has ended yet
};

}  // namespace

NetworkSubsystem& SystemNetwork() {
  // Never destroyed, as the world it belongs to.
  static NetworkSubsystem* const network = new RealNetwork;
  return *network;
}

}  // namespace TesselServer
