// Connections whose own sides have sent an answer that waits for the close (MSG_MORE), and what their peers see of it.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/sockets/Closings.h"
#include "tests/kit/TcpPair.h"

namespace TesselServer::Kit {

class ClosingPairs {
 public:
  explicit ClosingPairs(std::size_t many) {
    for (std::size_t i = 0; i < many; ++i) pairs_.push_back(std::make_unique<TcpPair>());
    for (const auto& pair : pairs_) {
      descriptors_.push_back(fcntl(pair->Own(), F_DUPFD_CLOEXEC, pair->Own()));  // their numbers follow one another
      close(pair->ReleaseOwn());
      send(descriptors_.back(), kAnswer.data(), kAnswer.size(), MSG_NOSIGNAL | MSG_MORE);
    }
  }

  // The descriptors are the collection's from here on.
  void AddAll(Closings& closings) const {
    for (const int descriptor : descriptors_) closings.Add(descriptor);
  }

  void PeerSends(std::size_t pair, std::string_view bytes) const {
    send(pairs_[pair]->Peer(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
  void PeerEnds(std::size_t pair) const { shutdown(pairs_[pair]->Peer(), SHUT_WR); }
  void PeerGoes(std::size_t pair) const { pairs_[pair]->ClosePeer(); }

  // One letter a peer: "a" for the whole answer and the end behind it, "-" for nothing yet, "." for one that has gone,
  // "!" for anything else.
  std::string PeersSee() const {
    std::string seen;
    for (const auto& pair : pairs_) seen += pair->Peer() < 0 ? '.' : Sees(pair->Peer());
    return seen;
  }

  // How many of the own sides are open.
  std::size_t StillOpen() const {
    std::size_t open = 0;
    for (const int descriptor : descriptors_) open += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    return open;
  }

 private:
  static constexpr std::string_view kAnswer = "the answer";

  static char Sees(int peer) {
    char bytes[100];
    const ssize_t count = recv(peer, bytes, sizeof bytes, MSG_DONTWAIT);
    if (count < 0) return errno == EAGAIN ? '-' : '!';
    const bool whole = std::string_view(bytes, static_cast<std::size_t>(count)) == kAnswer;
    return whole && recv(peer, bytes, sizeof bytes, MSG_DONTWAIT) == 0 ? 'a' : '!';
  }

  std::vector<std::unique_ptr<TcpPair>> pairs_;
  std::vector<int> descriptors_;
};

}  // namespace TesselServer::Kit
