// Two connected TCP sockets of this machine, neither of them ever waiting.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <utility>

namespace TesselServer::Kit {

class TcpPair {
 public:
  TcpPair() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof name;
    bind(listener, reinterpret_cast<sockaddr*>(&name), sizeof name);
    listen(listener, 1);
    getsockname(listener, reinterpret_cast<sockaddr*>(&name), &size);
    peer_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int connected = connect(peer_, reinterpret_cast<sockaddr*>(&name), sizeof name);
    own_ = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    close(listener);
    if (connected != 0 || own_ < 0) throw std::runtime_error("no connection");
  }
  TcpPair(const TcpPair&) = delete;
  TcpPair& operator=(const TcpPair&) = delete;
  ~TcpPair() {
    ClosePeer();
    if (own_ >= 0) close(own_);
  }

  int Own() const { return own_; }
  int Peer() const { return peer_; }
  int ReleaseOwn() { return std::exchange(own_, -1); }

  void ClosePeer() {
    if (peer_ >= 0) close(std::exchange(peer_, -1));
  }
  // Goes away with a reset, which has arrived when this returns, if the own side is still here.
  void AbortPeer() {
    const linger now{1, 0};
    setsockopt(peer_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    ClosePeer();
    pollfd reset{own_, 0, 0};
    if (own_ >= 0) poll(&reset, 1, 1000);
  }

  // What has come to the peer, at most `limit` bytes; waits up to ten milliseconds for the first.
  std::string PeerReads(std::size_t limit = ~std::size_t{0}) {
    pollfd readable{peer_, POLLIN, 0};
    poll(&readable, 1, 10);
    std::string bytes;
    std::array<char, 65536> chunk;
    while (bytes.size() < limit) {
      const ssize_t count = recv(peer_, chunk.data(), std::min(chunk.size(), limit - bytes.size()), MSG_DONTWAIT);
      if (count <= 0) break;
      bytes.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return bytes;
  }

  // Ends this side; what the peer reads until that end, at most five seconds.
  std::string PeerReadsToTheEnd() {
    shutdown(own_, SHUT_WR);
    std::string bytes;
    std::array<char, 65536> chunk;
    pollfd readable{peer_, POLLIN, 0};
    while (poll(&readable, 1, 5000) == 1) {
      const ssize_t count = recv(peer_, chunk.data(), chunk.size(), MSG_DONTWAIT);
      if (count <= 0) break;
      bytes.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return bytes;
  }

  // How many bytes wait to be read on a socket.
  static int Waiting(int descriptor) {
    int count = 0;
    return ioctl(descriptor, FIONREAD, &count) == 0 ? count : -1;
  }

 private:
  int own_ = -1;
  int peer_ = -1;
};

}  // namespace TesselServer::Kit
