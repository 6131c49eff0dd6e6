// The listening socket of a SocketArray: how it is opened, and how connections are taken from its queue.
//
// Thread:    any.
// Ownership: the caller owns the descriptors that are returned.
// Errors:    OpenListener raises the socket error of what failed; the others tell by their result.
#pragma once

#include <cstdint>

namespace TesselServer {

// Listens on the IPv4 address (network byte order, 0 = all) and port, with the options that SocketArray names.
// Close-on-exec and non-blocking.
int OpenListener(std::uint32_t address, std::int32_t port);

// Whether the socket listens on this address and port and nothing is the matter with it.
bool ListensOn(int listener, std::uint32_t address, std::int32_t port);

// Whether a connection is in the queue.
bool SomebodyWaits(int listener);

// How many connections are in the queue; 0 as well where the system does not tell.
int QueueLength(int listener);

// The next connection of the queue and its peer's address; below 0, with errno, when there is none to be had.
int AcceptFrom(int listener, std::uint32_t& address);

}  // namespace TesselServer
