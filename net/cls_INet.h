// Internet utilities: a start of the network that shows the user when it is not usable, look-ups, and the echo of a
// host.
//
// Thread:    the host's thread only. A look-up in the name service may keep it waiting for about a second, an echo for
//            kEchoMilliseconds more.
// Ownership: it owns nothing.
// Errors:    none. What keeps the network from starting or ending is shown in a message box (World::MessageBox); what
//            is not available has the fallback documented at each member.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TesselServer {

class NetworkSubsystem;
NetworkSubsystem& SystemNetwork();
class World;
World& SystemWorld();

// The result of an echo.
struct EchoHostResult {
  static constexpr std::int32_t kAnswered = 0;        // the host sent it back
  static constexpr std::int32_t kTimedOut = 11010;    // it did not within kEchoMilliseconds
  static constexpr std::int32_t kNoHost = 11001;      // no such host
  static constexpr std::int32_t kCannotSend = 11003;  // no ICMP socket may be opened here, or nothing gets to the host

  std::int32_t Status = kCannotSend;  // one of the above
  double RoundTripMs = 0;             // milliseconds with their fraction from sending to return, 0 without an answer
  std::string Address;                // of the host, dotted; "" when it was not found
};

//   cls_INet net;
//   const EchoHostResult echo = net.EchoHost("printer.example.org");
//   if (echo.Status == EchoHostResult::kAnswered) Show(echo.Address, echo.RoundTripMs);
class cls_INet {
 public:
  static constexpr std::uint16_t kVersion = 0x0101;            // 1.1
  static constexpr std::int32_t kMinimumSockets = 1;           // no work with fewer
  static constexpr std::int32_t kEchoMilliseconds = 200;       // how long an echo is waited for
  static constexpr std::string_view kEchoText = "Echo This.";  // what is sent

  // `world` and `network` are for tests; they outlive the object.
  explicit cls_INet(World& world = SystemWorld(), NetworkSubsystem& network = SystemNetwork())
      : world_(world), network_(network) {}

  // Starts the network. True when sockets are usable; else a message box shows why not: it does not start, is older
  // than 1.1, or has no socket left.
  bool SocketsInitialize();

  // Ends what SocketsInitialize began. False, after a message box, when that fails.
  bool SocketsShutdown();

  // Each of these starts the network, and ends it again when SocketsInitialize returned True. Else the message box has
  // shown why, and the fallback is returned.

  // The first address of this machine as dotted text, one of the loopback network only when it has no other. Fallback:
  // "".
  std::string LocalHostAddress();

  // The name of the host with the dotted address `address`. Fallback, also for a text that is no dotted address:
  // "Unknown".
  std::string HostNameOfAddress(std::string_view address);

  // The first address of the host `name` as dotted text; a dotted address is its own. Fallback: "".
  std::string AddressOfHostName(std::string_view name);

  // Sends kEchoText to `host`, a host name or a dotted address, and waits for its return.
  EchoHostResult EchoHost(std::string_view host);

  // The low and the high byte of a version word: major and minor number.
  static std::uint8_t LowByte(std::uint16_t word) { return static_cast<std::uint8_t>(word & 0xFF); }
  static std::uint8_t HighByte(std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); }

 private:
  bool Complain(std::string_view text);
  EchoHostResult Echo(std::string_view host);

  World& world_;
  NetworkSubsystem& network_;
};

}  // namespace TesselServer
