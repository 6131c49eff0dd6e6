#include "platform/sockets/NotifyingSocket.h"

#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <deque>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/loop/LoopCore.h"
#include "platform/loop/Timer.h"
#include "platform/sockets/Answer.h"
#include "platform/sockets/Outgoing.h"
#include "platform/sockets/SocketErrors.h"
#include "platform/sockets/SocketOptions.h"
#include "platform/world/SystemErrors.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

namespace {

int OpenTcp() { return socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

sockaddr_in SystemAddress(const SocketAddress& address) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = address.address;
  name.sin_port = htons(address.port);
  return name;
}

using AddressCall = int (*)(int, sockaddr*, socklen_t*);

std::optional<SocketAddress> Ask(AddressCall call, int descriptor) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  if (call(descriptor, reinterpret_cast<sockaddr*>(&name), &size) != 0) return std::nullopt;
  return SocketAddress{name.sin_addr.s_addr, ntohs(name.sin_port)};
}

// The error that has come up on a socket, 0 for none.
int PendingError(int descriptor) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

}  // namespace

class NotifyingSocket::Core final : public LoopClient, public std::enable_shared_from_this<Core> {
 public:
  explicit Core(EventLoop& loop) : eventLoop_(loop), loop_(loop.Core()), rest_(loop) {
    rest_.Interval(kRestMilliseconds);
    rest_.OnTick([this] { EndRest(); });
  }
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;
  ~Core() {
    Shut(State::kClosed);
    loop_.Forget(*this);
  }

  void Connect(const SocketAddress& peer);
  bool Listen(const SocketAddress& own);
  void Adopt(int descriptor);
  bool Send(std::string bytes);
  void Shut(State state);
  std::optional<SocketAddress> Address(AddressCall call) const { return Ask(call, descriptor_.Get()); }
  std::optional<std::int32_t> Option(SocketOption option) const { return GetSocketOption(descriptor_.Get(), option); }
  bool Option(SocketOption option, std::int32_t value);

  void Handlers(SocketHandlers handlers) { handlers_ = std::make_shared<const SocketHandlers>(std::move(handlers)); }
  State Status() const { return state_; }
  std::int32_t LastError() const { return lastError_; }
  std::size_t WaitingBytes() const { return waitingBytes_; }

 private:
  struct Waiting {
    Outgoing outgoing;
    std::size_t size;
  };

  void OnEvents(std::uint64_t cookie, std::uint32_t events) override;
  void OnNotice(std::uint64_t cookie) override;

  std::uint32_t WantedEvents() const;
  bool UpdateWatch();
  void FinishConnecting();
  void ServeConnection(std::uint32_t events);
  void Read();
  int Write();
  void AcceptWaiting();
  void Rest();
  void EndRest();
  bool Refuse(std::int32_t number);
  void FailLater(int error);
  void Fail(std::int32_t number);
  template <typename Handler, typename... Arguments>
  void Raise(Handler SocketHandlers::*which, Arguments&&... arguments);

  EventLoop& eventLoop_;
  LoopCore& loop_;
  std::shared_ptr<const SocketHandlers> handlers_ = std::make_shared<const SocketHandlers>();

  State state_ = State::kClosed;
  std::uint64_t generation_ = 0;  // changes whenever the socket is opened or closed
  UniqueDescriptor descriptor_{-1};
  WatchId watch_ = 0;
  std::uint32_t watched_ = 0;     // the events it is watched for
  std::int32_t lastError_ = 0;    // a socket error number
  std::int32_t failureDue_ = 0;   // the one that Failed is to tell
  bool sentDue_ = false;          // Sent is to be raised
  std::deque<Waiting> waiting_;   // what the kernel has not taken
  std::size_t waitingBytes_ = 0;  // the sizes of all of them
  Timer rest_;                    // runs while a listener does not listen for want of descriptors
};

// ---- Opening and closing.

void NotifyingSocket::Core::Connect(const SocketAddress& peer) {
  Shut(State::kConnecting);
  lastError_ = 0;
  descriptor_ = UniqueDescriptor(OpenTcp());
  const sockaddr_in name = SystemAddress(peer);
  // one that a signal interrupts goes on by itself
  if (!descriptor_.IsOpen() ||
      (connect(descriptor_.Get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 && errno != EINPROGRESS &&
       errno != EINTR)) {
    FailLater(errno);
  } else if (!UpdateWatch()) {
    FailLater(ENOBUFS);
  }
}

bool NotifyingSocket::Core::Listen(const SocketAddress& own) {
  Shut(State::kClosed);
  lastError_ = 0;
  UniqueDescriptor listener(OpenTcp());
  const sockaddr_in name = SystemAddress(own);
  if (!listener.IsOpen() || !SetSocketOption(listener.Get(), SocketOption::kReuseAddress, 1) ||
      bind(listener.Get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 ||
      listen(listener.Get(), SOMAXCONN) != 0) {
    return Refuse(SocketErrorOf(errno));
  }
  descriptor_ = std::move(listener);
  state_ = State::kListening;
  if (UpdateWatch()) return true;
  Shut(State::kClosed);
  return Refuse(SocketErrorOf(ENOBUFS));
}

// Takes over a connection that came to a listener.
void NotifyingSocket::Core::Adopt(int descriptor) {
  descriptor_ = UniqueDescriptor(descriptor);
  state_ = State::kConnected;
  if (!UpdateWatch()) FailLater(ENOBUFS);
}

void NotifyingSocket::Core::Shut(State state) {
  loop_.Unwatch(std::exchange(watch_, 0));
  watched_ = 0;
  descriptor_ = UniqueDescriptor(-1);
  rest_.Enabled(false);
  waiting_.clear();
  waitingBytes_ = 0;
  failureDue_ = 0;
  sentDue_ = false;
  ++generation_;
  state_ = state;
}

bool NotifyingSocket::Core::Option(SocketOption option, std::int32_t value) {
  return SetSocketOption(descriptor_.Get(), option, value) || Refuse(SocketErrorOf(errno));
}

// ---- What the loop waits for.

// The one place that says which events a socket in its present state is watched for.
std::uint32_t NotifyingSocket::Core::WantedEvents() const {
  const std::uint32_t forWriting = waiting_.empty() ? 0u : std::uint32_t{EPOLLOUT};
  switch (state_) {
    case State::kListening:
      return rest_.Enabled() ? 0u : std::uint32_t{EPOLLIN};
    case State::kConnecting:
      return EPOLLOUT;
    case State::kConnected:
      return EPOLLIN | forWriting;
    case State::kEnded:
      return forWriting;
    default:
      return 0;
  }
}

// False when the kernel refuses to watch the socket.
bool NotifyingSocket::Core::UpdateWatch() {
  const std::uint32_t wanted = WantedEvents();
  if (watch_ == 0) {
    watch_ = loop_.Watch(descriptor_.Get(), wanted, *this, 0);
  } else if (wanted != watched_) {
    loop_.Change(watch_, wanted);
  }
  watched_ = wanted;
  return watch_ != 0;
}

void NotifyingSocket::Core::OnEvents(std::uint64_t, std::uint32_t events) {
  const auto self = shared_from_this();  // a handler may destroy the socket
  if (state_ == State::kListening) {
    AcceptWaiting();
  } else if (state_ == State::kConnecting) {
    FinishConnecting();
  } else {
    ServeConnection(events);
  }
}

// What is due was due when the socket was last used; a socket that was closed since has nothing due.
void NotifyingSocket::Core::OnNotice(std::uint64_t) {
  const auto self = shared_from_this();
  if (failureDue_ != 0) {
    Fail(failureDue_);
  } else if (std::exchange(sentDue_, false)) {
    Raise(&SocketHandlers::Sent);
  }
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

bool NotifyingSocket::Core::Refuse(std::int32_t number) {
  lastError_ = number;
  return false;
}

// Lets go of the descriptor now, and tells of it out of the loop.
void NotifyingSocket::Core::FailLater(int error) {
  Shut(State::kFailed);
  lastError_ = failureDue_ = SocketErrorOf(error);
  loop_.Post(*this, 0);
}

void NotifyingSocket::Core::Fail(std::int32_t number) {
  Shut(State::kFailed);
  lastError_ = number;
  Raise(&SocketHandlers::Failed, number, std::string(SocketErrorText(number)));
}

// ---- Connecting and listening.

void NotifyingSocket::Core::FinishConnecting() {
  const int error = PendingError(descriptor_.Get());
  if (error != 0) {
    Fail(SocketErrorOf(error));
    return;
  }
  state_ = State::kConnected;
  UpdateWatch();
  Raise(&SocketHandlers::Connected);
}

void NotifyingSocket::Core::AcceptWaiting() {
  const std::uint64_t generation = generation_;
  for (int left = kAcceptsPerTurn; left > 0 && generation_ == generation; --left) {
    const int descriptor = accept4(descriptor_.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor >= 0) {
      auto connection = std::make_shared<Core>(eventLoop_);
      connection->Adopt(descriptor);
      Raise(&SocketHandlers::Accepted, NotifyingSocket(std::move(connection)));
    } else if (errno == EAGAIN) {
      return;
    } else if (errno != EINTR && errno != ECONNABORTED) {
      Rest();
      return;
    }
  }
}

void NotifyingSocket::Core::Rest() {
  Refuse(SocketErrorOf(errno));
  rest_.Enabled(true);
  UpdateWatch();
}

void NotifyingSocket::Core::EndRest() {
  rest_.Enabled(false);
  UpdateWatch();
}

// ---- Connections.

void NotifyingSocket::Core::ServeConnection(std::uint32_t events) {
  const std::uint64_t generation = generation_;
  const bool broken = (events & (EPOLLERR | EPOLLHUP)) != 0;
  int error = broken && state_ == State::kEnded ? ECONNRESET : 0;
  if (error == 0 && !waiting_.empty() && (broken || (events & EPOLLOUT) != 0)) {
    error = Write();
    if (error == 0 && waiting_.empty()) Raise(&SocketHandlers::Sent);
  }
  if (generation_ != generation) return;
  if (error != 0) {
    Fail(SocketErrorOf(error));
    return;
  }
  if (state_ == State::kConnected && (broken || (events & EPOLLIN) != 0)) Read();
  if (generation_ == generation) UpdateWatch();
}

void NotifyingSocket::Core::Read() {
  std::array<char, kChunkBytes> chunk;
  const ssize_t count = recv(descriptor_.Get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
  if (count > 0) {
    Raise(&SocketHandlers::Data, std::string_view(chunk.data(), static_cast<std::size_t>(count)));
  } else if (count == 0) {
    state_ = State::kEnded;
    Raise(&SocketHandlers::Closed);
  } else if (errno != EAGAIN && errno != EINTR) {
    Fail(SocketErrorOf(errno));
  }
}

bool NotifyingSocket::Core::Send(std::string bytes) {
  if (state_ != State::kConnected && state_ != State::kEnded) return Refuse(SocketErrorNumber::kNotConnected);
  if (waitingBytes_ >= kMaxWaitingBytes || waiting_.size() >= kMaxWaitingTexts)
    return Refuse(SocketErrorNumber::kWouldBlock);
  const std::size_t size = bytes.size();
  const bool first = waiting_.empty();
  waiting_.push_back({Outgoing(Answer{std::move(bytes), std::string()}), size});
  waitingBytes_ += size;
  sentDue_ = false;
  if (!first) return true;
  const int error = Write();
  if (error != 0) {
    FailLater(error);
    return false;
  }
  if (waiting_.empty()) {
    sentDue_ = true;
    loop_.Post(*this, 0);
  } else {
    UpdateWatch();
  }
  return true;
}

// Gives the kernel what it takes. The error of a broken connection, 0 for none.
int NotifyingSocket::Core::Write() {
  while (!waiting_.empty()) {
    Waiting& next = waiting_.front();
    const Outgoing::Result result = next.outgoing.Step(descriptor_.Get());
    if (result == Outgoing::Result::kFailed) return next.outgoing.Error();
    if (result != Outgoing::Result::kDone) return 0;
    waitingBytes_ -= next.size;
    waiting_.pop_front();
  }
  return 0;
}

// ---- The handle.

NotifyingSocket::NotifyingSocket(EventLoop& loop) : core_(std::make_shared<Core>(loop)) {}

NotifyingSocket::NotifyingSocket(std::shared_ptr<Core> core) : core_(std::move(core)) {}

NotifyingSocket& NotifyingSocket::operator=(NotifyingSocket&& other) noexcept {
  if (this == &other) return *this;
  if (core_) core_->Shut(State::kClosed);
  core_ = std::move(other.core_);
  return *this;
}

// A handler that is running keeps the core a little longer: it must be closed and deaf all the same.
NotifyingSocket::~NotifyingSocket() {
  if (core_) core_->Shut(State::kClosed);
}

void NotifyingSocket::Handlers(SocketHandlers handlers) { core_->Handlers(std::move(handlers)); }

NotifyingSocket::State NotifyingSocket::Status() const { return core_->Status(); }

std::int32_t NotifyingSocket::LastError() const { return core_->LastError(); }

void NotifyingSocket::Connect(const SocketAddress& peer) { core_->Connect(peer); }

bool NotifyingSocket::Listen(const SocketAddress& own) { return core_->Listen(own); }

bool NotifyingSocket::Send(std::string bytes) { return core_->Send(std::move(bytes)); }

std::size_t NotifyingSocket::WaitingBytes() const { return core_->WaitingBytes(); }

void NotifyingSocket::Close() { core_->Shut(State::kClosed); }

std::optional<SocketAddress> NotifyingSocket::PeerAddress() const {
  return core_->Address([](int socket, sockaddr* name, socklen_t* size) { return getpeername(socket, name, size); });
}

std::optional<SocketAddress> NotifyingSocket::OwnAddress() const {
  return core_->Address([](int socket, sockaddr* name, socklen_t* size) { return getsockname(socket, name, size); });
}

std::optional<std::int32_t> NotifyingSocket::Option(SocketOption option) const { return core_->Option(option); }

bool NotifyingSocket::Option(SocketOption option, std::int32_t value) { return core_->Option(option, value); }

}  // namespace TesselServer
