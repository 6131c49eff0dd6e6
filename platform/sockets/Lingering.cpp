#include "platform/sockets/Lingering.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <new>

#include "platform/loop/EventLoop.h"
#include "platform/world/World.h"

namespace TesselServer {

namespace {

constexpr std::int32_t kTickMilliseconds = 250;

}  // namespace

Lingering::Lingering(EventLoop& loop) : loop_(loop.Core()), timer_(loop) {
  timer_.Interval(kTickMilliseconds);
  timer_.OnTick([this] { CloseOverdue(); });
}

Lingering::~Lingering() {
  while (!open_.empty()) End(open_.begin()->first);
}

void Lingering::Take(int descriptor) noexcept {
  shutdown(descriptor, SHUT_WR);
  if (open_.size() >= kMaxCount && !deadlines_.empty()) {
    while (!open_.contains(deadlines_.front().first)) deadlines_.pop_front();
    End(deadlines_.front().first);
  }
  const std::uint64_t number = ++lastNumber_;
  try {
    Await(descriptor, number);
  } catch (const std::bad_alloc&) {
    open_.contains(number) ? End(number) : void(close(descriptor));
  }
}

void Lingering::Await(int descriptor, std::uint64_t number) {
  timer_.Enabled(true);
  deadlines_.emplace_back(number, loop_.TheWorld().MonotonicMilliseconds() + kMilliseconds);
  Entry& entry = open_.emplace(number, Entry{descriptor, 0}).first->second;
  entry.watch = loop_.Watch(descriptor, EPOLLIN | EPOLLRDHUP, *this, number);
  if (entry.watch == 0) End(number);
}

void Lingering::OnEvents(std::uint64_t cookie, std::uint32_t) {
  const auto found = open_.find(cookie);
  if (found == open_.end()) return;
  // MSG_TRUNC on a TCP socket drops the bytes in the kernel, tcp(7)
  const ssize_t count = recv(found->second.descriptor, nullptr, kBytesPerTurn, MSG_TRUNC | MSG_DONTWAIT);
  if (count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR))) return;
  End(cookie);
}

void Lingering::OnNotice(std::uint64_t) {}

void Lingering::CloseOverdue() {
  while (!deadlines_.empty() && deadlines_.front().second <= loop_.Now()) {
    End(deadlines_.front().first);
    deadlines_.pop_front();
  }
  if (open_.empty()) {
    deadlines_.clear();
    timer_.Enabled(false);
  }
}

void Lingering::End(std::uint64_t number) {
  const auto found = open_.find(number);
  if (found == open_.end()) return;
  loop_.Unwatch(found->second.watch);
  close(found->second.descriptor);
  open_.erase(found);
}

}  // namespace TesselServer
