#include "benchmarks/comparison/Hold.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace Comparison {
namespace {

const std::string kHalf = "GET /f1k.b";  // ends inside the path: behind it some servers would answer

}  // namespace

HeldConnections::HeldConnections(const Route& route, std::int64_t count) {
  for (std::int64_t i = 0; i < count; ++i) {
    sockets_.push_back(Connect(route));
    SendAll(sockets_.back(), kHalf);
  }
}

HeldConnections::~HeldConnections() {
  for (const int socket : sockets_) close(socket);
}

std::int64_t HeldConnections::CountAlive() const {
  return std::count_if(sockets_.begin(), sockets_.end(), [](int socket) {
    char byte;
    return recv(socket, &byte, 1, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN;
  });
}

}  // namespace Comparison
