#include "platform/sockets/Listener.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "platform/sockets/SocketArray.h"
#include "platform/world/SystemErrors.h"

namespace TesselServer {

namespace {

void SetOption(int descriptor, int level, int name, int value) {
  setsockopt(descriptor, level, name, &value, sizeof value);
}

// Accepted sockets inherit all of these.
void PrepareListener(int descriptor) {
  SetOption(descriptor, SOL_SOCKET, SO_REUSEADDR, 1);
  SetOption(descriptor, IPPROTO_TCP, TCP_DEFER_ACCEPT, SocketArray::kDeferAcceptSeconds);
  SetOption(descriptor, IPPROTO_TCP, TCP_NOTSENT_LOWAT, SocketArray::kUnsentBytes);
  SetOption(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, SocketArray::kKeepAliveIdleSeconds);
  SetOption(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, SocketArray::kKeepAliveIntervalSeconds);
  SetOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT, SocketArray::kKeepAliveProbes);
}

}  // namespace

bool ListensOn(int listener, std::uint32_t address, std::int32_t port) {
  int listens = 0;
  int error = 0;
  socklen_t size = sizeof listens;
  if (getsockopt(listener, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) != 0 || listens == 0) return false;
  if (getsockopt(listener, SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) return false;
  sockaddr_in name{};
  size = sizeof name;
  return getsockname(listener, reinterpret_cast<sockaddr*>(&name), &size) == 0 && name.sin_addr.s_addr == address &&
         ntohs(name.sin_port) == port;
}

bool SomebodyWaits(int listener) {
  pollfd queue{};
  queue.fd = listener;
  queue.events = POLLIN;
  return poll(&queue, 1, 0) == 1;
}

int QueueLength(int listener) {
  tcp_info facts{};
  socklen_t size = sizeof facts;
  if (getsockopt(listener, IPPROTO_TCP, TCP_INFO, &facts, &size) != 0) return 0;
  return static_cast<int>(facts.tcpi_unacked);  // of a listener it is this number, as in the Recv-Q of ss(8)
}

int AcceptFrom(int listener, std::uint32_t& address) {
  sockaddr_in peer{};
  socklen_t size = sizeof peer;
  const int descriptor = accept4(listener, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_NONBLOCK | SOCK_CLOEXEC);
  address = peer.sin_addr.s_addr;
  return descriptor;
}

int OpenListener(std::uint32_t address, std::int32_t port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor < 0) throw SystemError(errno);
  PrepareListener(descriptor);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = address;
  name.sin_port = htons(static_cast<std::uint16_t>(port));
  if (bind(descriptor, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 || listen(descriptor, SOMAXCONN) != 0) {
    const int error = errno;
    close(descriptor);
    throw SystemError(error);
  }
  return descriptor;
}

}  // namespace TesselServer
