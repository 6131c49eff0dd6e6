// Socket errors by number: what the numbers 10004 to 11004 mean, and which one a failed system call gets.
//
// Thread:    any.
// Errors:    none.
#pragma once

#include <cstdint>
#include <string_view>

namespace TesselServer {

namespace SocketErrorNumber {
inline constexpr std::int32_t kWouldBlock = 10035;
inline constexpr std::int32_t kAddressInUse = 10048;
inline constexpr std::int32_t kNotConnected = 10057;
}  // namespace SocketErrorNumber

// The text of a socket error number, "" for a number that is none.
std::string_view SocketErrorText(std::int32_t number);

}  // namespace TesselServer
