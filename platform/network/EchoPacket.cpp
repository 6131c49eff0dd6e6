#include "platform/network/EchoPacket.h"

namespace TesselServer {

namespace {

constexpr std::size_t kEchoHeaderBytes = 8;  // type, code, checksum, identifier, sequence
constexpr std::size_t kChecksumPlace = 2;
constexpr char kEchoRequest = 8;
constexpr char kEchoReply = 0;

constexpr std::size_t kLeastInternetHeader = 20;
constexpr std::size_t kProtocolPlace = 9;
constexpr char kIcmp = 1;

void AppendWord(std::string& bytes, std::uint16_t word) {
  bytes += static_cast<char>(word >> 8);
  bytes += static_cast<char>(word & 0xFF);
}

std::uint16_t WordAt(std::string_view bytes, std::size_t place) {
  const auto high = static_cast<unsigned char>(bytes[place]);
  const auto low = place + 1 < bytes.size() ? static_cast<unsigned char>(bytes[place + 1]) : 0;
  return static_cast<std::uint16_t>(high << 8 | low);
}

// The complement of the ones' complement sum of all words; 0 for a message whose checksum is in it and right.
std::uint16_t Checksum(std::string_view bytes) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    sum += WordAt(bytes, i);
    sum = (sum & 0xFFFF) + (sum >> 16);
  }
  return static_cast<std::uint16_t>(~sum);
}

}  // namespace

std::string EchoRequest(const EchoMessage& message) {
  std::string bytes;
  bytes += kEchoRequest;
  bytes += '\0';  // code
  AppendWord(bytes, 0);
  AppendWord(bytes, message.identifier);
  AppendWord(bytes, message.sequence);
  bytes += message.payload;
  const std::uint16_t sum = Checksum(bytes);
  bytes[kChecksumPlace] = static_cast<char>(sum >> 8);
  bytes[kChecksumPlace + 1] = static_cast<char>(sum & 0xFF);
  return bytes;
}

bool IsEchoReply(std::string_view packet, const EchoMessage& message) {
  if (packet.size() != kEchoHeaderBytes + message.payload.size()) return false;
  return packet[0] == kEchoReply && packet[1] == 0 && WordAt(packet, 4) == message.identifier &&
         WordAt(packet, 6) == message.sequence && packet.substr(kEchoHeaderBytes) == message.payload &&
         Checksum(packet) == 0;
}

std::string_view WithoutInternetHeader(std::string_view packet) {
  if (packet.size() < kLeastInternetHeader) return {};
  const auto first = static_cast<unsigned char>(packet[0]);
  const std::size_t header = std::size_t{first & 0xFu} * 4;
  if (first >> 4 != 4 || header < kLeastInternetHeader || header > packet.size()) return {};
  if (packet[kProtocolPlace] != kIcmp) return {};
  return packet.substr(header);
}

}  // namespace TesselServer
