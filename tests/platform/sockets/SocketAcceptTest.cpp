#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/sockets/SocketArray.h"
#include "tests/kit/Limits.h"
#include "tests/kit/SocketTest.h"

namespace TesselServer {
namespace {

using AcceptResult = SocketArray::AcceptResult;

class SocketAcceptTest : public Kit::SocketTest {
 protected:
  // The listener's descriptor: the one socket of this process that takes connections.
  static int Listener() {
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
      int listens = 0;
      socklen_t size = sizeof listens;
      if (getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0) return descriptor;
    }
    return -1;
  }
};

// ---- Taking a connection.

TEST_F(SocketAcceptTest, ASilentClientCostsNoElement) {
  const Kit::RawClient silent(port);
  Kit::Settle(loop);
  EXPECT_TRUE(owner.heard.empty());
  EXPECT_EQ(sockets.LowestClosed(2, 3), 2);
}

TEST_F(SocketAcceptTest, AConnectionIsTakenWithItsFirstBytes) {
  Kit::RawClient client(port);
  client.Send(loop, "hello");
  loop.RunOnce(1000);
  EXPECT_EQ(owner.heard, (std::vector<std::string>{"request 1", "data 2 5"})) << "in one turn, and nothing else";
  EXPECT_EQ(owner.received[2], "hello");
}

TEST_F(SocketAcceptTest, EachConnectionIsOneNotification) {
  const auto first = Waiting();
  const auto second = Waiting();
  Kit::Settle(loop);
  EXPECT_EQ(owner.heard, (std::vector<std::string>{"request 1", "data 2 5", "request 1", "data 3 5"}));
}

TEST_F(SocketAcceptTest, AClientThatClosesItsSideWithoutSendingIsAClose) {
  Kit::RawClient client(port);
  client.EndSending();
  Kit::Settle(loop);
  EXPECT_EQ(owner.Count("data 2"), 0u);
  EXPECT_LE(owner.Count("close 2"), 1u);
}

TEST_F(SocketAcceptTest, OneTurnTakesABoundedNumber) {
  constexpr int kMany = SocketArray::kAcceptsPerTurn + 8;
  for (std::int32_t i = 4; i < 2 + kMany; ++i) sockets.Load(i);
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < kMany; ++i) clients.push_back(Waiting());
  loop.RunOnce(1000);
  EXPECT_EQ(Requests(), static_cast<std::size_t>(SocketArray::kAcceptsPerTurn));
  Kit::Settle(loop);
  EXPECT_EQ(Requests(), static_cast<std::size_t>(kMany));
  for (std::int32_t i = 2; i < 2 + kMany; ++i) EXPECT_EQ(owner.received[i], "hello") << i;
}

// ---- requestID.

TEST_F(SocketAcceptTest, ARequestIsGoodOnceAndOnlyInsideItsNotification) {
  std::vector<AcceptResult> results;
  std::int32_t last = 0;
  owner.onRequest = [&](std::int32_t request) {
    if (last != 0) return;
    last = request;
    results.push_back(sockets.Accept(2, request + 1));
    results.push_back(sockets.Accept(2, request - 1));
    results.push_back(sockets.Accept(2, 0));
    results.push_back(sockets.Accept(2, request));
    results.push_back(sockets.Accept(3, request));
  };
  EXPECT_EQ(sockets.Accept(2, 0), AcceptResult::kGone) << "nobody asked";
  EXPECT_EQ(sockets.Accept(2, 1), AcceptResult::kGone) << "nobody asked";
  const auto client = Waiting();
  const auto other = Waiting();  // it is there to be taken, but it is not the one that is told of
  Kit::Settle(loop);
  EXPECT_EQ(results, (std::vector<AcceptResult>{AcceptResult::kGone, AcceptResult::kGone, AcceptResult::kGone,
                                                AcceptResult::kAccepted, AcceptResult::kGone}));
  EXPECT_EQ(sockets.Accept(3, last), AcceptResult::kGone) << "too late";
  EXPECT_EQ(owner.received[2], "hello");
  EXPECT_EQ(sockets.State(3), SocketState::kClosed);
}

TEST_F(SocketAcceptTest, NumbersAreNotUsedAgain) {
  std::vector<std::int32_t> seen;
  owner.onRequest = [&](std::int32_t request) {
    seen.push_back(request);
    owner.Take(request);
  };
  const auto first = Waiting();
  const auto second = Waiting();
  Kit::Settle(loop);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_NE(seen[0], seen[1]);
}

TEST_F(SocketAcceptTest, OnlyAClosedElementTakesAConnection) {
  const auto first = Connect();
  std::vector<AcceptResult> results;
  owner.onRequest = [&](std::int32_t request) {
    for (const std::int32_t index : {2, 1, 7, -1, 10'001}) results.push_back(sockets.Accept(index, request));
    results.push_back(sockets.Accept(3, request));
  };
  const auto second = Connect();
  EXPECT_EQ(results,
            (std::vector<AcceptResult>{AcceptResult::kFailed, AcceptResult::kFailed, AcceptResult::kFailed,
                                       AcceptResult::kFailed, AcceptResult::kFailed, AcceptResult::kAccepted}));
  EXPECT_EQ(owner.received[3], "hello");
  EXPECT_EQ(sockets.State(1), SocketState::kListening);
}

TEST_F(SocketAcceptTest, ARequestOfOneArrayIsNothingToAnother) {
  Kit::SocketOwner other(loop);
  other.Listen(2);
  AcceptResult result = AcceptResult::kAccepted;
  owner.onRequest = [&](std::int32_t request) {
    result = other.sockets.Accept(2, request);
    owner.Take(request);
  };
  const auto client = Connect();
  EXPECT_EQ(result, AcceptResult::kGone);
  EXPECT_EQ(owner.received[2], "hello");
}

// ---- Clients that go away.

TEST_F(SocketAcceptTest, AConnectionAcceptedElsewhereIsGone) {
  std::vector<AcceptResult> results;
  owner.onRequest = [&](std::int32_t request) {
    close(accept(Listener(), nullptr, nullptr));
    results.push_back(owner.Take(request));
  };
  const auto client = Connect();
  EXPECT_EQ(results, std::vector<AcceptResult>{AcceptResult::kGone});
  EXPECT_EQ(sockets.State(2), SocketState::kClosed);
  owner.onRequest = [&](std::int32_t request) { owner.Take(request); };
  const auto next = Connect();
  EXPECT_EQ(owner.received[2], "hello") << "the next one is served at once";
}

TEST_F(SocketAcceptTest, AClientThatWentAwayWhileItWaitedIsAnErrorOfItsElement) {
  owner.onError = [&](std::int32_t index) { sockets.Reload(index); };
  owner.onClose = [&](std::int32_t index) { sockets.Reload(index); };
  {
    const auto client = Waiting();
    client->Abort();
  }
  Kit::Settle(loop);
  EXPECT_EQ(sockets.State(2), SocketState::kClosed);
  const auto next = Connect();
  EXPECT_TRUE(owner.received[2].ends_with("hello"));
  EXPECT_EQ(sockets.State(2), SocketState::kConnected);
}

// ---- No element is free.

TEST_F(SocketAcceptTest, AConnectionThatIsNotTakenStaysAndTheLoopRests) {
  owner.onRequest = [](std::int32_t) {};
  const auto client = Connect();
  EXPECT_EQ(Requests(), 1u) << "it is offered once, not in every turn";
  EXPECT_FALSE(loop.RunOnce(20));
  EXPECT_FALSE(client->Poll()) << "and the client is left waiting";
}

TEST_F(SocketAcceptTest, ItIsOfferedAgainAfterAQuarterOfASecond) {
  owner.onRequest = [](std::int32_t) {};
  const auto client = Connect();
  for (std::size_t expected = 1; expected <= 5; ++expected) {
    EXPECT_EQ(Requests(), expected);
    Pass(SocketArray::kOfferAgainMilliseconds - 1);
    EXPECT_EQ(Requests(), expected);
    Pass(1);
  }
  owner.onRequest = [&](std::int32_t request) { owner.Take(request); };
  Pass(SocketArray::kOfferAgainMilliseconds);
  EXPECT_EQ(owner.received[2], "hello");
  world.Advance(10'000);
  EXPECT_FALSE(loop.RunOnce(0)) << "then nothing more ticks";
}

TEST_F(SocketAcceptTest, ItIsServedAsSoonAsAnElementIsFree) {
  struct {
    const char* how;
    std::function<void(Kit::RawClient&)> free;
  } const cases[] = {
      {"closed", [&](Kit::RawClient&) { sockets.Close(2); }},
      {"reloaded", [&](Kit::RawClient&) { sockets.Reload(2); }},
      {"unloaded and loaded", [&](Kit::RawClient&) { sockets.Unload(2), sockets.Load(2); }},
      {"added", [&](Kit::RawClient&) { sockets.Load(4); }},
      {"ended by its client", [&](Kit::RawClient& client) { client.EndSending(); }},
      {"broken off by its client", [&](Kit::RawClient& client) { client.Abort(); }},
  };
  // takes what is closed, and recovers what its peer has left
  owner.onRequest = [&](std::int32_t request) {
    const std::int32_t free = sockets.LowestFree(2, 10'000);
    if (free < 0) return;
    sockets.Reload(free);
    sockets.Accept(free, request);
  };
  for (const auto& c : cases) {
    const auto first = Waiting();
    const auto second = Waiting();
    Kit::Settle(loop);
    const auto third = Connect();
    ASSERT_EQ(sockets.LowestFree(2, 10'000), -1) << c.how;
    const std::size_t before = owner.Count("data 2") + owner.Count("data 4");
    c.free(*first);
    Kit::Settle(loop);
    EXPECT_EQ(owner.Count("data 2") + owner.Count("data 4"), before + 1) << c.how << ", in no time";
    sockets.Unload(4);
    sockets.Reload(2);
    sockets.Reload(3);
    Kit::Settle(loop);
  }
}

TEST_F(SocketAcceptTest, AllThatWaitAreServedOneAfterTheOther) {
  owner.onData = [&](std::int32_t index) { sockets.SendData(index, Kit::TextAnswer("answer")); };
  owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };
  sockets.Unload(3);
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < 100; ++i) clients.push_back(Waiting());
  for (const auto& client : clients) EXPECT_EQ(client->ReceiveAll(loop), "answer");
  EXPECT_EQ(Requests(), 100u);
}

TEST_F(SocketAcceptTest, AClientThatGaveUpWaitingLeavesTheListenerListening) {
  owner.onRequest = [](std::int32_t) {};
  auto client = Connect();
  client.reset();
  owner.onRequest = [&](std::int32_t request) { owner.Take(request); };
  owner.onClose = [&](std::int32_t index) { sockets.Reload(index); };
  Pass(250);
  const auto next = Connect();
  EXPECT_EQ(owner.received[2], "hellohello");
}

TEST_F(SocketAcceptTest, ABusyServerGetsNoRequestWithoutAConnection) {
  sockets.Unload(3);
  owner.onRequest = [&](std::int32_t request) { owner.Take(request); };
  const auto client = Connect();
  ASSERT_EQ(sockets.LowestFree(2, 3), -1);
  for (int i = 0; i < 10; ++i) Pass(250);
  EXPECT_EQ(Requests(), 1u);
}

TEST_F(SocketAcceptTest, OfferingByHandDoesNotMultiplyTheOffers) {
  owner.onRequest = [](std::int32_t) {};
  const auto client = Connect();
  for (int i = 0; i < 20; ++i) sockets.OfferWaiting(1);
  const std::size_t before = Requests();
  EXPECT_EQ(before, 21u);
  for (std::size_t tick = 1; tick <= 3; ++tick) {
    Pass(250);
    EXPECT_EQ(Requests(), before + tick);
  }
}

TEST_F(SocketAcceptTest, ThePausedListenerMayBeClosedAndOpenedAgain) {
  owner.onRequest = [](std::int32_t) {};
  const auto client = Connect();
  for (int i = 0; i < 5; ++i) {
    sockets.Close(1);
    sockets.Listen(1);
    port = sockets.BoundPort(1);
    const auto other = Connect();
  }
  owner.onRequest = [&](std::int32_t request) { owner.Take(request); };
  const auto last = Waiting();
  const std::size_t before = Requests();
  Pass(250);
  EXPECT_LE(Requests(), before + 2) << "the last two that waited, once each";
  EXPECT_EQ(owner.received[3], "hello");
}

TEST_F(SocketAcceptTest, AnElementFreedWhileTheConnectionWasRefusedIsOfferedAtOnce) {
  const auto first = Waiting();
  const auto second = Waiting();
  Kit::Settle(loop);
  bool refused = false;
  owner.onRequest = [&](std::int32_t request) {
    if (refused) {
      owner.Take(request);
      return;
    }
    refused = true;
    sockets.Close(2);  // too late for the owner to notice
  };
  const auto third = Connect();
  EXPECT_EQ(owner.received[2], "hellohello") << "without waiting for the clock";
}

TEST_F(SocketAcceptTest, APausedListenerIsNotForgottenWhileAnotherIsServed) {
  sockets.Load(0);
  sockets.Bind(0, 0, "127.0.0.1");
  sockets.Listen(0);
  owner.onRequest = [](std::int32_t) {};
  const auto paused = Connect();
  const Kit::RawClient other(sockets.BoundPort(0));
  send(other.Descriptor(), "other", 5, MSG_NOSIGNAL);
  owner.onRequest = [&](std::int32_t request) {
    sockets.Reload(3);  // lets the first one be offered again, but not inside this offer
    loop.DoEvents();
    owner.Take(request);
  };
  Kit::Settle(loop);
  EXPECT_EQ(owner.received[2], "other");
  Pass(250);
  EXPECT_EQ(owner.received[3], "hello");
}

TEST_F(SocketAcceptTest, AListenerThatIsClosedWhilePausedIsNotOfferedAgain) {
  owner.onRequest = [](std::int32_t) {};
  const auto client = Connect();
  sockets.Unload(1);
  Pass(250);
  EXPECT_EQ(Requests(), 1u);
  EXPECT_TRUE(client->Poll()) << "its queue is closed with it";
}

// ---- No descriptor is left.

TEST_F(SocketAcceptTest, ALackOfDescriptorsIsWaitedOut) {
  std::vector<AcceptResult> results;
  owner.onRequest = [&](std::int32_t request) { results.push_back(owner.Take(request)); };
  const auto quarter = [&] { Pass(250); };
  const auto state = [&] { return sockets.State(3); };
  const auto first = Connect();
  quarter();
  ASSERT_EQ(results, std::vector<AcceptResult>{AcceptResult::kAccepted});
  ASSERT_EQ(state(), SocketState::kClosed);
  const auto second = Waiting();
  {
    const Kit::DescriptorFamine famine;
    Kit::Settle(loop);
    ASSERT_EQ(results.size(), 2u) << "one attempt, not a storm";
    EXPECT_EQ(results[1], AcceptResult::kFailed);
    EXPECT_EQ(state(), SocketState::kClosed);
    for (int tick = 0; tick < 3; ++tick) quarter();
    EXPECT_EQ(results.size(), 5u) << "one more each quarter of a second";
    EXPECT_FALSE(second->Poll());
  }
  Kit::Settle(loop);
  EXPECT_EQ(results.size(), 5u) << "the clock decides, not the kernel";
  quarter();
  EXPECT_EQ(results.back(), AcceptResult::kAccepted);
  EXPECT_EQ(owner.received[3], "hello");
}

TEST_F(SocketAcceptTest, ADescriptorThatComesFreeWithAnElementServesTheNextOne) {
  const auto renew = [&] {
    sockets.InputMayCome(2, false);
    sockets.Reload(2);
    Kit::Settle(loop);
  };
  const auto state = [&] { return sockets.State(2); };
  const auto first = Waiting();
  renew();
  ASSERT_EQ(state(), SocketState::kConnected);
  const auto second = Waiting();
  {
    const Kit::DescriptorFamine famine;
    Kit::Settle(loop);
    EXPECT_EQ(owner.received[2], "hello");
    renew();
    EXPECT_EQ(state(), SocketState::kConnected);
  }
  EXPECT_EQ(owner.received[2], "hellohello");
}

}  // namespace
}  // namespace TesselServer
