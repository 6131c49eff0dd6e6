#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/sockets/SocketArray.h"
#include "platform/world/Error.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/Limits.h"
#include "tests/kit/SocketTest.h"

namespace TesselServer {
namespace {

struct Raised {
  std::int32_t number = 0;
  std::string text;
};

template <typename Action>
Raised RaisedBy(Action&& action) {
  try {
    action();
  } catch (const Error& error) {
    return {error.Number(), error.Description()};
  }
  return {};
}

// The descriptors of this process that are sockets.
std::vector<int> Sockets() {
  std::vector<int> found;
  for (int descriptor = 0; descriptor < 256; ++descriptor) {
    int type = 0;
    socklen_t size = sizeof type;
    if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0) found.push_back(descriptor);
  }
  return found;
}

int Option(int descriptor, int level, int name) {
  int value = -1;
  socklen_t size = sizeof value;
  getsockopt(descriptor, level, name, &value, &size);
  return value;
}

class SocketListenTest : public Kit::SocketTest {
 protected:
  SocketListenTest() : SocketTest(0) {}
};

TEST_F(SocketListenTest, ListensOnAnyPortWhenItIsZero) {
  port = owner.Listen(1);
  EXPECT_GT(port, 0);
  EXPECT_EQ(sockets.State(1), SocketState::kListening);
  const Kit::RawClient client(port);
}

TEST_F(SocketListenTest, APortAloneIsOnAllAddresses) {
  sockets.Load(1);
  sockets.LocalPort(1, 0);
  sockets.Listen(1);
  sockaddr_in name{};
  socklen_t size = sizeof name;
  ASSERT_EQ(Sockets().size(), 1u);
  ASSERT_EQ(getsockname(Sockets()[0], reinterpret_cast<sockaddr*>(&name), &size), 0);
  EXPECT_EQ(name.sin_addr.s_addr, htonl(INADDR_ANY));
  const Kit::RawClient client(sockets.BoundPort(1));
}

TEST_F(SocketListenTest, LocalPortTakesAnEarlierAddressBack) {
  sockets.Load(1);
  sockets.Bind(1, 0, "127.0.0.1");
  sockets.LocalPort(1, 0);
  sockets.Listen(1);
  sockaddr_in name{};
  socklen_t size = sizeof name;
  ASSERT_EQ(getsockname(Sockets()[0], reinterpret_cast<sockaddr*>(&name), &size), 0);
  EXPECT_EQ(name.sin_addr.s_addr, htonl(INADDR_ANY));
}

TEST_F(SocketListenTest, ATextThatIsNoAddressIsError10049) {
  sockets.Load(1);
  for (const char* ip : {"", "localhost", "127.0.0", "127.0.0.256", "127.0.0.1 ", "1.2.3.4.5", "::1", "0x7f.0.0.1",
                         "127.0.0.1\n", "-1"}) {
    const Raised raised = RaisedBy([&] { sockets.Bind(1, 0, ip); });
    EXPECT_EQ(raised.number, 10049) << ip;
    EXPECT_EQ(raised.text, "Can't assign requested address.") << ip;
  }
}

TEST_F(SocketListenTest, AnAddressOfAnotherMachineIsError10049) {
  sockets.Load(1);
  sockets.Bind(1, 0, "192.0.2.7");
  const Raised raised = RaisedBy([&] { sockets.Listen(1); });
  EXPECT_EQ(raised.number, 10049);
  EXPECT_EQ(raised.text, "Can't assign requested address.");
  EXPECT_EQ(sockets.State(1), SocketState::kClosed);
}

TEST_F(SocketListenTest, APortThatIsNoneIsError10049) {
  const std::size_t before = Kit::CountDescriptors();
  sockets.Load(1);
  for (const std::int32_t none : {-1, 65'536, 70'000, 2'147'483'647, -2'147'483'647 - 1}) {
    EXPECT_EQ(RaisedBy([&] {
                sockets.LocalPort(1, none);
                sockets.Listen(1);
              }).number,
              10049)
        << none;
    EXPECT_EQ(RaisedBy([&] {
                sockets.Bind(1, none, "127.0.0.1");
                sockets.Listen(1);
              }).number,
              10049)
        << none;
    EXPECT_EQ(sockets.State(1), SocketState::kClosed) << none;
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST_F(SocketListenTest, APortInUseIsError10048AndLeavesTheElementClosed) {
  port = owner.Listen(1);
  Kit::SocketOwner other(loop);
  other.sockets.Load(1);
  other.sockets.Bind(1, port, "127.0.0.1");
  const std::size_t before = Kit::CountDescriptors();
  const Raised raised = RaisedBy([&] { other.sockets.Listen(1); });
  EXPECT_EQ(raised.number, 10048);
  EXPECT_EQ(raised.text, "Address already in use.");
  EXPECT_EQ(other.sockets.State(1), SocketState::kClosed);
  EXPECT_EQ(other.sockets.BoundPort(1), 0);
  EXPECT_EQ(Kit::CountDescriptors(), before);
  sockets.Close(1);
  EXPECT_EQ(RaisedBy([&] { other.sockets.Listen(1); }).number, 0) << "as soon as it is free";
  EXPECT_EQ(other.sockets.BoundPort(1), port);
}

TEST_F(SocketListenTest, ListeningTwiceIsAnError) {
  port = owner.Listen(1);
  EXPECT_EQ(RaisedBy([&] { sockets.Listen(1); }).number, 10022);
  EXPECT_EQ(sockets.BoundPort(1), port);
}

TEST_F(SocketListenTest, ThePortMayBeTakenAgainAtOnceAfterItsConnectionsWereClosed) {
  port = owner.Listen(2);
  owner.onData = [&](std::int32_t index) {
    sockets.InputMayCome(index, false);
    sockets.SendData(index, Kit::TextAnswer("answer"));
  };
  owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };  // the server closes first: TIME_WAIT is here
  EXPECT_EQ(Kit::Exchange(loop, port, "hello"), "answer");
  sockets.Close(1);
  sockets.Bind(1, port, "127.0.0.1");
  EXPECT_EQ(RaisedBy([&] { sockets.Listen(1); }).number, 0);
  EXPECT_EQ(Kit::Exchange(loop, port, "hello"), "answer");
}

TEST_F(SocketListenTest, NoDescriptorIsError10024) {
  sockets.Load(1);
  sockets.Load(2);
  sockets.Listen(2);  // what a sanitizer looks at once, while there are descriptors
  sockets.Close(2);
  Raised raised = RaisedBy([] { throw Error(1, "an error of a famine, likewise"); });
  raised = RaisedBy([&] {
    const Kit::DescriptorFamine famine;
    sockets.Listen(1);
  });
  EXPECT_EQ(raised.number, 10024);
  EXPECT_EQ(sockets.State(1), SocketState::kClosed);
  EXPECT_EQ(RaisedBy([&] { sockets.Listen(1); }).number, 0);
}

TEST_F(SocketListenTest, EveryDescriptorIsClosedInAChildAndNeverWaits) {
  loop.Descriptor();
  port = owner.Listen(1);
  const Kit::RawClient client(port);
  send(client.Descriptor(), "hello", 5, MSG_NOSIGNAL);
  Kit::Settle(loop);
  ASSERT_EQ(sockets.State(2), SocketState::kConnected);
  int count = 0;
  for (int descriptor = 3; descriptor < 256; ++descriptor) {
    const int flags = fcntl(descriptor, F_GETFD);
    if (flags < 0) continue;
    std::error_code ignored;
    const std::string what = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored);
    if (!what.starts_with("socket:") && !what.starts_with("anon_inode:")) continue;
    ++count;
    EXPECT_NE(flags & FD_CLOEXEC, 0) << what;
    if (descriptor != client.Descriptor() && what.starts_with("socket:")) {
      EXPECT_NE(fcntl(descriptor, F_GETFL) & O_NONBLOCK, 0) << what;
    }
  }
  EXPECT_GE(count, 8) << "two epolls, wake, tasks, alarm, listener, connection, client";
}

TEST_F(SocketListenTest, ListenerAndConnectionsHaveTheirOptions) {
  port = owner.Listen(1);
  const int listener = Sockets().at(0);
  EXPECT_EQ(Option(listener, SOL_SOCKET, SO_REUSEADDR), 1);
  EXPECT_GE(Option(listener, IPPROTO_TCP, TCP_DEFER_ACCEPT), TcpListener::kDeferAcceptSeconds);
  const Kit::RawClient client(port);
  send(client.Descriptor(), "hello", 5, MSG_NOSIGNAL);
  Kit::Settle(loop);
  int accepted = -1;
  for (const int each : Sockets()) {
    if (each != listener && each != client.Descriptor()) accepted = each;
  }
  EXPECT_EQ(Option(accepted, IPPROTO_TCP, TCP_NOTSENT_LOWAT), TcpListener::kUnsentBytes);
  EXPECT_EQ(Option(accepted, SOL_SOCKET, SO_KEEPALIVE), 1);
  EXPECT_EQ(Option(accepted, IPPROTO_TCP, TCP_KEEPIDLE), TcpListener::kKeepAliveIdleSeconds);
  EXPECT_EQ(Option(accepted, IPPROTO_TCP, TCP_KEEPINTVL), TcpListener::kKeepAliveIntervalSeconds);
  EXPECT_EQ(Option(accepted, IPPROTO_TCP, TCP_KEEPCNT), TcpListener::kKeepAliveProbes);
}

TEST_F(SocketListenTest, AClosedListenerRefusesConnections) {
  port = owner.Listen(1);
  sockets.Close(1);
  EXPECT_EQ(sockets.State(1), SocketState::kClosed);
  EXPECT_EQ(sockets.BoundPort(1), 0);
  EXPECT_THROW(const Kit::RawClient client(port), std::runtime_error);
}

TEST_F(SocketListenTest, WaitingConnectionsAreOfferedOnlyWhenThereAreSome) {
  port = owner.Listen(1);
  sockets.OfferWaiting(1);
  EXPECT_TRUE(owner.heard.empty());
  const Kit::RawClient silent(port);
  sockets.OfferWaiting(1);
  EXPECT_TRUE(owner.heard.empty()) << "one that has sent nothing does not wait for anybody";
  const Kit::RawClient client(port);
  send(client.Descriptor(), "hello", 5, MSG_NOSIGNAL);
  sockets.OfferWaiting(1);
  EXPECT_EQ(owner.Count("request 1"), 1u);
  EXPECT_EQ(owner.received[2], "hello") << "and are served at once, without a turn of the loop";
}

// ---- A listening socket that is kept while its element is renewed.

TEST_F(SocketListenTest, AKeptSocketIsUsedAgainOnTheSameAddress) {
  port = owner.Listen(1);
  const Kit::RawClient silent(port);
  auto kept = sockets.Keep(1);
  EXPECT_EQ(sockets.State(1), SocketState::kClosed);
  EXPECT_EQ(sockets.BoundPort(1), 0);
  sockets.Reload(1);
  sockets.Bind(1, port, "127.0.0.1");
  sockets.Listen(1, std::move(kept));
  EXPECT_EQ(sockets.BoundPort(1), port);
  send(silent.Descriptor(), "hello", 5, MSG_NOSIGNAL);
  Kit::Settle(loop);
  EXPECT_EQ(owner.received[2], "hello");
}

TEST_F(SocketListenTest, AKeptSocketOfAnotherAddressIsReplaced) {
  port = owner.Listen(1);
  const std::size_t before = Kit::CountDescriptors();
  auto kept = sockets.Keep(1);
  sockets.Reload(1);
  sockets.Bind(1, 0, "127.0.0.1");
  sockets.Listen(1, std::move(kept));
  EXPECT_NE(sockets.BoundPort(1), port);
  EXPECT_EQ(Kit::CountDescriptors(), before);
  EXPECT_THROW(const Kit::RawClient client(port), std::runtime_error);
}

TEST_F(SocketListenTest, AKeptSocketThatListensNoMoreIsReplaced) {
  port = owner.Listen(1);
  shutdown(Sockets().at(0), SHUT_RDWR);
  auto kept = sockets.Keep(1);
  sockets.Reload(1);
  sockets.Bind(1, port, "127.0.0.1");
  sockets.Listen(1, std::move(kept));
  EXPECT_EQ(sockets.BoundPort(1), port);
  const Kit::RawClient client(port);
}

TEST_F(SocketListenTest, AKeptSocketStaysWhereTheNewOneFailsForAnotherReasonThanTheAddress) {
  port = owner.Listen(1);
  auto kept = sockets.Keep(1);
  sockets.Reload(1);
  sockets.Bind(1, port, "192.0.2.1");  // an address that this machine does not have
  EXPECT_NE(RaisedBy([&] { sockets.Listen(1, std::move(kept)); }).number, 0);
  EXPECT_EQ(sockets.State(1), SocketState::kListening);
  const Kit::RawClient client(port);
  send(client.Descriptor(), "hello", 5, MSG_NOSIGNAL);
  Kit::Settle(loop);
  EXPECT_EQ(owner.received[2], "hello");
}

TEST_F(SocketListenTest, WhatDoesNotListenHasNothingToKeep) {
  port = owner.Listen(1);
  for (const std::int32_t index : {-1, 0, 2}) auto kept = sockets.Keep(index);
  EXPECT_EQ(sockets.BoundPort(1), port);
  EXPECT_EQ(sockets.State(2), SocketState::kClosed);
}

TEST_F(SocketListenTest, TwoArraysServeOnOneLoop) {
  Kit::SocketOwner other(loop);
  port = owner.Listen(2);
  const std::int32_t otherPort = other.Listen(2);
  for (Kit::SocketOwner* each : {&owner, &other}) {
    each->onData = [each](std::int32_t index) {
      each->sockets.SendData(index, Kit::TextAnswer("to " + each->received[index]));
    };
    each->onSent = [each](std::int32_t index) { each->sockets.Reload(index); };
  }
  EXPECT_EQ(Kit::Exchange(loop, port, "one"), "to one");
  EXPECT_EQ(Kit::Exchange(loop, otherPort, "other"), "to other");
  EXPECT_EQ(owner.received[2], "one");
  EXPECT_EQ(other.received[2], "other");
}

TEST_F(SocketListenTest, TwoListenersOfOneArrayServeBoth) {
  port = owner.Listen(4);
  sockets.Load(0);
  sockets.Bind(0, 0, "127.0.0.1");
  sockets.Listen(0);
  const Kit::RawClient first(port);
  const Kit::RawClient second(sockets.BoundPort(0));
  send(first.Descriptor(), "first", 5, MSG_NOSIGNAL);
  send(second.Descriptor(), "second", 6, MSG_NOSIGNAL);
  Kit::Settle(loop);
  EXPECT_EQ(owner.Count("request 0"), owner.Count("request 1"));
  EXPECT_EQ(owner.received[2].size() + owner.received[3].size(), 11u);
}

TEST_F(SocketListenTest, NothingIsLeftOpenWhenTheArrayDies) {
  const std::size_t before = Kit::CountDescriptors();
  {
    Kit::SocketOwner other(loop);
    port = other.Listen(3);
    const Kit::RawClient first(port);
    const Kit::RawClient second(port);
    send(first.Descriptor(), "hello", 5, MSG_NOSIGNAL);
    send(second.Descriptor(), "hello", 5, MSG_NOSIGNAL);
    Kit::Settle(loop);
    other.sockets.Close(2);  // one lingers, one is connected, one listens
    EXPECT_EQ(other.sockets.LingeringCount(), 1u);
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
  Kit::Settle(loop);
}

}  // namespace
}  // namespace TesselServer
