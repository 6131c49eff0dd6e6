// A pipe, and a client of the loop that hears of it.
#pragma once

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <functional>
#include <list>
#include <stdexcept>

#include "platform/loop/LoopCore.h"

namespace TesselServer::Kit {

class Pipe {
 public:
  Pipe() {
    if (pipe2(ends_, O_NONBLOCK | O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    close(ends_[0]);
    close(ends_[1]);
  }

  int ReadEnd() const { return ends_[0]; }
  int WriteEnd() const { return ends_[1]; }

  // Makes the read end readable.
  void Fill() const { [[maybe_unused]] const auto count = write(ends_[1], "x", 1); }
  // Takes back what Fill put in.
  void Drain() const {
    char bytes[64];
    while (read(ends_[0], bytes, sizeof bytes) > 0) {
    }
  }

 private:
  int ends_[2] = {-1, -1};
};

// Does what the test tells it with each event of its watches and each task of its own, and takes both back when it
// dies.
class LoopEar final {
 public:
  explicit LoopEar(LoopCore& core) : core_(core) {}
  LoopEar(const LoopEar&) = delete;
  LoopEar& operator=(const LoopEar&) = delete;
  ~LoopEar() {
    for (const Watched& each : watched_) core_.Unwatch(each.watch);
    core_.Withdraw(this);
  }

  std::function<void(std::uint64_t)> onEvents = [](std::uint64_t) {};
  std::function<void(std::uint64_t)> onTask = [](std::uint64_t) {};

  WatchId Watch(const Pipe& pipe, std::uint64_t cookie) { return Watch(pipe.ReadEnd(), cookie); }
  WatchId Watch(int descriptor, std::uint64_t cookie) {
    Watched& added = watched_.emplace_back(*this, cookie);
    return added.watch = core_.Watch(descriptor, EPOLLIN, added);
  }
  void Post(std::uint64_t cookie) {
    core_.Post(this, [this, cookie] { onTask(cookie); });
  }

 private:
  struct Watched final : LoopClient {
    Watched(LoopEar& owner, std::uint64_t number) : ear(owner), cookie(number) {}
    void OnEvents(std::uint32_t) override { ear.onEvents(cookie); }

    LoopEar& ear;
    const std::uint64_t cookie;
    WatchId watch = 0;
  };

  LoopCore& core_;
  std::list<Watched> watched_;
};

}  // namespace TesselServer::Kit
