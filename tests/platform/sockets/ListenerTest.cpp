#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "platform/sockets/Listener.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/Pipe.h"
#include "tests/kit/RawClient.h"

namespace TesselServer {
namespace {

std::int32_t PortOf(int listener) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  getsockname(listener, reinterpret_cast<sockaddr*>(&name), &size);
  return ntohs(name.sin_port);
}

// Waits for what the kernel does by itself, five seconds at most.
bool ComesTo(int listener, int length) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (QueueLength(listener) != length && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
  return QueueLength(listener) == length;
}

TEST(ListenerTest, TheQueueHasThoseWhoHaveSentSomethingUntilTheyAreTaken) {
  const UniqueDescriptor listener(OpenListener(htonl(INADDR_LOOPBACK), 0));
  EXPECT_EQ(QueueLength(listener.Get()), 0);
  EXPECT_FALSE(SomebodyWaits(listener.Get()));
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < 4; ++i) clients.push_back(std::make_unique<Kit::RawClient>(PortOf(listener.Get())));
  for (int i = 0; i < 3; ++i) send(clients[static_cast<std::size_t>(i)]->Descriptor(), "x", 1, MSG_NOSIGNAL);
  EXPECT_TRUE(ComesTo(listener.Get(), 3)) << "the silent one is not among them";
  EXPECT_TRUE(SomebodyWaits(listener.Get()));
  for (int left = 2; left >= 0; --left) {
    std::uint32_t address = 0;
    const UniqueDescriptor taken(AcceptFrom(listener.Get(), address));
    EXPECT_TRUE(taken.IsOpen());
    EXPECT_EQ(address, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(QueueLength(listener.Get()), left);
  }
  std::uint32_t address = 0;
  EXPECT_LT(AcceptFrom(listener.Get(), address), 0);
  EXPECT_FALSE(SomebodyWaits(listener.Get()));
}

TEST(ListenerTest, WhatIsNoListenerHasNoQueue) {
  const Kit::Pipe pipe;
  EXPECT_EQ(QueueLength(pipe.ReadEnd()), 0);
  EXPECT_EQ(QueueLength(-1), 0);
}

}  // namespace
}  // namespace TesselServer
