#include "net/cls_WinSock.h"

#include <charconv>
#include <limits>
#include <optional>

#include "platform/network/DottedText.h"
#include "platform/network/NetworkNames.h"
#include "platform/world/SystemErrors.h"
#include "platform/world/World.h"

namespace TesselServer {
namespace {

constexpr std::string_view kDescription = "Linux sockets, IPv4";

constexpr std::int32_t kMaxPort = 65535;
constexpr std::int32_t kMaxProtocol = 255;

// The number that `text` is in decimal digits and nothing else, kNoNumber when it is none or above `most`.
std::int32_t PlainNumber(std::string_view text, std::int32_t most) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) return cls_WinSock::kNoNumber;
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && number <= most ? number : cls_WinSock::kNoNumber;
}

}  // namespace

bool cls_WinSock::SocketsStartup(std::string& description) {
  if (started_) return true;
  description = kDescription;
  started_ = true;
  return true;
}

std::string cls_WinSock::AddressText(std::int32_t address) { return DottedText(static_cast<std::uint32_t>(address)); }

std::string cls_WinSock::HostOrderAddressText(std::int64_t address) {
  const bool fits =
      address >= std::numeric_limits<std::int32_t>::min() && address <= std::numeric_limits<std::uint32_t>::max();
  if (!fits) return std::string(kNoHostOrderText);
  return AddressText(static_cast<std::int32_t>(NetworkOrder(static_cast<std::uint32_t>(address))));
}

std::string cls_WinSock::LocalHostName() const {
  const std::string name = world_.LocalHostName();
  return name.empty() ? std::string(kUnknown) : name;
}

std::int32_t cls_WinSock::ProtocolNumber(std::string_view name) {
  const auto known = TesselServer::ProtocolNumber(name);
  return known ? *known : PlainNumber(name, kMaxProtocol);
}

std::int32_t cls_WinSock::ServicePort(std::string_view name, std::string_view protocol) {
  const auto known = TesselServer::ServicePort(name, protocol);
  if (known) return *known;
  const bool isProtocol = protocol.empty() || protocol == "tcp" || protocol == "udp";
  return isProtocol ? PlainNumber(name, kMaxPort) : kNoNumber;
}

std::int32_t cls_WinSock::LongFromWords(std::uint16_t low, std::uint16_t high) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(high) << 16 | low);
}

std::string_view cls_WinSock::SocketErrorText(std::int32_t number) { return TesselServer::SocketErrorText(number); }

// ---- Sockets.

bool cls_WinSock::ConnectSocket(NotifyingSocket& socket, std::string_view host, std::int32_t port) const {
  socket.Close();
  if (port < 1 || port > kMaxPort) return false;
  const std::int32_t address = AddressFromText(host);
  if (address == kNoAddress) return false;
  socket.Connect({static_cast<std::uint32_t>(address), static_cast<std::uint16_t>(port)});
  return true;
}

bool cls_WinSock::ListenOnSocket(NotifyingSocket& socket, std::int32_t port, std::string_view address) const {
  socket.Close();
  const std::int32_t own = AddressFromText(address);
  if (port < 0 || port > kMaxPort || own == kNoAddress) return false;
  return socket.Listen({static_cast<std::uint32_t>(own), static_cast<std::uint16_t>(port)});
}

bool cls_WinSock::SendBytes(NotifyingSocket& socket, std::string_view bytes) { return socket.Send(std::string(bytes)); }

SocketAddress cls_WinSock::PeerAddress(const NotifyingSocket& socket) {
  return socket.PeerAddress().value_or(SocketAddress());
}

SocketAddress cls_WinSock::OwnAddress(const NotifyingSocket& socket) {
  return socket.OwnAddress().value_or(SocketAddress());
}

std::string cls_WinSock::SocketAddressText(const SocketAddress& address) {
  return AddressText(static_cast<std::int32_t>(address.address)) + ':' + std::to_string(address.port);
}

std::optional<std::int32_t> cls_WinSock::GetSocketOption(const NotifyingSocket& socket, SocketOption option) {
  return socket.Option(option);
}

bool cls_WinSock::SetSocketOption(NotifyingSocket& socket, SocketOption option, std::int32_t value) {
  return socket.Option(option, value);
}

}  // namespace TesselServer
