#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/TcpListener.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"

namespace TesselServer {
namespace {

class TcpListenerTest : public testing::Test, protected TcpListener::Client {
 protected:
  void Open(TcpListener::Manner manner) { ASSERT_EQ(listener.Open(Endpoint(htonl(INADDR_LOOPBACK), 0), manner), 0); }
  std::unique_ptr<Kit::RawClient> Connect() { return std::make_unique<Kit::RawClient>(listener.Own()->Port()); }
  static void Speak(const Kit::RawClient& client) { send(client.Descriptor(), "x", 1, MSG_NOSIGNAL); }

  Kit::FakeWorld world;
  EventLoop loop{world};
  TcpListener listener{loop, *this, 7};
  int reports = 0;
  std::vector<UniqueDescriptor> accepted;
  bool pauses = false;
  std::vector<int> failures;

 private:
  void OnListenerFailed(TcpListener&, int error) override { failures.push_back(error); }
  void OnConnectionWaiting(TcpListener&) override {
    ++reports;
    if (pauses) return listener.Pause();
    Endpoint peer;
    int error = 0;
    accepted.push_back(listener.Accept(peer, error));
    EXPECT_EQ(error, 0);
    EXPECT_EQ(peer, Endpoint::PeerOf(accepted.back().Get()));
  }
};

TEST_F(TcpListenerTest, AServerAcceptsThoseWhoHaveSentSomething) {
  Open(TcpListener::Manner::kServer);
  EXPECT_EQ(listener.Cookie(), 7u);
  const auto silent = Connect();
  const auto client = Connect();
  Kit::Settle(loop);
  EXPECT_EQ(reports, 0);
  EXPECT_FALSE(listener.IsConnectionWaiting());
  Speak(*client);
  EXPECT_TRUE(listener.IsConnectionWaiting());
  Kit::Settle(loop);
  EXPECT_EQ(accepted.size(), 1u);
  EXPECT_FALSE(listener.IsConnectionWaiting());
}

TEST_F(TcpListenerTest, APlainOneAcceptsThemAll) {
  Open(TcpListener::Manner::kPlain);
  const auto first = Connect();
  const auto second = Connect();
  Kit::Settle(loop);
  EXPECT_EQ(accepted.size(), 2u);
}

TEST_F(TcpListenerTest, WithoutAConnectionThereIsNoneToAccept) {
  Open(TcpListener::Manner::kServer);
  Endpoint peer;
  int error = 0;
  EXPECT_FALSE(listener.Accept(peer, error).IsOpen());
  EXPECT_EQ(error, EAGAIN);
}

TEST_F(TcpListenerTest, WhilePausedItReportsNothing) {
  Open(TcpListener::Manner::kServer);
  pauses = true;
  const auto client = Connect();
  Speak(*client);
  Kit::Settle(loop);
  EXPECT_EQ(reports, 1);
  EXPECT_TRUE(listener.IsPaused());
  world.Advance(TcpListener::kPauseMilliseconds - 1);
  Kit::Settle(loop);
  EXPECT_EQ(reports, 1);
  world.Advance(1);
  Kit::Settle(loop);
  EXPECT_EQ(reports, 2) << "the time is over";
  pauses = false;
  listener.Resume();
  EXPECT_FALSE(listener.IsPaused());
  Kit::Settle(loop);
  EXPECT_EQ(accepted.size(), 1u);
  world.Advance(10 * TcpListener::kPauseMilliseconds);
  EXPECT_FALSE(loop.RunOnce(0)) << "nothing ticks any more";
}

TEST_F(TcpListenerTest, KnowsWhetherItListensOnAnAddress) {
  EXPECT_FALSE(listener.ListensOn(Endpoint()));
  Open(TcpListener::Manner::kServer);
  const Endpoint own = *listener.Own();
  EXPECT_TRUE(listener.ListensOn(own));
  EXPECT_FALSE(listener.ListensOn(Endpoint(INADDR_ANY, own.Port())));
  EXPECT_FALSE(listener.ListensOn(Endpoint(own.IPv4(), static_cast<std::uint16_t>(own.Port() + 1))));
  shutdown(listener.Descriptor(), SHUT_RDWR);
  EXPECT_FALSE(listener.ListensOn(own)) << "it listens no more";
  listener.Close();
  EXPECT_FALSE(listener.IsOpen());
}

TEST_F(TcpListenerTest, OneThatListensNoMoreSaysSoOnceAndReportsNoConnection) {
  Open(TcpListener::Manner::kServer);
  shutdown(listener.Descriptor(), SHUT_RDWR);
  EXPECT_FALSE(listener.IsConnectionWaiting());
  Kit::Settle(loop);
  EXPECT_EQ(failures, std::vector<int>{EINVAL});
  EXPECT_EQ(reports, 0);
  EXPECT_FALSE(loop.RunOnce(0)) << "nothing is left to deliver";
}

TEST_F(TcpListenerTest, AnAddressInUseIsRefusedAndLeavesNothingOpen) {
  Open(TcpListener::Manner::kServer);
  const std::size_t before = Kit::CountDescriptors();
  TcpListener other(loop, *this);
  EXPECT_EQ(other.Open(*listener.Own(), TcpListener::Manner::kServer), EADDRINUSE);
  EXPECT_FALSE(other.IsOpen());
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

}  // namespace
}  // namespace TesselServer
