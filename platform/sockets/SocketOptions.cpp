#include "platform/sockets/SocketOptions.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>

namespace TesselServer {

namespace {

struct OptionName {
  int level;
  int name;
};

OptionName NameOf(SocketOption option) {
  switch (option) {
    case SocketOption::kReuseAddress:
      return {SOL_SOCKET, SO_REUSEADDR};
    case SocketOption::kKeepAlive:
      return {SOL_SOCKET, SO_KEEPALIVE};
    case SocketOption::kNoDelay:
      return {IPPROTO_TCP, TCP_NODELAY};
    case SocketOption::kSendBufferBytes:
      return {SOL_SOCKET, SO_SNDBUF};
    case SocketOption::kReceiveBufferBytes:
      return {SOL_SOCKET, SO_RCVBUF};
    case SocketOption::kLingerSeconds:
      return {SOL_SOCKET, SO_LINGER};
  }
  return {-1, -1};  // no option: the kernel refuses it
}

}  // namespace

std::optional<std::int32_t> GetSocketOption(int descriptor, SocketOption option) {
  const OptionName which = NameOf(option);
  if (option == SocketOption::kLingerSeconds) {
    linger value{};
    socklen_t size = sizeof value;
    if (getsockopt(descriptor, which.level, which.name, &value, &size) != 0) return std::nullopt;
    return value.l_onoff != 0 ? value.l_linger : -1;
  }
  int value = 0;
  socklen_t size = sizeof value;
  if (getsockopt(descriptor, which.level, which.name, &value, &size) != 0) return std::nullopt;
  return value;
}

bool SetSocketOption(int descriptor, SocketOption option, std::int32_t value) {
  const OptionName which = NameOf(option);
  if (option == SocketOption::kLingerSeconds) {
    const linger seconds{value >= 0 ? 1 : 0, std::max(value, 0)};
    return setsockopt(descriptor, which.level, which.name, &seconds, sizeof seconds) == 0;
  }
  return setsockopt(descriptor, which.level, which.name, &value, sizeof value) == 0;
}

}  // namespace TesselServer
