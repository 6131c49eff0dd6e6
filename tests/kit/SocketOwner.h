// An owner of a socket array that writes down what it hears and does what the test tells it.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/SocketArray.h"

namespace TesselServer::Kit {

//   SocketOwner owner(loop);
//   const std::int32_t port = owner.Listen(3);  // element 1 listens, 2 to 4 carry connections
//   RawClient client(port);
//   client.Send(loop, "hello");
//   owner.heard;                                 // "request 1", "data 2 5", when the loop has run
class SocketOwner : public SocketNotifications {
 public:
  static constexpr std::int32_t kListener = 1;
  static constexpr std::int32_t kFirst = 2;

  explicit SocketOwner(EventLoop& loop, Turns* turns = nullptr) : sockets(loop, *this, turns) {}
  virtual ~SocketOwner() = default;

  SocketArray sockets;
  std::vector<std::string> heard;                // one line a notification
  std::map<std::int32_t, std::string> received;  // by element, everything since the test began

  // What is done inside each notification. A connection request is taken by the lowest closed element.
  std::function<void(std::int32_t)> onRequest = [this](std::int32_t request) { Take(request); };
  std::function<void(std::int32_t)> onData = [](std::int32_t) {};
  std::function<void(std::int32_t)> onSent = [](std::int32_t) {};
  std::function<void(std::int32_t)> onClose = [](std::int32_t) {};
  std::function<void(std::int32_t)> onError = [](std::int32_t) {};

  // Loads the listener and `connections` elements and listens on a free port of 127.0.0.1. The port.
  std::int32_t Listen(std::int32_t connections) {
    for (std::int32_t i = kListener; i < kFirst + connections; ++i) sockets.Load(i);
    sockets.Bind(kListener, 0, "127.0.0.1");
    sockets.Listen(kListener);
    return sockets.BoundPort(kListener);
  }

  SocketArray::AcceptResult Take(std::int32_t request) {
    return sockets.Accept(sockets.LowestClosed(kFirst, SocketArray::kMaxIndex), request);
  }

  // How often `line` was heard, whole or as the beginning of a line with more behind a blank.
  std::size_t Count(const std::string& line) const {
    std::size_t count = 0;
    for (const std::string& each : heard) count += each == line || each.starts_with(line + " ") ? 1 : 0;
    return count;
  }

  void ConnectionRequest(std::int32_t Index, std::int32_t requestID) override {
    heard.push_back("request " + std::to_string(Index));
    onRequest(requestID);
  }
  void DataArrival(std::int32_t Index, std::int64_t bytesTotal) override {
    heard.push_back("data " + std::to_string(Index) + " " + std::to_string(bytesTotal));
    received[Index] += sockets.GetData(Index);
    onData(Index);
  }
  void SendComplete(std::int32_t Index) override {
    heard.push_back("sent " + std::to_string(Index));
    onSent(Index);
  }
  void Close(std::int32_t Index) override {
    heard.push_back("close " + std::to_string(Index));
    onClose(Index);
  }
  void SocketError(std::int32_t Index, std::int32_t Number, const std::string& Description) override {
    heard.push_back("error " + std::to_string(Index) + " " + std::to_string(Number) + " " + Description);
    onError(Index);
  }
};

// The answer `head` and nothing else.
inline Answer TextAnswer(std::string head) { return {std::move(head), std::string()}; }

// Bytes of which each stretch looks different, so that a lost, doubled or moved piece is seen.
inline std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  std::uint32_t state = 2463534242u;
  for (char& each : bytes) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    each = static_cast<char>(state);
  }
  return bytes;
}

}  // namespace TesselServer::Kit
