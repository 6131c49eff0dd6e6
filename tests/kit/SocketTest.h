// What tests of a socket array share: a loop on a standing clock, an array with its owner, and clients of its listener.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <string_view>

#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/SocketOwner.h"

namespace TesselServer::Kit {

class SocketTest : public testing::Test {
 protected:
  // Listens at once, with so many elements for connections; with 0 the test does it.
  explicit SocketTest(std::int32_t connections = 2) {
    if (connections > 0) port = owner.Listen(connections);
  }

  // A client that has sent, with the loop at rest: the next free element carries it, the first time element 2.
  std::unique_ptr<RawClient> Connect(std::string_view first = "hello") {
    auto client = std::make_unique<RawClient>(port);
    client->Send(loop, first);
    Settle(loop);
    return client;
  }
  // A client that has sent its request; its connection waits in the listener's queue.
  std::unique_ptr<RawClient> Waiting() const {
    auto client = std::make_unique<RawClient>(port);
    send(client->Descriptor(), "hello", 5, MSG_NOSIGNAL);
    return client;
  }
  // Lets time pass, until the loop is at rest again.
  void Pass(std::int64_t milliseconds) {
    world.Advance(milliseconds);
    Settle(loop);
  }
  std::size_t Requests() const { return owner.Count("request 1"); }
  std::size_t Served() const { return owner.Count("data 2") + owner.Count("data 3"); }

  FakeWorld world;
  EventLoop loop{world};
  SocketOwner owner{loop};
  SocketArray& sockets = owner.sockets;
  std::int32_t port = 0;
};

}  // namespace TesselServer::Kit
