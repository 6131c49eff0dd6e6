// The few socket steps that the programs of the comparison share, on IPv4 loopback addresses.
//
// Thread:    any.
// Ownership: returned descriptors belong to the caller.
// Errors:    std::system_error.
#pragma once

#include <cstdint>
#include <string>

namespace Comparison {

// Where a client connects to, and from.
struct Route {
  std::string server = "127.0.0.1";
  std::uint16_t port = 0;
  std::string source;  // "" lets the system choose
};

// Lets this process open as many descriptors as the system allows it.
void RaiseDescriptorLimit();

// A non-blocking listener on 127.0.0.1 that is told of a connection when its first bytes are there.
int Listen(std::uint16_t port);

// The port that a listener has.
std::uint16_t PortOf(int listener);

// A socket on its way to the server: non-blocking, the connection may not stand yet.
int BeginConnect(const Route& route);

// A blocking socket with a connection that stands.
int Connect(const Route& route);

// Whether all of `text` was taken at once. False when the connection does not stand yet.
bool SendAll(int socket, const std::string& text);

}  // namespace Comparison
