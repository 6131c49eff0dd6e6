// Options of a socket by the names that the layers above know.
//
// Thread:    any.
// Errors:    returned in the result, errno(3) says why.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/sockets/NotifyingSocket.h"

namespace TesselServer {

std::optional<std::int32_t> GetSocketOption(int descriptor, SocketOption option);
bool SetSocketOption(int descriptor, SocketOption option, std::int32_t value);

}  // namespace TesselServer
