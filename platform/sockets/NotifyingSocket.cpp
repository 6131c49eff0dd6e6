#include "platform/sockets/NotifyingSocket.h"

#include <array>
#include <cerrno>
#include <deque>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/SocketOptions.h"
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

}  // namespace

class NotifyingSocket::Core final : public TcpConnection::Client, public TcpListener::Client {
 public:
  explicit Core(EventLoop& loop) : loop_(loop), connection_(loop, *this), listener_(loop, *this) {}
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;
  ~Core() { loop_.Core().Withdraw(this); }

  void Connect(const SocketAddress& peer);
  bool Listen(const SocketAddress& own);
  void Adopt(UniqueDescriptor socket, const Endpoint& peer);
  bool Send(std::string bytes);
  void Close();

  void Handlers(SocketHandlers handlers) { handlers_ = std::make_shared<const SocketHandlers>(std::move(handlers)); }
  State Status() const;
  std::int32_t LastError() const { return lastError_; }
  std::size_t WaitingBytes() const { return waitingBytes_; }
  int Descriptor() const { return listener_.IsOpen() ? listener_.Descriptor() : connection_.Descriptor(); }
  bool Option(SocketOption option, std::int32_t value);
  EventLoop& Loop() const { return loop_; }

 private:
  std::span<char> ReadBuffer() override;
  void OnConnected(TcpConnection&) override { Raise(&SocketHandlers::Connected); }
  void OnData(TcpConnection& connection, std::string_view bytes) override;
  void OnPeerEnded(TcpConnection&) override { Raise(&SocketHandlers::Closed); }
  void OnSent(TcpConnection& connection) override;
  void OnFailed(TcpConnection& connection, int error) override;
  void OnConnectionWaiting(TcpListener& listener) override;
  void OnListenerFailed(TcpListener&, int error) override { FailLater(error); }

  int SendNext(std::string bytes);
  bool Refuse(int error);
  void FailLater(int error);
  template <typename Handler, typename... Arguments>
  void Raise(Handler SocketHandlers::*which, Arguments&&... arguments);

  EventLoop& loop_;
  std::shared_ptr<const SocketHandlers> handlers_ = std::make_shared<const SocketHandlers>();
  TcpConnection connection_;  // one of these two is open at most
  TcpListener listener_;
  std::uint64_t generation_ = 0;     // changes whenever the socket is opened or closed
  bool hasFailed_ = false;           // closed by a failure
  std::int32_t lastError_ = 0;       // a socket error number
  std::deque<std::string> waiting_;  // texts that the connection has not been given yet
  std::size_t sending_ = 0;          // the size of the one that it has
  std::size_t waitingBytes_ = 0;     // of all of them
  std::unique_ptr<std::array<char, kChunkBytes>> chunk_;
};

// ---- Opening and closing.

NotifyingSocket::State NotifyingSocket::Core::Status() const {
  if (listener_.IsOpen()) return State::kListening;
  switch (connection_.Status()) {
    case TcpConnection::State::kClosed:
      return hasFailed_ ? State::kFailed : State::kClosed;
    case TcpConnection::State::kConnecting:
      return State::kConnecting;
    default:
      return connection_.HasPeerEnded() ? State::kEnded : State::kConnected;
  }
}

void NotifyingSocket::Core::Close() {
  connection_.Close();
  listener_.Close();
  waiting_.clear();
  sending_ = waitingBytes_ = 0;
  hasFailed_ = false;
  ++generation_;
}

void NotifyingSocket::Core::Connect(const SocketAddress& peer) {
  Close();
  lastError_ = 0;
  if (const int error = connection_.Connect(Endpoint(peer.address, peer.port))) FailLater(error);
}

bool NotifyingSocket::Core::Listen(const SocketAddress& own) {
  Close();
  lastError_ = 0;
  const int error = listener_.Open(Endpoint(own.address, own.port), TcpListener::Manner::kPlain);
  return error == 0 || Refuse(error);
}

// Takes over a connection that a listener has accepted.
void NotifyingSocket::Core::Adopt(UniqueDescriptor socket, const Endpoint& peer) {
  connection_.Adopt(std::move(socket), peer);
  if (!connection_.Watch()) FailLater(ENOBUFS);
}

bool NotifyingSocket::Core::Option(SocketOption option, std::int32_t value) {
  return SetSocketOption(Descriptor(), option, value) || Refuse(errno);
}

// ---- Notifications.

template <typename Handler, typename... Arguments>
void NotifyingSocket::Core::Raise(Handler SocketHandlers::*which, Arguments&&... arguments) {
  const auto handlers = handlers_;  // outlives its own replacement
  if (!((*handlers).*which)) return;
  try {
    ((*handlers).*which)(std::forward<Arguments>(arguments)...);
  } catch (...) {  // a handler's own failure must not end the host's loop
  }
}

bool NotifyingSocket::Core::Refuse(int error) {
  lastError_ = SocketErrorOf(error);
  return false;
}

// Closes now, and reports it from the loop.
void NotifyingSocket::Core::FailLater(int error) {
  Close();
  hasFailed_ = true;
  Refuse(error);
  loop_.Core().Post(this, [this, generation = generation_] {
    if (generation_ != generation) return;
    Raise(&SocketHandlers::Failed, lastError_, std::string(SocketErrorText(lastError_)));
  });
}

void NotifyingSocket::Core::OnFailed(TcpConnection&, int error) {
  Close();
  hasFailed_ = true;
  Refuse(error);
  Raise(&SocketHandlers::Failed, lastError_, std::string(SocketErrorText(lastError_)));
}

// ---- Listening.

void NotifyingSocket::Core::OnConnectionWaiting(TcpListener&) {
  const std::uint64_t generation = generation_;
  for (int left = kAcceptsPerTurn; left > 0 && generation_ == generation; --left) {
    Endpoint peer;
    int error = 0;
    UniqueDescriptor accepted = listener_.Accept(peer, error);
    if (accepted.IsOpen()) {
      auto connection = std::make_shared<Core>(loop_);
      connection->Adopt(std::move(accepted), peer);
      Raise(&SocketHandlers::Accepted, NotifyingSocket(std::move(connection)));
    } else if (error == EAGAIN) {
      return;
    } else if (error != EINTR && error != ECONNABORTED) {
      Refuse(error);
      listener_.Pause();
      return;
    }
  }
}

// ---- Connections.

std::span<char> NotifyingSocket::Core::ReadBuffer() {
  if (!chunk_) chunk_ = std::make_unique<std::array<char, kChunkBytes>>();
  return *chunk_;
}

void NotifyingSocket::Core::OnData(TcpConnection&, std::string_view bytes) {
  const std::string own(bytes);  // the handler may yield, and more be read meanwhile
  Raise(&SocketHandlers::Data, std::string_view(own));
}

bool NotifyingSocket::Core::Send(std::string bytes) {
  const State state = Status();
  if (state != State::kConnected && state != State::kEnded) return Refuse(ENOTCONN);
  const std::size_t waitingTexts = waiting_.size() + (sending_ > 0 ? 1 : 0);
  if (waitingBytes_ >= kMaxWaitingBytes || waitingTexts >= kMaxWaitingTexts) return Refuse(EAGAIN);
  if (connection_.Status() == TcpConnection::State::kSending) {
    waitingBytes_ += bytes.size();
    waiting_.push_back(std::move(bytes));
    return true;
  }
  const int error = SendNext(std::move(bytes));
  if (error == 0) return true;
  FailLater(error);
  return false;
}

// Gives the connection a text; what the kernel does not take of it waits.
int NotifyingSocket::Core::SendNext(std::string bytes) {
  const std::size_t size = bytes.size();
  const int error = connection_.Send(Answer{std::move(bytes), std::string()}, false);
  if (connection_.Status() != TcpConnection::State::kSending) return error;
  sending_ = size;
  waitingBytes_ += size;
  return error;
}

void NotifyingSocket::Core::OnSent(TcpConnection&) {
  waitingBytes_ -= std::exchange(sending_, 0);
  if (waiting_.empty()) return Raise(&SocketHandlers::Sent);
  while (!waiting_.empty() && connection_.Status() != TcpConnection::State::kSending) {
    std::string next = std::move(waiting_.front());
    waiting_.pop_front();
    waitingBytes_ -= next.size();
    if (const int error = SendNext(std::move(next))) return FailLater(error);
  }
}

// ---- The handle.

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
  core_->Handlers({});
  EventLoop& loop = core_->Loop();
  loop.DeleteLater(std::move(core_));
}

void NotifyingSocket::Handlers(SocketHandlers handlers) { core_->Handlers(std::move(handlers)); }

NotifyingSocket::State NotifyingSocket::Status() const { return core_->Status(); }

std::int32_t NotifyingSocket::LastError() const { return core_->LastError(); }

void NotifyingSocket::Connect(const SocketAddress& peer) { core_->Connect(peer); }

bool NotifyingSocket::Listen(const SocketAddress& own) { return core_->Listen(own); }

bool NotifyingSocket::Send(std::string bytes) { return core_->Send(std::move(bytes)); }

std::size_t NotifyingSocket::WaitingBytes() const { return core_->WaitingBytes(); }

void NotifyingSocket::Close() { core_->Close(); }

std::optional<SocketAddress> NotifyingSocket::PeerAddress() const {
  return AddressOf(Endpoint::PeerOf(core_->Descriptor()));
}

std::optional<SocketAddress> NotifyingSocket::OwnAddress() const {
  return AddressOf(Endpoint::OwnOf(core_->Descriptor()));
}

std::optional<std::int32_t> NotifyingSocket::Option(SocketOption option) const {
  return GetSocketOption(core_->Descriptor(), option);
}

bool NotifyingSocket::Option(SocketOption option, std::int32_t value) { return core_->Option(option, value); }

}  // namespace TesselServer
