// Names, addresses and error texts of the network, and plain TCP sockets. Look-ups of hosts, and what an address is,
// come from HostLookUp.
//
// Thread:    the host's thread only. A look-up in the name service may keep it waiting for about a second.
// Ownership: sockets stay the caller's.
// Errors:    none; what is not available has the fallback documented at each member. Why a socket refused something is
//            in its LastError.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <TesselServer/HostLookUp.h>
#include <TesselServer/NotifyingSocket.h>

namespace TesselServer {

World& SystemWorld();

//   cls_WinSock sockets;
//   std::string description;
//   sockets.SocketsStartup(description);
//   sockets.HostNameFromAddress("192.0.2.7");  // "printer.example.org"
//   sockets.SocketsCleanup();
//
// A connection, with `loop` running:
//
//   NotifyingSocket socket(loop);
//   socket.Handlers(std::move(handlers));
//   if (sockets.ConnectSocket(socket, "printer.example.org", 9100)) Show("connecting");  // handlers.Connected follows
class cls_WinSock : public HostLookUp {
 public:
  static constexpr std::int32_t kNoNumber = -1;                    // of a name that no protocol and no service has
  static constexpr std::string_view kNoHostOrderText = "0.0.0.0";  // of a number that is no address

  // `world` is for tests: names and addresses are looked up in it.
  explicit cls_WinSock(const World& world = SystemWorld()) : HostLookUp(world) {}

  // Makes the sockets ready and returns in `description` what they are. Always true. A second start changes nothing,
  // the description neither.
  bool SocketsStartup(std::string& description);

  // Ends what SocketsStartup began.
  void SocketsCleanup() { started_ = false; }

  // True between SocketsStartup and SocketsCleanup. Default: false.
  bool Started() const { return started_; }

  // The dotted text of an address: "192.0.2.7". kNoAddress has its fallback, "255.255.255.255".
  static std::string AddressText(std::int32_t address);

  // The dotted text of an address in the machine's own byte order: 2130706433 is "127.0.0.1". Read as 32 bits with or
  // without a sign, so that 3221225991 and -1073741305 are both "192.0.2.7". "0.0.0.0" for a number beyond that.
  static std::string HostOrderAddressText(std::int64_t address);

  // The host name of this machine, "Unknown" when it cannot be determined.
  std::string LocalHostName() const;

  // The number of the protocol `name`: 6 for "tcp". A text of digits up to 255 that is no name is the number itself.
  // kNoNumber for any other.
  static std::int32_t ProtocolNumber(std::string_view name);

  // The port of the service `name` over `protocol`, "tcp" or "udp", or "" for either: 80 for "http". A text of digits
  // up to 65535 that is no name is the port itself. kNoNumber for any other, and for another protocol.
  static std::int32_t ServicePort(std::string_view name, std::string_view protocol = "tcp");

  // The 32 bits made of two words: high * 65536 + low.
  static std::int32_t LongFromWords(std::uint16_t low, std::uint16_t high);

  // What the socket error `number` (10004 to 11004) means, in one sentence. "" for a number without a text.
  static std::string_view SocketErrorText(std::int32_t number);

  // ---- Sockets.

  // Connects `socket` to `port` (1 to 65535) of `host`, a dotted address or a host name. The outcome is reported by its
  // notifications. False when the host has no address or the port is out of its range: the socket is then closed.
  bool ConnectSocket(NotifyingSocket& socket, std::string_view host, std::int32_t port) const;

  // Has `socket` listen on `port` (0 to 65535, 0 for a free one) of the local address `address`, "0.0.0.0" for all.
  // False when it cannot: the socket is then closed.
  bool ListenOnSocket(NotifyingSocket& socket, std::int32_t port, std::string_view address = "0.0.0.0") const;

  // Sends bytes, all or none; what the kernel does not take now follows by itself. False when they were not taken.
  static bool SendBytes(NotifyingSocket& socket, std::string_view bytes);

  // The address and port of the other end, and of the socket itself; kNoAddress and port 0 when it has none.
  static SocketAddress PeerAddress(const NotifyingSocket& socket);
  static SocketAddress OwnAddress(const NotifyingSocket& socket);

  // Address, colon, port: "192.0.2.7:80".
  static std::string SocketAddressText(const SocketAddress& address);

  // The value of a socket's option, nothing when it cannot be read; and sets it, False when the socket is not open or
  // the value is refused.
  static std::optional<std::int32_t> GetSocketOption(const NotifyingSocket& socket, SocketOption option);
  static bool SetSocketOption(NotifyingSocket& socket, SocketOption option, std::int32_t value);

 private:
  bool started_ = false;
};

}  // namespace TesselServer
