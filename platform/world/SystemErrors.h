// Failures of system calls as the control reports them: by the numbers of socket errors, 10004 to 11004.
//
// Thread:    any.
// Errors:    none.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/world/Error.h"

namespace TesselServer {

namespace SocketErrorNumber {
inline constexpr std::int32_t kWouldBlock = 10035;
inline constexpr std::int32_t kAddressInUse = 10048;
inline constexpr std::int32_t kNoBufferSpace = 10055;
}  // namespace SocketErrorNumber

// The text of a socket error number, "" for a number that is none.
std::string_view SocketErrorText(std::int32_t number);

// Platform only: the number of an errno(3) value; kNoBufferSpace for one that no socket error describes.
std::int32_t SocketErrorOf(int error);

// Platform only: the same as the exception a host sees, with its text and the source "Tessel".
Error SystemError(int error);

}  // namespace TesselServer
