#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/TcpConnection.h"
#include "platform/sockets/TcpListener.h"
#include "tests/kit/Connections.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/TcpPair.h"

namespace TesselServer {
namespace {

using Lines = std::vector<std::string>;
using ConnectionState = TcpConnection::State;

Answer AnswerOf(std::string bytes) { return {std::move(bytes), std::string()}; }

class TcpConnectionTest : public testing::Test {
 protected:
  void PeerSends(std::string_view bytes) {
    ASSERT_EQ(send(pair.Peer(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  }
  // What the peer sees of an end: its answer and then "end", "reset" or "open".
  std::string PeerSees() {
    std::string bytes = pair.PeerReads();
    char one = 0;
    const ssize_t count = recv(pair.Peer(), &one, 1, MSG_DONTWAIT);
    return bytes + (count == 0 ? "|end" : errno == EAGAIN ? "|open" : "|reset");
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  Kit::ConnectionClient client;
  Kit::TcpPair pair;
  Lingering lingering{loop};
  std::shared_ptr<TcpConnection> connection = Kit::Adopted(loop, client, pair);
};

// ---- Its states.

TEST_F(TcpConnectionTest, GoesThroughItsStates) {
  EXPECT_EQ(connection->Status(), ConnectionState::kReceiving);
  EXPECT_EQ(connection->Peer().Text(), "127.0.0.1");
  connection->AnswerPending(true);
  EXPECT_EQ(connection->Status(), ConnectionState::kAnswering);
  connection->AnswerPending(false);
  EXPECT_EQ(connection->Status(), ConnectionState::kReceiving);
  connection->AnswerPending(true);
  EXPECT_EQ(connection->Send(AnswerOf("answer"), false), 0);
  EXPECT_EQ(connection->Status(), ConnectionState::kSent);
  EXPECT_EQ(client.heard, Lines{}) << "never inside the call";
  Kit::Settle(loop);
  EXPECT_EQ(client.heard, Lines{"sent"});
  EXPECT_EQ(connection->Status(), ConnectionState::kReceiving);
  EXPECT_EQ(connection->Send(AnswerOf(std::string(20'000'000, 'a')), false), 0);
  EXPECT_EQ(connection->Status(), ConnectionState::kSending);
  EXPECT_EQ(connection->Send(AnswerOf("more"), false), ENOTCONN);
  lingering.End(connection);
  ASSERT_TRUE(connection);
  EXPECT_EQ(connection->Status(), ConnectionState::kClosed) << "an answer that is broken off is not waited for";
  EXPECT_EQ(connection->Send(AnswerOf("more"), false), ENOTCONN);
}

TEST_F(TcpConnectionTest, LingersAsAState) {
  const std::uint64_t life = connection->Life();
  const auto kept = connection;
  lingering.End(connection);
  EXPECT_FALSE(connection) << "taken over";
  EXPECT_EQ(kept->Status(), ConnectionState::kLingering);
  EXPECT_NE(kept->Life(), life);
  EXPECT_EQ(lingering.Count(), 1u);
  PeerSends("dropped");
  Kit::Settle(loop);
  EXPECT_EQ(kept->Status(), ConnectionState::kLingering);
  pair.ClosePeer();
  Kit::Settle(loop);
  EXPECT_EQ(kept->Status(), ConnectionState::kClosed);
  EXPECT_EQ(lingering.Count(), 0u);
  EXPECT_EQ(client.heard, Lines{});
}

// ---- Connecting.

TEST_F(TcpConnectionTest, ConnectsToBothFamilies) {
  struct Waiting : TcpListener::Client {
    void OnListenerFailed(TcpListener&, int error) override { ADD_FAILURE() << error; }
    void OnConnectionWaiting(TcpListener& listener) override {
      int error = 0;
      accepted = listener.Accept(peer, error);
    }
    UniqueDescriptor accepted{-1};
    Endpoint peer;
  };
  for (const char* address : {"127.0.0.1", "::1"}) {
    Waiting waiting;
    TcpListener listener(loop, waiting);
    const int error = listener.Open(*Endpoint::Parse(address, 0), TcpListener::Manner::kPlain);
    if (error == EADDRNOTAVAIL || error == EAFNOSUPPORT) continue;  // a machine without IPv6
    ASSERT_EQ(error, 0) << address;
    client.heard.clear();
    ASSERT_EQ(connection->Connect(*listener.Own()), 0);
    EXPECT_EQ(connection->Status(), ConnectionState::kConnecting);
    EXPECT_TRUE(Kit::RunUntil(loop, [&] { return !client.heard.empty() && waiting.accepted.IsOpen(); }));
    EXPECT_EQ(client.heard, Lines{"connected"}) << address;
    EXPECT_EQ(waiting.peer.Text(), address);
    EXPECT_EQ(connection->Peer(), *listener.Own());
  }
}

TEST_F(TcpConnectionTest, AConnectionThatIsRefusedFails) {
  std::uint16_t port = 0;
  {
    const Kit::TcpPair gone;
    port = Endpoint::PeerOf(gone.Peer())->Port();  // its listener has gone already
  }
  if (connection->Connect(Endpoint(htonl(INADDR_LOOPBACK), port)) == 0) {
    EXPECT_TRUE(Kit::RunUntil(loop, [&] { return !client.heard.empty(); }));
    EXPECT_EQ(client.heard, Lines{"failed " + std::to_string(ECONNREFUSED)});
  }
  EXPECT_EQ(connection->Status(), ConnectionState::kClosed);
  EXPECT_NE(connection->Connect(Endpoint(0xFFFFFFFF, 80)), 0) << "what fails at once is returned";
}

// ---- Receiving.

TEST_F(TcpConnectionTest, IsReadBeforeItIsWatched) {
  PeerSends("hello");
  Kit::Settle(loop);
  EXPECT_EQ(client.heard, Lines{});
  connection->ReadNow();
  EXPECT_EQ(client.heard, Lines{"data hello"});
  PeerSends("more");
  Kit::Settle(loop);
  EXPECT_EQ(client.heard, (Lines{"data hello", "data more"})) << "then the loop watches it";
}

TEST_F(TcpConnectionTest, WhatIsPutBackComesBeforeWhatIsNew) {
  PeerSends("first second ");
  client.then = [&](const std::string& line) {
    if (line == "data first second ") connection->PutBack("second ");
  };
  connection->ReadNow();
  PeerSends("third");
  connection->ReadNow();
  connection->ReadNow();
  EXPECT_EQ(client.heard, (Lines{"data first second ", "data second ", "data third"}));
}

TEST_F(TcpConnectionTest, APeerThatEndedMayBeSentTo) {
  shutdown(pair.Peer(), SHUT_WR);
  connection->ReadNow();
  EXPECT_EQ(client.heard, Lines{"ended"});
  EXPECT_TRUE(connection->HasPeerEnded());
  EXPECT_EQ(connection->Send(AnswerOf("answer"), true), 0);
  Kit::Settle(loop);
  EXPECT_EQ(client.heard, (Lines{"ended", "sent"}));
  lingering.End(connection);
  EXPECT_EQ(lingering.Count(), 0u) << "it is not waited for";
  EXPECT_EQ(PeerSees(), "answer|end");
}

TEST_F(TcpConnectionTest, AResetIsAFailureInEveryState) {
  for (const bool ended : {false, true}) {
    for (const bool sending : {false, true}) {
      Kit::TcpPair other;
      client.heard.clear();
      const auto each = Kit::Adopted(loop, client, other);
      ASSERT_TRUE(each->Watch());
      if (sending) {
        ASSERT_EQ(each->Send(AnswerOf(std::string(20'000'000, 'a')), false), 0);
      }
      if (ended) {
        shutdown(other.Peer(), SHUT_WR);
        Kit::Settle(loop);
      }
      other.AbortPeer();
      Kit::Settle(loop);
      ASSERT_FALSE(client.heard.empty());
      EXPECT_EQ(client.heard.back(), "failed " + std::to_string(ECONNRESET)) << ended << sending;
      EXPECT_EQ(each->Status(), ConnectionState::kClosed) << ended << sending;
    }
  }
}

// ---- The end.

TEST_F(TcpConnectionTest, WhereNothingMayComeItIsClosedWithTheLastBytes) {
  connection->InputMayCome(false);
  connection->Send(AnswerOf("answer"), true);
  EXPECT_EQ(PeerSees(), "|open") << "they wait for the end";
  lingering.End(connection);
  EXPECT_EQ(PeerSees(), "answer|end");
  EXPECT_EQ(lingering.Count(), 0u);
}

TEST_F(TcpConnectionTest, UnreadInputMakesItLinger) {
  connection->InputMayCome(false);
  connection->Send(AnswerOf("answer"), true);
  PeerSends("one more");
  lingering.End(connection);
  EXPECT_EQ(lingering.Count(), 1u);
  EXPECT_EQ(PeerSees(), "answer|end");
}

TEST_F(TcpConnectionTest, AReadThatFilledTheBufferMakesItLinger) {
  PeerSends(std::string(client.buffer.size(), 'x'));
  connection->ReadNow();
  connection->InputMayCome(false);
  lingering.End(connection);
  EXPECT_EQ(lingering.Count(), 1u);
}

TEST_F(TcpConnectionTest, OnceClosedItReportsNothingOfItsPast) {
  PeerSends("hello");
  ASSERT_TRUE(connection->Watch());
  connection->Send(AnswerOf("answer"), false);
  connection->Close();
  Kit::TcpPair other;
  const Endpoint peer = *Endpoint::PeerOf(other.Own());
  connection->Adopt(UniqueDescriptor(other.ReleaseOwn()), peer);
  Kit::Settle(loop);
  EXPECT_EQ(client.heard, Lines{});
}

TEST_F(TcpConnectionTest, MayBeClosedAndUsedAnewInsideEachReport) {
  for (const std::string last : {"data", "sent", "ended", "failed"}) {
    Kit::TcpPair first, second;
    const auto each = Kit::Adopted(loop, client, first);
    client.heard.clear();
    client.then = [&](const std::string& line) {
      if (!line.starts_with(last) || second.Own() < 0) return;
      const Endpoint peer = *Endpoint::PeerOf(second.Own());
      each->Adopt(UniqueDescriptor(second.ReleaseOwn()), peer);
    };
    ASSERT_TRUE(each->Watch());
    if (last == "data") send(first.Peer(), "x", 1, MSG_NOSIGNAL);
    if (last == "sent") each->Send(AnswerOf("answer"), false);
    if (last == "ended") shutdown(first.Peer(), SHUT_WR);
    if (last == "failed") first.AbortPeer();
    Kit::Settle(loop);
    EXPECT_EQ(client.heard.size(), 1u) << last;
    EXPECT_EQ(each->Status(), ConnectionState::kReceiving) << last;
    client.then = [](const std::string&) {};
  }
}

TEST_F(TcpConnectionTest, LeavesNoDescriptorOpen) {
  const std::size_t before = Kit::CountDescriptors();
  for (int i = 0; i < 10; ++i) {
    Kit::TcpPair other;
    auto each = Kit::Adopted(loop, client, other);
    if (i % 2 == 0) lingering.End(each);
  }
  Kit::Settle(loop);
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

}  // namespace
}  // namespace TesselServer
