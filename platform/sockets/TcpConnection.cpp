#include "platform/sockets/TcpConnection.h"

#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "platform/loop/EventLoop.h"

namespace TesselServer {

namespace {

// The pending error of a socket (SO_ERROR, socket(7)), 0 for none.
int PendingError(int socket) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

bool MustWait(int error) { return error == EAGAIN || error == EINTR; }

}  // namespace

TcpConnection::TcpConnection(EventLoop& loop, Client& client, std::uint64_t cookie, DiskAccess* disk)
    : loop_(loop.Core()), client_(client), cookie_(cookie), disk_(disk) {}

TcpConnection::~TcpConnection() {
  Close();
  loop_.Withdraw(this);
}

// ---- Opening and closing.

int TcpConnection::Connect(const Endpoint& peer) {
  Close();
  socket_ = UniqueDescriptor(socket(peer.Family(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket_.IsOpen()) return errno;
  // one that a signal interrupts goes on by itself
  if (connect(socket_.Get(), peer.Name(), peer.NameSize()) != 0 && errno != EINPROGRESS && errno != EINTR) {
    const int error = errno;
    Close();
    return error;
  }
  peer_ = peer;
  state_ = State::kConnecting;
  if (Watch()) return 0;
  Close();
  return ENOBUFS;
}

void TcpConnection::Adopt(UniqueDescriptor socket, const Endpoint& peer) {
  Close();
  socket_ = std::move(socket);
  peer_ = peer;
  state_ = State::kReceiving;
}

void TcpConnection::Close() {
  loop_.Unwatch(std::exchange(watch_, 0));
  socket_ = UniqueDescriptor(-1);
  watched_ = 0;
  state_ = State::kClosed;
  ++life_;
  peerEnded_ = false;
  inputMayCome_ = true;
  drained_ = true;
  oneAtATime_ = false;
  putBack_.clear();
  fetching_ = {};
  outgoing_.reset();
}

bool TcpConnection::Linger(LingerClient& client) {
  const bool isOpen = state_ == State::kReceiving || state_ == State::kAnswering || state_ == State::kSent;
  if (!isOpen || peerEnded_ || !(inputMayCome_ || !drained_ || HasUnread())) {
    Close();
    return false;
  }
  shutdown(socket_.Get(), SHUT_WR);
  state_ = State::kLingering;
  lingerClient_ = &client;
  ++life_;
  if (Watch()) return true;
  Close();
  return false;
}

bool TcpConnection::HasUnread() const {
  int count = 0;
  return ioctl(socket_.Get(), FIONREAD, &count) == 0 && count > 0;
}

void TcpConnection::Fail(int error) {
  Close();
  client_.OnFailed(*this, error);
}

// ---- What the loop waits for, and what it means.

std::uint32_t TcpConnection::WantedEvents() const {
  const std::uint32_t input = MayRead() ? std::uint32_t{EPOLLIN} : 0u;
  switch (state_) {
    case State::kConnecting:
      return EPOLLOUT;
    case State::kReceiving:
    case State::kAnswering:
    case State::kFetching:
    case State::kSent:
      return input;
    case State::kSending:
      return input | std::uint32_t{EPOLLOUT};
    case State::kLingering:
      return std::uint32_t{EPOLLIN} | std::uint32_t{EPOLLRDHUP};
    case State::kClosed:
      break;
  }
  return 0;
}

bool TcpConnection::Watch() {
  if (state_ == State::kClosed) return true;
  const std::uint32_t wanted = WantedEvents();
  if (watch_ == 0) {
    watch_ = loop_.Watch(socket_.Get(), wanted, *this);
  } else if (wanted != watched_) {
    loop_.Change(watch_, wanted);
  }
  watched_ = wanted;
  return watch_ != 0;
}

void TcpConnection::OnEvents(std::uint32_t events) {
  switch (state_) {
    case State::kConnecting:
      FinishConnecting();
      break;
    case State::kReceiving:
    case State::kAnswering:
    case State::kSending:
    case State::kFetching:
    case State::kSent:
      Serve(events);
      break;
    case State::kLingering:
      Drop();
      break;
    case State::kClosed:
      break;
  }
}

void TcpConnection::FinishConnecting() {
  if (const int error = PendingError(socket_.Get())) return Fail(error);
  state_ = State::kReceiving;
  Watch();
  client_.OnConnected(*this);
}

void TcpConnection::Serve(std::uint32_t events) {
  const std::uint64_t life = life_;
  const bool broken = (events & (EPOLLERR | EPOLLHUP)) != 0;
  if (broken && !MayRead()) return Fail(ECONNRESET);
  if (state_ == State::kSending && (broken || (events & EPOLLOUT) != 0) && !Write()) return;
  if (life_ == life && state_ == State::kSent) FinishSend();
  if (life_ == life && MayRead() && (broken || (events & EPOLLIN) != 0)) Read();
  if (life_ == life && state_ == State::kSent) FinishSend();
  if (life_ == life && state_ == State::kReceiving && !putBack_.empty()) ReadPutBackSoon();
  if (life_ == life && !Watch()) Fail(ENOBUFS);
}

void TcpConnection::Drop() {
  // MSG_TRUNC on a TCP socket drops the bytes in the kernel, tcp(7)
  const ssize_t count = recv(socket_.Get(), nullptr, kDroppedPerTurn, MSG_TRUNC | MSG_DONTWAIT);
  if (count > 0 || (count < 0 && MustWait(errno))) return;
  Close();
  lingerClient_->OnLingered(*this);
}

// ---- Receiving.

void TcpConnection::ReadNow() { Serve(EPOLLIN); }

void TcpConnection::Read() {
  const std::span<char> room = client_.ReadBuffer();
  if (!putBack_.empty()) {
    const std::size_t count = putBack_.copy(room.data(), room.size());
    putBack_.erase(0, count);
    drained_ = false;
    return client_.OnData(*this, {room.data(), count});
  }
  const ssize_t count = recv(socket_.Get(), room.data(), room.size(), MSG_DONTWAIT);
  if (count > 0) {
    drained_ = static_cast<std::size_t>(count) < room.size();
    client_.OnData(*this, {room.data(), static_cast<std::size_t>(count)});
  } else if (count == 0) {
    peerEnded_ = true;
    client_.OnPeerEnded(*this);
  } else if (MustWait(errno)) {
    drained_ = true;
  } else {
    Fail(errno);
  }
}

// In a turn of its own, so that a client that sends its requests together does not keep the others waiting.
void TcpConnection::ReadPutBackSoon() {
  loop_.Post(this, [this, life = life_] {
    if (life_ == life && state_ == State::kReceiving) Serve(EPOLLIN);
  });
}

void TcpConnection::AnswerPending(bool pending) {
  if (state_ == State::kReceiving && pending) state_ = State::kAnswering;
  if (state_ == State::kAnswering && !pending) state_ = State::kReceiving;
}

// ---- Sending.

int TcpConnection::Send(Answer answer, bool closeFollows) {
  if (state_ != State::kReceiving && state_ != State::kAnswering && state_ != State::kSent) return ENOTCONN;
  Outgoing outgoing(std::move(answer), closeFollows, disk_);
  const Outgoing::Result result = outgoing.Step(socket_.Get());
  switch (result) {
    case Outgoing::Result::kFailed:
      return outgoing.Error();
    case Outgoing::Result::kDone:
      // the host may yield before it returns to where FinishSend is called
      if (state_ == State::kSent) return 0;
      loop_.Post(this, [this, life = life_] {
        if (life_ == life) Serve(0);
      });
      state_ = State::kSent;
      return 0;
    case Outgoing::Result::kBlocked:
    case Outgoing::Result::kAgain:
    case Outgoing::Result::kWaitsForDisk:
      break;
  }
  outgoing_ = std::make_unique<Outgoing>(std::move(outgoing));  // before the state says that it exists: it may throw
  const State before = std::exchange(state_, State::kSending);
  int error = result == Outgoing::Result::kWaitsForDisk ? StartFetching() : 0;
  if (error == 0 && !Watch()) error = ENOBUFS;
  if (error == 0) return 0;
  fetching_ = {};
  outgoing_.reset();
  state_ = before;
  return error;
}

// The next step of an answer that did not go out at once. False when the connection failed.
bool TcpConnection::Write() {
  switch (outgoing_->Step(socket_.Get())) {
    case Outgoing::Result::kFailed:
      Fail(outgoing_->Error());
      return false;
    case Outgoing::Result::kDone:
      outgoing_.reset();
      state_ = State::kSent;
      break;
    case Outgoing::Result::kWaitsForDisk:
      if (const int error = StartFetching()) {
        Fail(error);
        return false;
      }
      break;
    case Outgoing::Result::kBlocked:
    case Outgoing::Result::kAgain:
      break;
  }
  return true;
}

// Has the next bytes of the file read beside the loop. 0, or the error.
int TcpConnection::StartFetching() {
  try {
    state_ = State::kFetching;
    fetching_ = RunningTask::Start(GoOnAfter(outgoing_->Fetch()));
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
  return 0;
}

// The next step is made as soon as the kernel takes bytes again.
Task<> TcpConnection::GoOnAfter(Task<> given) {
  Task<> fetch = std::move(given);
  co_await fetch;
  state_ = State::kSending;
  Watch();
}

void TcpConnection::FinishSend() {
  state_ = State::kReceiving;
  client_.OnSent(*this);
}

}  // namespace TesselServer
