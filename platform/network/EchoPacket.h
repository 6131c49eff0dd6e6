// ICMP echo messages as bytes (RFC 792): the request that is sent, and which of the packets that come is its answer.
//
// Thread:    any.
// Ownership: views must live as long as the structure they are in.
// Errors:    none; a packet that is cut, damaged or of another process is not the answer.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TesselServer {

struct EchoMessage {
  std::uint16_t identifier = 0;
  std::uint16_t sequence = 0;
  std::string_view payload;
};

// The ICMP message that asks for `message` back.
std::string EchoRequest(const EchoMessage& message);

// Whether `packet`, an ICMP message, answers EchoRequest(message): an echo reply with the same identifier, sequence and
// payload and a right checksum.
bool IsEchoReply(std::string_view packet, const EchoMessage& message);

// The ICMP message inside an IPv4 packet, as raw sockets deliver it. "" when there is none.
std::string_view WithoutInternetHeader(std::string_view packet);

}  // namespace TesselServer
