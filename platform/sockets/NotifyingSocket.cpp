#include "platform/sockets/NotifyingSocket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/TcpConnection.h"
#include "platform/sockets/TcpListener.h"
#include "platform/world/SystemErrors.h"

namespace TesselServer {

namespace {

static_assert(NotifyingSocket::kRestMilliseconds == TcpListener::kPauseMilliseconds);

std::optional<SocketAddress> AddressOf(const std::optional<Endpoint>& endpoint) {
  if (!endpoint || !endpoint->IsIPv4()) return std::nullopt;
  return SocketAddress{endpoint->IPv4(), endpoint->Port()};
}

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

// False when the kernel refuses; errno(3) says why.
bool SetOption(int descriptor, SocketOption option, std::int32_t value) {
  const OptionName which = NameOf(option);
  if (option == SocketOption::kLingerSeconds) {
    const linger seconds{value >= 0 ? 1 : 0, std::max(value, 0)};
    return setsockopt(descriptor, which.level, which.name, &seconds, sizeof seconds) == 0;
  }
  return setsockopt(descriptor, which.level, which.name, &value, sizeof value) == 0;
}

}  // namespace

// What the connection and the listener report to: it stays where it is while the socket is moved, and outlives it until
// no handler is on the stack.
struct NotifyingSocket::Core final : TcpConnection::Client, TcpListener::Client {
  explicit Core(EventLoop& socketLoop) : loop(socketLoop), connection(loop, *this), listener(loop, *this) {}
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;
  ~Core() { loop.Core().Withdraw(this); }

  std::span<char> ReadBuffer() override;
  void OnConnected(TcpConnection&) override { Raise(&SocketHandlers::Connected); }
  void OnData(TcpConnection& connection, std::string_view bytes) override;
  void OnPeerEnded(TcpConnection&) override { Raise(&SocketHandlers::Closed); }
  void OnSent(TcpConnection& connection) override;
  void OnFailed(TcpConnection& connection, int error) override;
  void OnConnectionWaiting(TcpListener& listener) override;
  void OnListenerFailed(TcpListener&, int error) override { FailLater(error); }

  template <typename Handler, typename... Arguments>
  void Raise(Handler SocketHandlers::*which, Arguments&&... arguments);
  void RaiseFailed() { Raise(&SocketHandlers::Failed, lastError, std::string(SocketErrorText(lastError))); }

  void Close();
  void Open();
  void Adopt(UniqueDescriptor socket, const Endpoint& peer);
  int SendNext(std::string bytes);
  bool Refuse(int error);
  void Fail(int error);
  void FailLater(int error);
  int Descriptor() const { return listener.IsOpen() ? listener.Descriptor() : connection.Descriptor(); }

  EventLoop& loop;
  std::shared_ptr<const SocketHandlers> handlers = std::make_shared<const SocketHandlers>();
  TcpConnection connection;  // one of these two is open at most
  TcpListener listener;
  bool hasFailed = false;           // closed by a failure
  std::int32_t lastError = 0;       // a socket error number
  std::deque<std::string> waiting;  // texts that the connection has not been given yet
  std::size_t sending = 0;          // the size of the one that it has
  std::size_t waitingBytes = 0;     // of all of them
  std::unique_ptr<std::array<char, kChunkBytes>> chunk;
};

// ---- Opening and closing.

void NotifyingSocket::Core::Close() {
  connection.Close();
  listener.Close();
  waiting.clear();
  sending = waitingBytes = 0;
  hasFailed = false;
}

// Makes it ready to be opened.
void NotifyingSocket::Core::Open() {
  Close();
  lastError = 0;
}

// Takes over a connection that a listener has accepted.
void NotifyingSocket::Core::Adopt(UniqueDescriptor socket, const Endpoint& peer) {
  connection.Adopt(std::move(socket), peer);
  if (!connection.Watch()) FailLater(ENOBUFS);
}

// ---- Notifications.

template <typename Handler, typename... Arguments>
void NotifyingSocket::Core::Raise(Handler SocketHandlers::*which, Arguments&&... arguments) {
  const auto kept = handlers;  // outlives its own replacement
  const Handler& handler = (*kept).*which;
  const auto call = [&] { handler(std::forward<Arguments>(arguments)...); };
  if (handler) loop.Core().Guard("Socket", std::cref(call));
}

bool NotifyingSocket::Core::Refuse(int error) {
  lastError = SocketErrorOf(error);
  return false;
}

void NotifyingSocket::Core::Fail(int error) {
  Close();
  hasFailed = true;
  Refuse(error);
}

// Closes now, and reports it from the loop.
void NotifyingSocket::Core::FailLater(int error) {
  Fail(error);
  loop.Core().Post(this, [this, life = connection.Life()] {
    if (connection.Life() == life) RaiseFailed();
  });
}

void NotifyingSocket::Core::OnFailed(TcpConnection&, int error) {
  Fail(error);
  RaiseFailed();
}

// ---- Listening.

void NotifyingSocket::Core::OnConnectionWaiting(TcpListener&) {
  const std::uint64_t life = connection.Life();
  for (int left = kAcceptsPerTurn; left > 0 && connection.Life() == life; --left) {
    Endpoint peer;
    int error = 0;
    UniqueDescriptor socket = listener.Accept(peer, error);
    if (socket.IsOpen()) {
      auto accepted = std::make_shared<Core>(loop);
      accepted->Adopt(std::move(socket), peer);
      Raise(&SocketHandlers::Accepted, NotifyingSocket(std::move(accepted)));
    } else if (error == EAGAIN) {
      return;
    } else if (error != EINTR && error != ECONNABORTED) {
      Refuse(error);
      listener.Pause();
      return;
    }
  }
}

// ---- Connections.

std::span<char> NotifyingSocket::Core::ReadBuffer() {
  if (!chunk) chunk = std::make_unique<std::array<char, kChunkBytes>>();
  return *chunk;
}

void NotifyingSocket::Core::OnData(TcpConnection&, std::string_view bytes) {
  const std::string own(bytes);  // the handler may yield, and more be read meanwhile
  Raise(&SocketHandlers::Data, std::string_view(own));
}

// Gives the connection a text; what the kernel does not take of it waits.
int NotifyingSocket::Core::SendNext(std::string bytes) {
  const std::size_t size = bytes.size();
  const int error = connection.Send(Answer{std::move(bytes), std::string()}, false);
  if (connection.Status() != TcpConnection::State::kSending) return error;
  sending = size;
  waitingBytes += size;
  return error;
}

void NotifyingSocket::Core::OnSent(TcpConnection&) {
  waitingBytes -= std::exchange(sending, 0);
  if (waiting.empty()) return Raise(&SocketHandlers::Sent);
  while (!waiting.empty() && connection.Status() != TcpConnection::State::kSending) {
    std::string next = std::move(waiting.front());
    waiting.pop_front();
    waitingBytes -= next.size();
    if (const int error = SendNext(std::move(next))) return FailLater(error);
  }
}

// ---- The socket.

NotifyingSocket::NotifyingSocket(EventLoop& loop) : core_(std::make_shared<Core>(loop)) {}

NotifyingSocket::NotifyingSocket(std::shared_ptr<Core> core) : core_(std::move(core)) {}

NotifyingSocket& NotifyingSocket::operator=(NotifyingSocket&& other) noexcept {
  if (this == &other) return *this;
  Drop();
  core_ = std::move(other.core_);
  return *this;
}

NotifyingSocket::~NotifyingSocket() { Drop(); }

// One of its handlers may be running: it is closed and reports nothing more now, and is deleted later.
void NotifyingSocket::Drop() {
  if (!core_) return;
  core_->Close();
  Handlers({});
  EventLoop& loop = core_->loop;
  loop.DeleteLater(std::move(core_));
}

void NotifyingSocket::Handlers(SocketHandlers handlers) {
  core_->handlers = std::make_shared<const SocketHandlers>(std::move(handlers));
}

NotifyingSocket::State NotifyingSocket::Status() const {
  if (core_->listener.IsOpen()) return State::kListening;
  switch (core_->connection.Status()) {
    case TcpConnection::State::kClosed:
      return core_->hasFailed ? State::kFailed : State::kClosed;
    case TcpConnection::State::kConnecting:
      return State::kConnecting;
    default:
      return core_->connection.HasPeerEnded() ? State::kEnded : State::kConnected;
  }
}

std::int32_t NotifyingSocket::LastError() const { return core_->lastError; }

void NotifyingSocket::Connect(const SocketAddress& peer) {
  core_->Open();
  if (const int error = core_->connection.Connect(Endpoint(peer.address, peer.port))) core_->FailLater(error);
}

bool NotifyingSocket::Listen(const SocketAddress& own) {
  core_->Open();
  const int error = core_->listener.Open(Endpoint(own.address, own.port), TcpListener::Manner::kPlain);
  return error == 0 || core_->Refuse(error);
}

bool NotifyingSocket::Send(std::string bytes) {
  const State state = Status();
  if (state != State::kConnected && state != State::kEnded) return core_->Refuse(ENOTCONN);
  auto& waiting = core_->waiting;
  const std::size_t waitingTexts = waiting.size() + (core_->sending > 0 ? 1 : 0);
  if (core_->waitingBytes >= kMaxWaitingBytes || waitingTexts >= kMaxWaitingTexts) return core_->Refuse(EAGAIN);
  if (core_->connection.Status() == TcpConnection::State::kSending) {
    core_->waitingBytes += bytes.size();
    waiting.push_back(std::move(bytes));
    return true;
  }
  const int error = core_->SendNext(std::move(bytes));
  if (error == 0) return true;
  core_->FailLater(error);
  return false;
}

std::size_t NotifyingSocket::WaitingBytes() const { return core_->waitingBytes; }

void NotifyingSocket::Close() { core_->Close(); }

std::optional<SocketAddress> NotifyingSocket::PeerAddress() const {
  return AddressOf(Endpoint::PeerOf(core_->Descriptor()));
}

std::optional<SocketAddress> NotifyingSocket::OwnAddress() const {
  return AddressOf(Endpoint::OwnOf(core_->Descriptor()));
}

std::optional<std::int32_t> NotifyingSocket::Option(SocketOption option) const {
  const OptionName which = NameOf(option);
  if (option == SocketOption::kLingerSeconds) {
    linger value{};
    socklen_t size = sizeof value;
    if (getsockopt(core_->Descriptor(), which.level, which.name, &value, &size) != 0) return std::nullopt;
    return value.l_onoff != 0 ? value.l_linger : -1;
  }
  int value = 0;
  socklen_t size = sizeof value;
  if (getsockopt(core_->Descriptor(), which.level, which.name, &value, &size) != 0) return std::nullopt;
  return value;
}

bool NotifyingSocket::Option(SocketOption option, std::int32_t value) {
  return SetOption(core_->Descriptor(), option, value) || core_->Refuse(errno);
}

}  // namespace TesselServer
