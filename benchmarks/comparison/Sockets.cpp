#include "benchmarks/comparison/Sockets.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <system_error>

namespace Comparison {
namespace {

constexpr int kBacklog = 4096;       // the kernel cuts it to its own limit
constexpr int kDeferredSeconds = 5;  // how long a connection without bytes is kept from the listener

[[noreturn]] void Fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

sockaddr_in Address(const std::string& ip, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (inet_pton(AF_INET, ip.c_str(), &address.sin_addr) != 1) {
    errno = EINVAL;
    Fail("address");
  }
  return address;
}

void SetOption(int socket, int level, int option, int value) {
  if (setsockopt(socket, level, option, &value, sizeof value) != 0) Fail("setsockopt");
}

int Open(const Route& route, int flags) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
  if (descriptor < 0) Fail("socket");
  if (route.source.empty()) return descriptor;
  SetOption(descriptor, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, 1);
  const sockaddr_in source = Address(route.source, 0);
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&source), sizeof source) != 0) Fail("bind");
  return descriptor;
}

}  // namespace

void RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) Fail("getrlimit");
  limit.rlim_cur = limit.rlim_max;
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) Fail("setrlimit");
}

int Listen(std::uint16_t port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (listener < 0) Fail("socket");
  SetOption(listener, SOL_SOCKET, SO_REUSEADDR, 1);
  SetOption(listener, IPPROTO_TCP, TCP_DEFER_ACCEPT, kDeferredSeconds);
  const sockaddr_in address = Address("127.0.0.1", port);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) Fail("bind");
  if (listen(listener, kBacklog) != 0) Fail("listen");
  return listener;
}

std::uint16_t PortOf(int listener) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) Fail("getsockname");
  return ntohs(address.sin_port);
}

int BeginConnect(const Route& route) {
  const int descriptor = Open(route, SOCK_NONBLOCK);
  const sockaddr_in address = Address(route.server, route.port);
  const int done = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (done != 0 && errno != EINPROGRESS) Fail("connect");
  return descriptor;
}

int Connect(const Route& route) {
  const int descriptor = Open(route, 0);
  const sockaddr_in address = Address(route.server, route.port);
  if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) Fail("connect");
  return descriptor;
}

bool SendAll(int socket, const std::string& text) {
  const ssize_t sent = send(socket, text.data(), text.size(), MSG_NOSIGNAL);
  if (sent < 0 && (errno == EAGAIN || errno == ENOTCONN)) return false;
  if (sent != static_cast<ssize_t>(text.size())) Fail("send");
  return true;
}

}  // namespace Comparison
