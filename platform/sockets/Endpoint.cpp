#include "platform/sockets/Endpoint.h"

#include <arpa/inet.h>

#include <array>
#include <cstring>

#include "platform/network/DottedText.h"

namespace TesselServer {

namespace {

using NameCall = int (*)(int, sockaddr*, socklen_t*);

std::optional<Endpoint> Ask(NameCall call, int socket) {
  sockaddr_storage name{};
  socklen_t size = sizeof name;
  if (call(socket, reinterpret_cast<sockaddr*>(&name), &size) != 0) return std::nullopt;
  return Endpoint::FromSystem(name);
}

}  // namespace

Endpoint::Endpoint(std::uint32_t address, std::uint16_t port) : name_{} {
  name_.v4.sin_family = AF_INET;
  name_.v4.sin_addr.s_addr = address;
  name_.v4.sin_port = htons(port);
}

Endpoint::Endpoint(const in6_addr& address, std::uint16_t port) : name_{} {
  name_.v6 = {};
  name_.v6.sin6_family = AF_INET6;
  name_.v6.sin6_addr = address;
  name_.v6.sin6_port = htons(port);
}

std::optional<Endpoint> Endpoint::Parse(const std::string& text, std::uint16_t port) {
  if (text.find('\0') != std::string::npos) return std::nullopt;
  in_addr v4{};
  in6_addr v6{};
  if (inet_pton(AF_INET, text.c_str(), &v4) == 1) return Endpoint(v4.s_addr, port);
  if (inet_pton(AF_INET6, text.c_str(), &v6) == 1) return Endpoint(v6, port);
  return std::nullopt;
}

std::optional<Endpoint> Endpoint::FromSystem(const sockaddr_storage& name) {
  Endpoint endpoint;
  if (name.ss_family == AF_INET) {
    std::memcpy(&endpoint.name_.v4, &name, sizeof endpoint.name_.v4);
  } else if (name.ss_family == AF_INET6) {
    std::memcpy(&endpoint.name_.v6, &name, sizeof endpoint.name_.v6);
  } else {
    return std::nullopt;
  }
  return endpoint;
}

std::optional<Endpoint> Endpoint::OwnOf(int socket) {
  return Ask([](int s, sockaddr* name, socklen_t* size) { return getsockname(s, name, size); }, socket);
}

std::optional<Endpoint> Endpoint::PeerOf(int socket) {
  return Ask([](int s, sockaddr* name, socklen_t* size) { return getpeername(s, name, size); }, socket);
}

std::uint16_t Endpoint::Port() const { return ntohs(IsIPv4() ? name_.v4.sin_port : name_.v6.sin6_port); }

std::string Endpoint::Text() const {
  if (IsIPv4()) return DottedText(name_.v4.sin_addr.s_addr);
  if (IN6_IS_ADDR_V4MAPPED(&name_.v6.sin6_addr)) {
    std::uint32_t v4 = 0;
    std::memcpy(&v4, name_.v6.sin6_addr.s6_addr + 12, sizeof v4);
    return DottedText(v4);
  }
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(AF_INET6, &name_.v6.sin6_addr, text.data(), text.size());
  return text.data();
}

bool Endpoint::operator==(const Endpoint& other) const {
  if (Family() != other.Family() || Port() != other.Port()) return false;
  if (IsIPv4()) return IPv4() == other.IPv4();
  return std::memcmp(&name_.v6.sin6_addr, &other.name_.v6.sin6_addr, sizeof name_.v6.sin6_addr) == 0;
}

}  // namespace TesselServer
