#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/Limits.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/RecordingSocket.h"
#include "tests/kit/SocketOwner.h"

namespace TesselServer {
namespace {

using State = NotifyingSocket::State;
using Kit::Lines;
using Kit::Local;
using Kit::RecordingSocket;
using NotifyingSocketTest = Kit::NotifyingSocketsTest;

TEST_F(NotifyingSocketTest, AFreshSocketIsClosedAndRefusesEverything) {
  NotifyingSocket& socket = client_.socket;
  EXPECT_EQ(socket.Status(), State::kClosed);
  EXPECT_EQ(socket.LastError(), 0);
  EXPECT_EQ(socket.PeerAddress(), std::nullopt);
  EXPECT_EQ(socket.OwnAddress(), std::nullopt);
  EXPECT_FALSE(socket.Send("x"));
  EXPECT_EQ(socket.LastError(), 10057);
  EXPECT_EQ(socket.Option(SocketOption::kKeepAlive), std::nullopt);
  EXPECT_FALSE(socket.Option(SocketOption::kKeepAlive, 1));
  EXPECT_EQ(socket.LastError(), 10009);
  EXPECT_EQ(socket.WaitingBytes(), 0u);
  socket.Close();
  EXPECT_FALSE(loop_.RunOnce(0)) << "nothing to tell";
}

TEST_F(NotifyingSocketTest, ItConnectsAndTalksBothWays) {
  RecordingSocket& other = Connect();
  EXPECT_EQ(client_.socket.Status(), State::kConnected);
  EXPECT_EQ(other.socket.Status(), State::kConnected);
  EXPECT_EQ(listener_.events, Lines{"accepted"});
  EXPECT_TRUE(client_.socket.Send("to you"));
  EXPECT_TRUE(client_.events.empty()) << "never inside the call";
  EXPECT_TRUE(other.socket.Send("to me"));
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return !other.received.empty() && !client_.received.empty(); }));
  Kit::Settle(loop_);
  EXPECT_EQ(other.received, "to you");
  EXPECT_EQ(client_.received, "to me");
  EXPECT_EQ(std::count(client_.events.begin(), client_.events.end(), "sent"), 1);
  client_.socket.Close();
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return other.LastIs("closed"); }));
  EXPECT_EQ(other.socket.Status(), State::kEnded);
}

TEST_F(NotifyingSocketTest, BothEndsKnowTheAddresses) {
  RecordingSocket& other = Connect();
  EXPECT_EQ(client_.socket.PeerAddress(), listener_.socket.OwnAddress());
  EXPECT_EQ(client_.socket.OwnAddress(), other.socket.PeerAddress());
  EXPECT_EQ(client_.socket.OwnAddress()->address, htonl(INADDR_LOOPBACK));
  EXPECT_NE(client_.socket.OwnAddress()->port, 0);
  EXPECT_EQ(listener_.socket.PeerAddress(), std::nullopt);
}

TEST_F(NotifyingSocketTest, AConnectionThatIsRefusedFailsOutOfTheLoop) {
  const std::uint16_t port = Listen();
  listener_.socket.Close();
  client_.socket.Connect(Local(port));
  EXPECT_TRUE(client_.events.empty());
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return !client_.events.empty(); }));
  EXPECT_EQ(client_.events, Lines{"failed 10061 Connection refused."});
  EXPECT_EQ(client_.socket.Status(), State::kFailed);
  EXPECT_EQ(client_.socket.LastError(), 10061);
  EXPECT_FALSE(client_.socket.Send("x"));
}

TEST_F(NotifyingSocketTest, WhatFailsAtOnceIsReportedOutOfTheLoopToo) {
  client_.socket.Connect({});  // the broadcast address: no connection leads there
  EXPECT_TRUE(client_.events.empty());
  EXPECT_EQ(client_.socket.Status(), State::kFailed);
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return !client_.events.empty(); }));
  EXPECT_EQ(client_.events.front().substr(0, 9), "failed 10");
  client_.events.clear();
  client_.socket.Connect({});
  client_.socket.Close();
  Kit::Settle(loop_);
  EXPECT_TRUE(client_.events.empty()) << "a closed socket hears nothing of its past";
}

TEST_F(NotifyingSocketTest, WithoutDescriptorsAConnectionFails) {
  {
    const Kit::DescriptorFamine famine;
    client_.socket.Connect(Local(1));
    EXPECT_FALSE(listener_.socket.Listen(Local(0)));
    EXPECT_EQ(listener_.socket.LastError(), 10024);
  }
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return !client_.events.empty(); }));
  EXPECT_EQ(client_.events, Lines{"failed 10024 Too many open files."});
}

TEST_F(NotifyingSocketTest, AnAddressThatCannotBeHadIsRefused) {
  const std::uint16_t port = Listen();
  EXPECT_FALSE(client_.socket.Listen(Local(port)));
  EXPECT_EQ(client_.socket.LastError(), 10048);
  EXPECT_EQ(client_.socket.Status(), State::kClosed);
  EXPECT_FALSE(client_.socket.Listen({inet_addr("192.0.2.1"), 0}));
  EXPECT_EQ(client_.socket.LastError(), 10049);
  EXPECT_TRUE(client_.socket.Listen(Local(0)));
  EXPECT_EQ(client_.socket.LastError(), 0);
  EXPECT_TRUE(client_.socket.Listen(Local(0))) << "anew";
  EXPECT_EQ(client_.socket.Status(), State::kListening);
}

TEST_F(NotifyingSocketTest, APortThatWasUsedIsFreeAtOnce) {
  Connect();
  const SocketAddress own = *listener_.socket.OwnAddress();
  listener_.accepted.front()->socket.Close();
  Kit::Settle(loop_);
  client_.socket.Close();
  EXPECT_TRUE(listener_.socket.Listen(own));
}

TEST_F(NotifyingSocketTest, AnAcceptedConnectionThatIsNotKeptIsClosed) {
  SocketHandlers none;
  listener_.socket.Handlers(std::move(none));
  client_.socket.Connect(Local(Listen()));
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return client_.LastIs("closed"); }));
  EXPECT_EQ(client_.events, (Lines{"connected", "closed"}));
}

TEST_F(NotifyingSocketTest, ManyConnectionsComeThroughOneListener) {
  const std::uint16_t port = Listen();
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < 100; ++i) clients.push_back(std::make_unique<Kit::RawClient>(port));
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return listener_.accepted.size() == 100; }));
  for (const auto& each : listener_.accepted) EXPECT_TRUE(each->socket.Send("hello"));
  for (const auto& each : clients)
    EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return each->Poll() || each->Received() == "hello"; }));
}

TEST_F(NotifyingSocketTest, AListenerTakesABoundedNumberInATurn) {
  const std::uint16_t port = Listen();
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < NotifyingSocket::kAcceptsPerTurn + 5; ++i)
    clients.push_back(std::make_unique<Kit::RawClient>(port));
  loop_.RunOnce(1000);
  EXPECT_EQ(listener_.accepted.size(), static_cast<std::size_t>(NotifyingSocket::kAcceptsPerTurn));
  loop_.RunOnce(1000);
  EXPECT_EQ(listener_.accepted.size(), clients.size());
}

TEST(NotifyingSocketRestTest, AListenerWithoutDescriptorsRestsAndGoesOn) {
  Kit::FakeWorld world;
  EventLoop loop(world);
  RecordingSocket listener(loop);
  ASSERT_TRUE(listener.socket.Listen(Local(0)));
  Kit::RawClient first(listener.socket.OwnAddress()->port);
  ASSERT_TRUE(Kit::RunUntil(loop, [&] { return listener.accepted.size() == 1; }));
  Kit::RawClient second(listener.socket.OwnAddress()->port);
  {
    const Kit::DescriptorFamine famine;
    EXPECT_TRUE(loop.RunOnce(1000));
    EXPECT_EQ(listener.socket.LastError(), 10024);
    EXPECT_FALSE(loop.RunOnce(0)) << "no busy loop";
  }
  EXPECT_FALSE(loop.RunOnce(0));
  EXPECT_EQ(listener.accepted.size(), 1u);
  world.Advance(NotifyingSocket::kRestMilliseconds);
  EXPECT_TRUE(Kit::RunUntil(loop, [&] { return listener.accepted.size() == 2; }));
}

TEST_F(NotifyingSocketTest, WhatTheKernelDoesNotTakeFollowsByItself) {
  RecordingSocket& other = Connect();
  const std::string bytes = Kit::Pattern(8 * 1024 * 1024);
  EXPECT_TRUE(client_.socket.Send(bytes));
  EXPECT_EQ(client_.socket.WaitingBytes(), bytes.size());
  EXPECT_FALSE(client_.socket.Send("more")) << "too much is waiting";
  EXPECT_EQ(client_.socket.LastError(), 10035);
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return other.received.size() >= bytes.size() && !client_.events.empty(); }));
  EXPECT_TRUE(other.received == bytes);
  EXPECT_LE(other.longest, NotifyingSocket::kChunkBytes);
  EXPECT_EQ(client_.events, Lines{"sent"});
  EXPECT_EQ(client_.socket.WaitingBytes(), 0u);
  EXPECT_TRUE(client_.socket.Send("more"));
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return other.received.size() == bytes.size() + 4; }));
}

TEST_F(NotifyingSocketTest, TextsStayInOrder) {
  RecordingSocket& other = Connect();
  client_.socket.Option(SocketOption::kSendBufferBytes, 4096);
  std::string all;
  for (int i = 0; i < 200; ++i) {
    const std::string text = Kit::Pattern(static_cast<std::size_t>(i * 37)) + std::to_string(i);
    ASSERT_TRUE(client_.socket.Send(text)) << i;
    all += text;
  }
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return other.received.size() >= all.size(); }));
  EXPECT_TRUE(other.received == all);
}

TEST_F(NotifyingSocketTest, SentIsRaisedOnlyWhenNothingWaits) {
  RecordingSocket& other = Connect();
  std::vector<std::size_t> waiting;
  client_.then = [&](const std::string& what) {
    if (what == "sent") waiting.push_back(client_.socket.WaitingBytes());
  };
  EXPECT_TRUE(client_.socket.Send("at once"));
  EXPECT_TRUE(client_.socket.Send(Kit::Pattern(8 * 1024 * 1024)));
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return other.received.size() >= 8 * 1024 * 1024 + 7 && !waiting.empty(); }));
  Kit::Settle(loop_);
  EXPECT_EQ(waiting, std::vector<std::size_t>{0});
}

TEST_F(NotifyingSocketTest, TheNumberOfWaitingTextsIsBounded) {
  const Kit::RawClient silent(Listen());
  ASSERT_TRUE(Kit::RunUntil(loop_, [&] { return !listener_.accepted.empty(); }));
  NotifyingSocket& sender = listener_.accepted.front()->socket;
  std::size_t taken = 0;
  while (taken < 1'000'000 && sender.Send(std::string(100, 'x'))) ++taken;
  EXPECT_EQ(sender.LastError(), 10035);
  EXPECT_EQ(sender.WaitingBytes(), 100 * NotifyingSocket::kMaxWaitingTexts);
}

TEST_F(NotifyingSocketTest, APeerThatHasEndedMayStillBeSentTo) {
  const std::uint16_t port = Listen();
  Kit::RawClient client(port);
  client.Send(loop_, "question");
  client.EndSending();
  EXPECT_TRUE(
      Kit::RunUntil(loop_, [this] { return !listener_.accepted.empty() && listener_.accepted[0]->LastIs("closed"); }));
  RecordingSocket& other = *listener_.accepted.front();
  EXPECT_EQ(other.received, "question");
  EXPECT_FALSE(loop_.RunOnce(0)) << "the end is told once";
  const std::string answer = Kit::Pattern(3 * 1024 * 1024);
  EXPECT_TRUE(other.socket.Send(answer));
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] {
    client.Poll();
    return other.LastIs("sent");
  }));
  other.socket.Close();
  EXPECT_TRUE(client.ReceiveAll(loop_) == answer);
  EXPECT_FALSE(client.WasReset());
}

TEST_F(NotifyingSocketTest, AResetIsAFailure) {
  const std::uint16_t port = Listen();
  for (const bool ended : {false, true}) {
    listener_.accepted.clear();
    Kit::RawClient client(port);
    EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return !listener_.accepted.empty(); }));
    RecordingSocket& other = *listener_.accepted.front();
    if (ended) {
      client.EndSending();
      EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return other.LastIs("closed"); }));
      other.socket.Send("unread");
      Kit::Settle(loop_);
    }
    client.Abort();
    EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return other.LastIs("failed 10054 Connection reset by peer."); })) << ended;
    EXPECT_EQ(other.socket.Status(), State::kFailed);
    EXPECT_FALSE(loop_.RunOnce(0));
  }
}

TEST_F(NotifyingSocketTest, SendingIntoABrokenConnectionRaisesNoSignalAndFails) {
  const int status = Kit::InChild([] {
    signal(SIGPIPE, SIG_DFL);
    EventLoop loop;
    RecordingSocket listener(loop);
    if (!listener.socket.Listen(Local(0))) return 1;
    Kit::RawClient client(listener.socket.OwnAddress()->port);
    if (!Kit::RunUntil(loop, [&] { return !listener.accepted.empty(); })) return 2;
    RecordingSocket& other = *listener.accepted.front();
    client.Abort();
    bool refused = false;
    for (int i = 0; i < 10 && !refused; ++i) refused = !other.socket.Send("x");
    if (!refused || other.socket.Status() != State::kFailed || other.socket.LastError() == 0) return 3;
    if (!other.events.empty()) return 4;
    return Kit::RunUntil(loop, [&] { return other.events.size() == 1 && other.events[0].starts_with("failed 100"); })
               ? 0
               : 5;
  });
  EXPECT_EQ(status, 0) << "1013 is the end by SIGPIPE";
}

TEST_F(NotifyingSocketTest, ItIsMovedWithItsConnection) {
  RecordingSocket& other = Connect();
  NotifyingSocket moved(std::move(client_.socket));
  EXPECT_TRUE(moved.Send("moved"));
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return other.received == "moved"; }));
  client_.socket = NotifyingSocket(loop_);
  EXPECT_EQ(client_.socket.Status(), State::kClosed);
  moved = std::move(client_.socket);
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return other.LastIs("closed"); })) << "what it had is closed";
}

TEST_F(NotifyingSocketTest, OptionsAreSetAndRead) {
  Connect();
  NotifyingSocket& socket = client_.socket;
  for (const SocketOption option : {SocketOption::kReuseAddress, SocketOption::kKeepAlive, SocketOption::kNoDelay}) {
    EXPECT_EQ(socket.Option(option), 0);
    EXPECT_TRUE(socket.Option(option, 1));
    EXPECT_EQ(socket.Option(option), 1);
    EXPECT_TRUE(socket.Option(option, 0));
    EXPECT_EQ(socket.Option(option), 0);
  }
  for (const SocketOption option : {SocketOption::kSendBufferBytes, SocketOption::kReceiveBufferBytes}) {
    EXPECT_TRUE(socket.Option(option, 20000));
    EXPECT_EQ(socket.Option(option), 40000);
  }
  EXPECT_EQ(socket.Option(SocketOption::kLingerSeconds), -1);
  for (const std::int32_t seconds : {0, 7, -1}) {
    EXPECT_TRUE(socket.Option(SocketOption::kLingerSeconds, seconds));
    EXPECT_EQ(socket.Option(SocketOption::kLingerSeconds), seconds);
  }
  EXPECT_EQ(listener_.socket.Option(SocketOption::kReuseAddress), 1);
}

TEST_F(NotifyingSocketTest, NoDescriptorIsLeftOpenAndNoneIsInherited) {
  const std::size_t before = Kit::CountDescriptors();
  for (int i = 0; i < 20; ++i) {
    RecordingSocket listener(loop_);
    ASSERT_TRUE(listener.socket.Listen(Local(0)));
    RecordingSocket client(loop_);
    client.socket.Connect(*listener.socket.OwnAddress());
    ASSERT_TRUE(Kit::RunUntil(loop_, [&] { return !listener.accepted.empty(); }));
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
  Connect();
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int descriptor = std::stoi(entry.path().filename());
    std::error_code ignored;
    if (!std::filesystem::read_symlink(entry.path(), ignored).string().starts_with("socket:")) continue;
    sockaddr_in name{};
    socklen_t size = sizeof name;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&name), &size) != 0 || name.sin_family != AF_INET) continue;
    EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << descriptor;
  }
}

}  // namespace
}  // namespace TesselServer
