// A TCP client that sends exactly the bytes it is told, and lets the server's loop run while it waits for the answer.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "platform/loop/EventLoop.h"

namespace TesselServer::Kit {

// Runs the loop until `done` holds. False when it does not within half a minute, which is long on a starved machine
// too.
inline bool RunUntil(EventLoop& loop, const std::function<bool()>& done) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!done()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    loop.RunOnce(2);
  }
  return true;
}

// Runs the loop until it has had nothing to do for a while.
inline void Settle(EventLoop& loop) {
  for (int quiet = 0; quiet < 5;) quiet = loop.RunOnce(2) ? 0 : quiet + 1;
}

class RawClient {
 public:
  // Connects to the port on 127.0.0.1; the kernel answers even when the server's loop is not running.
  explicit RawClient(std::int32_t port) : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(static_cast<std::uint16_t>(port));
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(descriptor_, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0) {
      close(descriptor_);
      throw std::runtime_error("connect failed: " + std::to_string(errno));
    }
    const int one = 1;
    setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    fcntl(descriptor_, F_SETFL, O_NONBLOCK);
  }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;
  ~RawClient() { Close(); }

  // Sends all bytes, running the loop while the kernel takes no more. False when the server is gone.
  bool Send(EventLoop& loop, std::string_view bytes) {
    return RunUntil(loop,
                    [&] {
                      while (!bytes.empty()) {
                        const ssize_t count = send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
                        if (count < 0) return errno != EAGAIN;
                        bytes.remove_prefix(static_cast<std::size_t>(count));
                      }
                      return true;
                    }) &&
           bytes.empty();
  }

  // Reads what is there now. True when the server closed the connection.
  bool Poll() {
    std::array<char, 65536> chunk;
    while (!ended_) {
      const ssize_t count = read(descriptor_, chunk.data(), chunk.size());
      if (count > 0) {
        received_.append(chunk.data(), static_cast<std::size_t>(count));
      } else if (count == 0) {
        ended_ = true;
      } else if (errno == EAGAIN) {
        break;
      } else {
        ended_ = true;
        wasReset_ = true;
      }
    }
    return ended_;
  }

  // Reads until the server closes the connection, at most half a minute. The bytes received.
  const std::string& ReceiveAll(EventLoop& loop) {
    RunUntil(loop, [this] { return Poll(); });
    return received_;
  }

  const std::string& Received() const { return received_; }
  bool Ended() const { return ended_; }
  bool WasReset() const { return wasReset_; }
  int Descriptor() const { return descriptor_; }

  void EndSending() { shutdown(descriptor_, SHUT_WR); }

  void Close() {
    if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
  }

  // Goes away with a reset.
  void Abort() {
    const linger now{1, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    Close();
  }

 private:
  int descriptor_;
  std::string received_;
  bool ended_ = false;
  bool wasReset_ = false;
};

// Sends one request and returns the whole answer.
inline std::string Exchange(EventLoop& loop, std::int32_t port, std::string_view request) {
  RawClient client(port);
  client.Send(loop, request);
  return client.ReceiveAll(loop);
}

}  // namespace TesselServer::Kit
