// What a handler of a socket that notifies may do.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "tests/kit/RawClient.h"
#include "tests/kit/RecordingSocket.h"
#include "tests/kit/SocketOwner.h"

namespace TesselServer {
namespace {

using Kit::Lines;
using Kit::Local;
using Kit::RecordingSocket;
using SocketHandlersTest = Kit::NotifyingSocketsTest;

// Gives the client's other end bytes to read in every turn, and takes what it sends, until the report of the last
// byte sent, where `atSent` is done.
void TalkUntilSent(EventLoop& loop, Kit::RawClient& client, RecordingSocket& other,
                   const std::function<void()>& atSent) {
  bool sent = false;
  other.then = [&](const std::string& what) {
    if (what != "sent") return;
    sent = true;
    atSent();
  };
  ASSERT_TRUE(other.socket.Send(Kit::Pattern(8 * 1024 * 1024)));
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!sent && std::chrono::steady_clock::now() < limit) {
    client.Poll();
    ASSERT_EQ(send(client.Descriptor(), "x", 1, MSG_NOSIGNAL), 1);
    loop.RunOnce(2);
  }
  EXPECT_TRUE(sent);
}

TEST_F(SocketHandlersTest, OnceClosedInAHandlerItGetsNoEventInThatTurn) {
  const std::uint16_t port = Listen();
  for (const bool destroyed : {false, true}) {
    listener_.accepted.clear();
    Kit::RawClient client(port);
    ASSERT_TRUE(Kit::RunUntil(loop_, [this] { return !listener_.accepted.empty(); }));
    RecordingSocket& other = *listener_.accepted.front();
    TalkUntilSent(loop_, client, other, [&] {
      if (destroyed) {
        other.socket = NotifyingSocket(loop_);
      } else {
        other.socket.Close();
      }
    });
    EXPECT_TRUE(other.LastIs("sent")) << other.events.back();
    EXPECT_EQ(other.socket.LastError(), 0);
  }
}

TEST_F(SocketHandlersTest, AListenerThatIsClosedInItsHandlerTakesNoMore) {
  listener_.then = [this](const std::string&) { listener_.socket.Close(); };
  const std::uint16_t port = Listen();
  const Kit::RawClient first(port);
  const Kit::RawClient second(port);
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return !listener_.accepted.empty(); }));
  EXPECT_EQ(listener_.accepted.size(), 1u);
  EXPECT_EQ(listener_.socket.LastError(), 0);
}

TEST_F(SocketHandlersTest, AHandlerMayCloseTheSocket) {
  RecordingSocket& other = Connect();
  other.then = [&](const std::string&) { other.socket.Close(); };
  client_.socket.Send("x");
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return client_.LastIs("closed"); }));
  EXPECT_EQ(other.events, Lines{"data"});
  EXPECT_EQ(other.socket.Status(), NotifyingSocket::State::kClosed);
}

TEST_F(SocketHandlersTest, AHandlerMayDestroyTheSocketInEachNotification) {
  const std::uint16_t port = Listen();
  for (const std::string last : {"connected", "sent", "data", "closed", "failed"}) {
    listener_.accepted.clear();
    auto mine = std::make_unique<RecordingSocket>(loop_);
    mine->then = [&mine, last](const std::string& what) {
      if (what.starts_with(last)) {
        const std::unique_ptr<RecordingSocket> gone = std::move(mine);
      } else if (what == "connected" && last == "sent") {
        mine->socket.Send("x");
      }
    };
    mine->socket.Connect(last == "failed" ? SocketAddress() : Local(port));
    if (last != "failed") {
      EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return !listener_.accepted.empty(); })) << last;
    }
    if (last == "data") listener_.accepted.front()->socket.Send("y");
    if (last == "closed") listener_.accepted.clear();
    EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return mine == nullptr; })) << last;
  }
}

TEST_F(SocketHandlersTest, AListenerMayBeDestroyedAsItHandsOverAConnection) {
  auto listener = std::make_unique<NotifyingSocket>(loop_);
  std::vector<NotifyingSocket> kept;
  SocketHandlers handlers;
  handlers.Accepted = [&](NotifyingSocket connection) {
    kept.push_back(std::move(connection));
    listener.reset();
  };
  listener->Handlers(std::move(handlers));
  ASSERT_TRUE(listener->Listen(Local(0)));
  const std::uint16_t port = listener->OwnAddress()->port;
  Kit::RawClient first(port);
  Kit::RawClient second(port);
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return listener == nullptr; }));
  EXPECT_EQ(kept.size(), 1u);
  EXPECT_TRUE(kept.front().Send("kept"));
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return first.Poll() || first.Received() == "kept"; }));
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return second.Poll(); }));
}

TEST_F(SocketHandlersTest, AHandlerMayConnectAnew) {
  const std::uint16_t port = Listen();
  int failures = 0;
  client_.then = [&](const std::string& what) {
    if (!what.starts_with("failed")) return;
    client_.socket.Connect(++failures < 3 ? SocketAddress() : Local(port));
  };
  client_.socket.Connect({});
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return client_.LastIs("connected"); }));
  EXPECT_EQ(failures, 3);
  EXPECT_EQ(client_.socket.LastError(), 0);
}

TEST_F(SocketHandlersTest, AHandlerMayReplaceTheHandlers) {
  RecordingSocket& other = Connect();
  std::string second;
  SocketHandlers first;
  auto canary = std::make_shared<std::string>("alive");
  first.Data = [&, canary](std::string_view) {
    SocketHandlers next;
    next.Data = [&](std::string_view bytes) { second += bytes; };
    other.socket.Handlers(std::move(next));
    EXPECT_EQ(*canary, "alive");
  };
  other.socket.Handlers(std::move(first));
  client_.socket.Send("one");
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return canary.use_count() == 1; }));
  client_.socket.Send("two");
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return second == "two"; }));
}

TEST_F(SocketHandlersTest, WhatAHandlerThrowsIsReportedAndTheSocketGoesOn) {
  std::vector<std::string> failures;
  loop_.HandlerFailed = [&](std::string& text) { failures.push_back(text); };
  RecordingSocket& other = Connect();
  int thrown = 0;
  other.then = [&](const std::string&) {
    ++thrown;
    throw std::runtime_error("mine");
  };
  client_.socket.Send("one");
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return thrown == 1; }));
  client_.socket.Send("two");
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return thrown == 2; }));
  EXPECT_EQ(other.received, "onetwo");
  EXPECT_EQ(failures, (std::vector<std::string>{"Socket: mine", "Socket: mine"}));
}

}  // namespace
}  // namespace TesselServer
