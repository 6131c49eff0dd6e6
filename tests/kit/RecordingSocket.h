// A notifying socket that writes down its events, and a pair of them for tests.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/NotifyingSocket.h"
#include "tests/kit/RawClient.h"

namespace TesselServer::Kit {

inline SocketAddress Local(std::uint16_t port) { return {htonl(INADDR_LOOPBACK), port}; }

// Writes down each event; `then` is done inside it.
struct RecordingSocket {
  explicit RecordingSocket(EventLoop& loop) : socket(loop) { socket.Handlers(Writing()); }
  explicit RecordingSocket(NotifyingSocket&& taken) : socket(std::move(taken)) { socket.Handlers(Writing()); }

  SocketHandlers Writing() {
    SocketHandlers handlers;
    handlers.Connected = [this] { Note("connected"); };
    handlers.Accepted = [this](NotifyingSocket connection) {
      accepted.push_back(std::make_unique<RecordingSocket>(std::move(connection)));
      Note("accepted");
    };
    handlers.Data = [this](std::string_view bytes) {
      received += bytes;
      longest = std::max(longest, bytes.size());
      Note("data");
    };
    handlers.Sent = [this] { Note("sent"); };
    handlers.Closed = [this] { Note("closed"); };
    handlers.Failed = [this](std::int32_t number, const std::string& text) {
      Note("failed " + std::to_string(number) + " " + text);
    };
    return handlers;
  }

  // Notes `what`; the same thing several times in a row once.
  void Note(const std::string& what) {
    if (events.empty() || events.back() != what) events.push_back(what);
    then(what);
  }
  bool LastIs(const std::string& what) const { return !events.empty() && events.back() == what; }

  NotifyingSocket socket;
  std::vector<std::string> events;
  std::string received;
  std::size_t longest = 0;
  std::vector<std::unique_ptr<RecordingSocket>> accepted;
  std::function<void(const std::string&)> then = [](const std::string&) {};
};

using Lines = std::vector<std::string>;

class NotifyingSocketsTest : public testing::Test {
 protected:
  std::uint16_t Listen() {
    EXPECT_TRUE(listener_.socket.Listen(Local(0)));
    return listener_.socket.OwnAddress().value_or(SocketAddress()).port;
  }

  // Connects client_ and gives the other end.
  RecordingSocket& Connect() {
    client_.socket.Connect(Local(Listen()));
    EXPECT_TRUE(RunUntil(loop_, [this] { return !client_.events.empty() && !listener_.accepted.empty(); }));
    EXPECT_EQ(client_.events, Lines{"connected"});
    EXPECT_FALSE(loop_.RunOnce(0)) << "and that is all";
    client_.events.clear();
    return *listener_.accepted.front();
  }

  EventLoop loop_;
  RecordingSocket listener_{loop_};
  RecordingSocket client_{loop_};
};

}  // namespace TesselServer::Kit
