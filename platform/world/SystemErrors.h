// From errno to the control's own errors. Platform only.
#pragma once

#include <cstdint>

#include "platform/world/Error.h"

namespace TesselServer {

// The socket error number of an errno(3) value; 10055 for one that no socket error describes.
std::int32_t SocketErrorOf(int error);

// The socket error as the exception a host sees, with its text and the source "Tessel".
Error SystemError(int error);

}  // namespace TesselServer
