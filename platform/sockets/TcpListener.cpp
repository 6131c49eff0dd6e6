#include "platform/sockets/TcpListener.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "platform/loop/EventLoop.h"

namespace TesselServer {

namespace {

void SetOption(int descriptor, int level, int name, int value) {
  setsockopt(descriptor, level, name, &value, sizeof value);
}

int Option(int descriptor, int level, int name) {
  int value = -1;
  socklen_t size = sizeof value;
  return getsockopt(descriptor, level, name, &value, &size) == 0 ? value : -1;
}

// Accepted sockets inherit all of these.
void PrepareServer(int descriptor) {
  SetOption(descriptor, IPPROTO_TCP, TCP_DEFER_ACCEPT, TcpListener::kDeferAcceptSeconds);
  SetOption(descriptor, IPPROTO_TCP, TCP_NOTSENT_LOWAT, TcpListener::kUnsentBytes);
  SetOption(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, TcpListener::kKeepAliveIdleSeconds);
  SetOption(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, TcpListener::kKeepAliveIntervalSeconds);
  SetOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT, TcpListener::kKeepAliveProbes);
}

}  // namespace

TcpListener::TcpListener(EventLoop& loop, Client& client, std::uint64_t cookie)
    : loop_(loop.Core()), client_(client), cookie_(cookie), pause_(loop) {
  pause_.Interval(kPauseMilliseconds);
  pause_.OnTick([this] {
    Resume();
    if (IsConnectionWaiting()) client_.OnConnectionWaiting(*this);
  });
}

int TcpListener::Open(const Endpoint& own, Manner manner) {
  Close();
  UniqueDescriptor listener(socket(own.Family(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!listener.IsOpen()) return errno;
  SetOption(listener.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
  if (manner != Manner::kPlain) PrepareServer(listener.Get());
  if (manner == Manner::kPersistentServer) {
    SetOption(listener.Get(), IPPROTO_TCP, TCP_NODELAY, 1);
    if (!own.IsIPv4()) SetOption(listener.Get(), IPPROTO_IPV6, IPV6_V6ONLY, 0);
  }
  if (bind(listener.Get(), own.Name(), own.NameSize()) != 0 || listen(listener.Get(), SOMAXCONN) != 0) return errno;
  watch_ = loop_.Watch(listener.Get(), EPOLLIN, *this);
  if (watch_ == 0) return ENOBUFS;
  socket_ = std::move(listener);
  manner_ = manner;
  return 0;
}

void TcpListener::Close() {
  loop_.Unwatch(std::exchange(watch_, 0));
  if (pause_.Enabled()) pause_.Enabled(false);
  socket_ = UniqueDescriptor(-1);
}

bool TcpListener::ListensOn(const Endpoint& own) const {
  return Option(socket_.Get(), SOL_SOCKET, SO_ACCEPTCONN) == 1 && Option(socket_.Get(), SOL_SOCKET, SO_ERROR) == 0 &&
         Own() == own;
}

bool TcpListener::IsConnectionWaiting() const {
  pollfd queue{socket_.Get(), POLLIN, 0};
  return poll(&queue, 1, 0) == 1 && queue.revents == POLLIN;
}

UniqueDescriptor TcpListener::Accept(Endpoint& peer, int& error) const {
  sockaddr_storage name;
  name.ss_family = AF_UNSPEC;
  socklen_t size = sizeof name;
  UniqueDescriptor accepted(
      accept4(socket_.Get(), reinterpret_cast<sockaddr*>(&name), &size, SOCK_NONBLOCK | SOCK_CLOEXEC));
  error = accepted.IsOpen() ? 0 : errno;
  if (accepted.IsOpen()) peer = Endpoint::FromSystem(name).value_or(Endpoint());
  return accepted;
}

void TcpListener::Pause() {
  if (pause_.Enabled()) return;
  pause_.Enabled(true);  // first, for it may throw: without the timer nothing would end the pause
  loop_.Change(watch_, 0);
}

void TcpListener::Resume() {
  if (!pause_.Enabled()) return;
  pause_.Enabled(false);
  loop_.Change(watch_, EPOLLIN);
}

void TcpListener::OnEvents(std::uint32_t events) {
  if ((events & (EPOLLERR | EPOLLHUP)) == 0) return client_.OnConnectionWaiting(*this);
  loop_.Unwatch(std::exchange(watch_, 0));
  const int error = Option(socket_.Get(), SOL_SOCKET, SO_ERROR);
  client_.OnListenerFailed(*this, error > 0 ? error : EINVAL);
}

}  // namespace TesselServer
