#include <fcntl.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/Lingering.h"
#include "tests/kit/Connections.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/SocketOwner.h"

namespace TesselServer {
namespace {

class LingeringTest : public testing::Test {
 protected:
  // What the peer finds when it reads: bytes, "end" or "reset".
  static std::string PeerSees(const Kit::TcpPair& pair) {
    char bytes[1000];
    const ssize_t count = recv(pair.Peer(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (count > 0) return {bytes, static_cast<std::size_t>(count)};
    return count == 0 ? "end" : errno == EAGAIN ? "nothing" : "reset";
  }
  // Whether what the peer sends is answered with a reset.
  static bool IsCutOff(const Kit::TcpPair& pair) {
    send(pair.Peer(), "x", 1, MSG_NOSIGNAL);
    return send(pair.Peer(), "x", 1, MSG_NOSIGNAL) < 0;
  }
  static bool IsOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

  // Ends a connection while input may come.
  void Take(int descriptor) {
    auto connection = std::make_shared<TcpConnection>(loop, client);
    connection->Adopt(UniqueDescriptor(descriptor), {});
    lingering->End(connection);
  }

  // Lets time pass and the loop notice it.
  void After(std::int64_t milliseconds) {
    world.Advance(milliseconds);
    loop.RunOnce(0);
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  Kit::ConnectionClient client;
  std::unique_ptr<Lingering> lingering = std::make_unique<Lingering>(loop);
};

TEST_F(LingeringTest, EndsItsOwnSideAtOnceAfterWhatWasSent) {
  Kit::TcpPair pair;
  send(pair.Own(), "answer", 6, MSG_NOSIGNAL);
  Take(pair.ReleaseOwn());
  EXPECT_EQ(lingering->Count(), 1u);
  EXPECT_EQ(PeerSees(pair), "answer");
  EXPECT_EQ(PeerSees(pair), "end");
}

TEST_F(LingeringTest, DropsWhatArrivesAndClosesWhenThePeerDoes) {
  Kit::TcpPair pair;
  const int descriptor = pair.Own();
  Take(pair.ReleaseOwn());
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(send(pair.Peer(), "more", 4, MSG_NOSIGNAL), 4);
    Kit::Settle(loop);
    EXPECT_EQ(Kit::TcpPair::Waiting(descriptor), 0);
  }
  EXPECT_EQ(PeerSees(pair), "end");
  EXPECT_FALSE(IsCutOff(pair));
  EXPECT_TRUE(IsOpen(descriptor));
  shutdown(pair.Peer(), SHUT_WR);
  Kit::Settle(loop);
  EXPECT_FALSE(IsOpen(descriptor));
  EXPECT_EQ(lingering->Count(), 0u);
  EXPECT_EQ(PeerSees(pair), "end");
}

TEST_F(LingeringTest, APeerThatIsResetIsClosed) {
  Kit::TcpPair pair;
  const int descriptor = pair.Own();
  Take(pair.ReleaseOwn());
  pair.AbortPeer();
  Kit::Settle(loop);
  EXPECT_FALSE(IsOpen(descriptor));
  EXPECT_EQ(lingering->Count(), 0u);
}

TEST_F(LingeringTest, ReadsABoundedNumberOfBytesInATurn) {
  Kit::TcpPair pair;
  const std::string flood(300'000, 'f');
  const int descriptor = pair.Own();
  const int room = 1'000'000;
  setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
  const ssize_t sent = send(pair.Peer(), flood.data(), flood.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  ASSERT_GT(sent, 150'000);
  ASSERT_TRUE(Kit::RunUntil(loop, [&] { return Kit::TcpPair::Waiting(descriptor) > 150'000; }));
  const int before = Kit::TcpPair::Waiting(descriptor);
  shutdown(pair.Peer(), SHUT_WR);
  Take(pair.ReleaseOwn());
  loop.RunOnce(0);
  EXPECT_GE(Kit::TcpPair::Waiting(descriptor), before - static_cast<int>(TcpConnection::kDroppedPerTurn));
  EXPECT_EQ(lingering->Count(), 1u);
  Kit::Settle(loop);
  EXPECT_EQ(lingering->Count(), 0u) << "all of it in the end";
}

TEST_F(LingeringTest, WaitsTwoSecondsForAPeerThatNeverCloses) {
  Kit::TcpPair pair;
  const int descriptor = pair.Own();
  Take(pair.ReleaseOwn());
  for (int passed = 100; passed < 2000; passed += 100) {
    After(100);
    ASSERT_TRUE(IsOpen(descriptor)) << passed;
  }
  After(100);
  After(250);
  EXPECT_FALSE(IsOpen(descriptor));
  EXPECT_EQ(lingering->Count(), 0u);
}

TEST_F(LingeringTest, APeerThatGoesOnSendingGetsNoMoreTime) {
  Kit::TcpPair pair;
  Take(pair.ReleaseOwn());
  for (int i = 0; i < 25; ++i) {
    send(pair.Peer(), "more", 4, MSG_NOSIGNAL);
    After(100);
  }
  EXPECT_EQ(lingering->Count(), 0u);
}

TEST_F(LingeringTest, EachHasItsOwnTwoSeconds) {
  Kit::TcpPair first, second;
  Take(first.ReleaseOwn());
  After(1000);
  Take(second.ReleaseOwn());
  After(1000);
  After(250);
  EXPECT_EQ(lingering->Count(), 1u);
  EXPECT_FALSE(IsCutOff(second));
  After(1000);
  EXPECT_EQ(lingering->Count(), 0u);
}

TEST_F(LingeringTest, AsksForNoTurnWhenNothingLingers) {
  Kit::TcpPair pair;
  Take(pair.ReleaseOwn());
  After(2500);
  EXPECT_EQ(lingering->Count(), 0u);
  world.Advance(10'000);
  EXPECT_FALSE(loop.RunOnce(0));
}

TEST_F(LingeringTest, OneTooManyClosesTheOneThatWaitedLongest) {
  std::vector<std::unique_ptr<Kit::TcpPair>> pairs;
  constexpr std::size_t kSurplus = 5;
  for (std::size_t i = 0; i < Lingering::kMaxCount + kSurplus; ++i) {
    pairs.push_back(std::make_unique<Kit::TcpPair>());
    send(pairs.back()->Own(), "answer", 6, MSG_NOSIGNAL);
    Take(pairs.back()->ReleaseOwn());
    EXPECT_LE(lingering->Count(), Lingering::kMaxCount);
  }
  EXPECT_EQ(lingering->Count(), Lingering::kMaxCount);
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    EXPECT_EQ(PeerSees(*pairs[i]), "answer") << i;
    EXPECT_EQ(PeerSees(*pairs[i]), "end") << i;
    EXPECT_EQ(IsCutOff(*pairs[i]), i < kSurplus) << i;
  }
}

TEST_F(LingeringTest, OnesThatEndedMeanwhileDoNotCountAgainstTheLimit) {
  std::vector<std::unique_ptr<Kit::TcpPair>> pairs;
  for (std::size_t i = 0; i < Lingering::kMaxCount; ++i) {
    pairs.push_back(std::make_unique<Kit::TcpPair>());
    Take(pairs.back()->ReleaseOwn());
  }
  pairs[0]->ClosePeer();
  pairs[1]->ClosePeer();
  pairs[2]->ClosePeer();
  Kit::Settle(loop);
  EXPECT_EQ(lingering->Count(), Lingering::kMaxCount - 3);
  for (int i = 0; i < 4; ++i) {
    pairs.push_back(std::make_unique<Kit::TcpPair>());
    Take(pairs.back()->ReleaseOwn());
  }
  EXPECT_EQ(lingering->Count(), Lingering::kMaxCount);
  EXPECT_TRUE(IsCutOff(*pairs[3])) << "the oldest that was left";
  EXPECT_FALSE(IsCutOff(*pairs[4]));
  After(2500);
  EXPECT_EQ(lingering->Count(), 0u);
}

TEST_F(LingeringTest, WhatCannotBeWatchedIsClosedAtOnce) {
  const int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(file, 0);
  Take(file);
  EXPECT_EQ(lingering->Count(), 0u);
  EXPECT_FALSE(IsOpen(file));
}

TEST_F(LingeringTest, ClosesThemAllWhenItDies) {
  const std::size_t before = Kit::CountDescriptors();
  {
    Kit::TcpPair first, second;
    Take(first.ReleaseOwn());
    Take(second.ReleaseOwn());
    lingering.reset();
    send(first.Peer(), "more", 4, MSG_NOSIGNAL);
    Kit::Settle(loop);
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

}  // namespace
}  // namespace TesselServer
