// One end of a connection: an address of either family, and a port.
//
// Thread:    any.
// Errors:    none; Parse and FromSystem have an empty result.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>

namespace TesselServer {

//   Endpoint::Parse("192.0.2.7", 80)->Text();     // "192.0.2.7"
//   Endpoint::Parse("2001:db8::1", 80)->Text();   // "2001:db8::1"
class Endpoint {
 public:
  // Port 0 of all IPv4 addresses.
  Endpoint() : Endpoint(INADDR_ANY, 0) {}
  // An IPv4 address in network byte order.
  Endpoint(std::uint32_t address, std::uint16_t port);
  Endpoint(const in6_addr& address, std::uint16_t port);

  // What inet_pton(3) reads in either family; nothing for another text.
  static std::optional<Endpoint> Parse(const std::string& text, std::uint16_t port);
  // Of either family, nothing for another one.
  static std::optional<Endpoint> FromSystem(const sockaddr_storage& name);
  // Which the socket is bound to, and which it is connected to; nothing for a socket without it.
  static std::optional<Endpoint> OwnOf(int socket);
  static std::optional<Endpoint> PeerOf(int socket);

  bool IsIPv4() const { return name_.any.sa_family == AF_INET; }
  // AF_INET or AF_INET6.
  int Family() const { return name_.any.sa_family; }
  std::uint16_t Port() const;
  // In network byte order; 0 for one of the other family.
  std::uint32_t IPv4() const { return IsIPv4() ? name_.v4.sin_addr.s_addr : 0; }
  // The address without the port. An IPv4 address within IPv6 (RFC 4291 2.5.5.2), as clients have it on a socket of
  // both families, is shown as what it is.
  std::string Text() const;

  // For bind(2) and connect(2).
  const sockaddr* Name() const { return &name_.any; }
  socklen_t NameSize() const { return IsIPv4() ? sizeof name_.v4 : sizeof name_.v6; }

  bool operator==(const Endpoint& other) const;

 private:
  union {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
  } name_;
};

}  // namespace TesselServer
