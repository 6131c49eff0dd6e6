// Whatever fails as a connection ends or is watched: it is closed, its answer is not lost, and no descriptor is.

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/Lingering.h"
#include "tests/kit/Connections.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FailNth.h"
#include "tests/kit/FailNthMemory.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

class ConnectionFaultsTest : public testing::Test {
 protected:
  Kit::FakeWorld world;
  EventLoop loop{world};
  Kit::ConnectionClient client;
};

TEST_F(ConnectionFaultsTest, OneThatCannotLingerForWantOfMemoryIsClosedAtOnce) {
  const std::size_t before = Kit::CountDescriptors();
  int failed = 0;
  for (int nth = 1; nth <= 12; ++nth) {
    {
      Lingering lingering(loop);
      Kit::TcpPair pair;
      auto connection = Kit::Adopted(loop, client, pair);
      connection->Send({"answer", std::string()}, true);
      bool happened = false;
      {
        const Kit::FailNthMemory fault(nth);
        lingering.End(connection);
        happened = fault.Happened();
      }
      failed += happened ? 1 : 0;
      EXPECT_EQ(lingering.Count(), happened ? 0u : 1u) << nth;
      EXPECT_EQ(pair.PeerReads(), "answer") << nth;
      world.Advance(Lingering::kMilliseconds);
      for (int turn = 0; turn < 3; ++turn) loop.RunOnce(0);
      EXPECT_EQ(lingering.Count(), 0u) << nth;
    }
    EXPECT_EQ(Kit::CountDescriptors(), before) << nth;
  }
  EXPECT_GT(failed, 0);
}

TEST_F(ConnectionFaultsTest, AWatchThatIsRefusedIsAnEndAsWell) {
  Lingering lingering(loop);
  Kit::TcpPair pair;
  auto connection = Kit::Adopted(loop, client, pair);
  const Kit::FailNth fault("epoll_ctl", 1, ENOSPC);
  lingering.End(connection);
  EXPECT_TRUE(fault.Happened());
  EXPECT_EQ(lingering.Count(), 0u);
  ASSERT_TRUE(connection);
  EXPECT_EQ(connection->Status(), TcpConnection::State::kClosed);
}

TEST_F(ConnectionFaultsTest, OneThatCannotBeWatchedFails) {
  Kit::TcpPair pair;
  const auto connection = Kit::Adopted(loop, client, pair);
  const Kit::FailNth fault("epoll_ctl", 1, ENOSPC);
  connection->ReadNow();
  EXPECT_TRUE(fault.Happened());
  EXPECT_EQ(client.heard, std::vector<std::string>{"failed " + std::to_string(ENOBUFS)});
}

}  // namespace
}  // namespace TesselServer
