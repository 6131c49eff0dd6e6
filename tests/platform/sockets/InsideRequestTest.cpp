// What a host may do inside the notification of a connection request.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/kit/SocketTest.h"

namespace TesselServer {
namespace {

class InsideRequestTest : public Kit::SocketTest {};

TEST_F(InsideRequestTest, IsNotRaisedInsideAnother) {
  int depth = 0;
  int deepest = 0;
  owner.onRequest = [&](std::int32_t request) {
    deepest = std::max(deepest, ++depth);
    for (int i = 0; i < 5; ++i) loop.DoEvents();
    sockets.OfferWaiting(1);
    owner.Take(request);
    --depth;
  };
  const auto first = Waiting();
  const auto second = Waiting();
  Kit::Settle(loop);
  EXPECT_EQ(deepest, 1);
  EXPECT_EQ(Served(), 2u);
}

TEST_F(InsideRequestTest, YieldingInsideLetsOthersFinishAndFreesAnElement) {
  owner.onData = [&](std::int32_t index) {
    if (owner.received[index].ends_with("more")) sockets.SendData(index, Kit::TextAnswer("answer"));
  };
  owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };
  const auto first = Waiting();
  const auto second = Waiting();
  Kit::Settle(loop);
  int passes = 0;
  owner.onRequest = [&](std::int32_t request) {
    first->Send(loop, "more");
    while (sockets.LowestClosed(2, 3) < 0 && ++passes < 100) loop.DoEvents();
    owner.Take(request);
  };
  const auto third = Connect();
  EXPECT_LT(passes, 100);
  EXPECT_EQ(first->ReceiveAll(loop), "answer");
  EXPECT_EQ(owner.received[2], "hellomorehello");
}

TEST_F(InsideRequestTest, TheListenerMayBeClosedInside) {
  auto result = SocketArray::AcceptResult::kAccepted;
  owner.onRequest = [&](std::int32_t request) {
    sockets.Close(1);
    result = owner.Take(request);
  };
  const auto client = Waiting();
  const auto other = Waiting();
  Kit::Settle(loop);
  EXPECT_EQ(result, SocketArray::AcceptResult::kGone);
  EXPECT_EQ(Requests(), 1u);
  EXPECT_EQ(sockets.State(1), SocketState::kClosed);
  EXPECT_EQ(sockets.State(2), SocketState::kClosed);
}

TEST_F(InsideRequestTest, TheListenerMayBeUnloadedOrOpenedAnewInside) {
  int requests = 0;
  owner.onRequest = [&](std::int32_t) {
    if (++requests > 1) return;
    sockets.Unload(1);
    sockets.Load(1);
    sockets.Bind(1, 0, "127.0.0.1");
    sockets.Listen(1);
  };
  const auto client = Connect();
  port = sockets.BoundPort(1);
  owner.onRequest = [&](std::int32_t request) { owner.Take(request); };
  const auto next = Connect();
  EXPECT_EQ(owner.received[2], "hello");
}

TEST_F(InsideRequestTest, TheConnectionMayBeClosedInsideAsSoonAsItIsTaken) {
  owner.onRequest = [&](std::int32_t request) {
    sockets.Reload(owner.Take(request) == SocketArray::AcceptResult::kAccepted ? 2 : 3);
  };
  const auto client = Connect();
  EXPECT_EQ(Served(), 0u);
  EXPECT_EQ(sockets.State(2), SocketState::kClosed);
  EXPECT_EQ(client->ReceiveAll(loop), "");
  EXPECT_TRUE(client->Ended());
}

TEST_F(InsideRequestTest, AnAnswerMayBeSentInside) {
  owner.onRequest = [&](std::int32_t request) {
    owner.Take(request);
    sockets.SendData(2, Kit::TextAnswer("busy"));
  };
  owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };
  const auto client = Waiting();
  EXPECT_EQ(client->ReceiveAll(loop), "busy");
  EXPECT_FALSE(client->WasReset());
  EXPECT_EQ(owner.Count("sent 2"), 1u);
}

}  // namespace
}  // namespace TesselServer
