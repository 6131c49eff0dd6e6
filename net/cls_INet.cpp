#include "net/cls_INet.h"

#include "net/cls_WinSock.h"
#include "platform/network/NetworkSubsystem.h"
#include "platform/world/World.h"

namespace TesselServer {

bool cls_INet::SocketsInitialize() {
  const NetworkStart start = network_.StartUp(kVersion);
  if (start.error != 0) {
    return Complain("Windows Sockets for 32 bit Windows environments is not successfully responding.");
  }
  const int major = LowByte(start.version);
  const int minor = HighByte(start.version);
  if (major < LowByte(kVersion) || (major == LowByte(kVersion) && minor < HighByte(kVersion))) {
    return Complain("Windows Sockets Version " + std::to_string(major) + "." + std::to_string(minor) +
                    " is not supported by Windows Sockets for 32 bit Windows environments.");
  }
  if (start.maxSockets >= kMinimumSockets) return true;
  return Complain("This application requires a minimum of " + std::to_string(kMinimumSockets) + " supported sockets.");
}

bool cls_INet::SocketsShutdown() {
  const std::int32_t error = network_.CleanUp();
  return error == 0 || Complain("Windows Sockets error " + std::to_string(error) + " occurred in Cleanup.");
}

std::string cls_INet::LocalHostAddress() {
  if (!SocketsInitialize()) return {};
  std::string address = world_.LocalAddress();
  SocketsShutdown();
  return address;
}

std::string cls_INet::HostNameOfAddress(std::string_view address) {
  if (!SocketsInitialize()) return std::string(cls_WinSock::kUnknown);
  const std::int32_t number = cls_WinSock::AddressFromDottedText(address);
  std::string name(cls_WinSock::kUnknown);
  if (number != cls_WinSock::kNoAddress) name = cls_WinSock(world_).HostNameFromLong(number);
  SocketsShutdown();
  return name;
}

std::string cls_INet::AddressOfHostName(std::string_view name) {
  if (!SocketsInitialize()) return {};
  const std::int32_t address = cls_WinSock(world_).AddressFromText(name);
  SocketsShutdown();
  return address == cls_WinSock::kNoAddress ? std::string() : cls_WinSock::AddressText(address);
}

EchoHostResult cls_INet::EchoHost(std::string_view host) {
  if (!SocketsInitialize()) return {};
  EchoHostResult result = Echo(host);
  SocketsShutdown();
  return result;
}

EchoHostResult cls_INet::Echo(std::string_view host) {
  const std::int32_t address = cls_WinSock(world_).AddressFromText(host);
  if (address == cls_WinSock::kNoAddress) return {EchoHostResult::kNoHost, 0, {}};
  const EchoReply reply = network_.Echo(static_cast<std::uint32_t>(address), kEchoText, kEchoMilliseconds);
  std::string text = cls_WinSock::AddressText(address);
  switch (reply.outcome) {
    case EchoOutcome::kAnswered:
      return {EchoHostResult::kAnswered, reply.milliseconds, std::move(text)};
    case EchoOutcome::kTimedOut:
      return {EchoHostResult::kTimedOut, 0, std::move(text)};
    default:
      return {EchoHostResult::kCannotSend, 0, std::move(text)};
  }
}

bool cls_INet::Complain(std::string_view text) {
  world_.MessageBox(text);
  return false;
}

}  // namespace TesselServer
