#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/sockets/SocketArray.h"
#include "tests/kit/SocketTest.h"

namespace TesselServer {
namespace {

class SocketReceiveTest : public Kit::SocketTest {};

// ---- Bytes.

TEST_F(SocketReceiveTest, EachPieceIsANotificationAsItComes) {
  const auto client = Connect("one");
  client->Send(loop, "three");
  Kit::Settle(loop);
  client->Send(loop, "fourteen bytes");
  Kit::Settle(loop);
  EXPECT_EQ(owner.heard, (std::vector<std::string>{"request 1", "data 2 3", "data 2 5", "data 2 14"}));
  EXPECT_EQ(owner.received[2], "onethreefourteen bytes");
}

TEST_F(SocketReceiveTest, ALongInputComesInPiecesOfBoundedSizeAndWhole) {
  const std::string bytes = Kit::Pattern(3'000'000);
  std::int64_t longest = 0;
  owner.onData = [&](std::int32_t index) {
    longest = std::max(longest, static_cast<std::int64_t>(sockets.GetData(index).size()));
  };
  Kit::RawClient client(port);
  ASSERT_TRUE(client.Send(loop, bytes));
  EXPECT_TRUE(Kit::RunUntil(loop, [&] { return owner.received[2].size() == bytes.size(); }));
  EXPECT_TRUE(owner.received[2] == bytes);
  EXPECT_LE(longest, static_cast<std::int64_t>(SocketArray::kChunkBytes));
}

TEST_F(SocketReceiveTest, OneConnectionReadsOnePieceATurnSoThatOthersHaveTheirs) {
  const auto greedy = Connect();
  const auto other = Connect();
  const std::string flood(4'000'000, 'f');
  send(greedy->Descriptor(), flood.data(), flood.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  send(other->Descriptor(), "me too", 6, MSG_NOSIGNAL);
  owner.heard.clear();
  loop.RunOnce(1000);
  EXPECT_EQ(owner.Count("data 2"), 1u);
  EXPECT_EQ(owner.Count("data 3 6"), 1u);
}

TEST_F(SocketReceiveTest, EveryByteValueArrives) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  const auto client = Connect(bytes);
  EXPECT_EQ(owner.received[2], bytes);
}

TEST_F(SocketReceiveTest, DataAreThoseOfTheElementOfTheNotification) {
  owner.onData = [&](std::int32_t index) {
    EXPECT_EQ(sockets.GetData(index == 2 ? 3 : 2), "");
    EXPECT_EQ(sockets.GetData(1), "");
    EXPECT_NE(sockets.GetData(index), "");
  };
  const auto first = Connect("first");
  const auto second = Connect("second");
  EXPECT_EQ(owner.received[2], "first");
  EXPECT_EQ(owner.received[3], "second");
}

// ---- The peer closes its side.

TEST_F(SocketReceiveTest, AClosedSideIsOneNotificationAndTheElementIsClosing) {
  const auto client = Connect();
  client->EndSending();
  Kit::Settle(loop);
  EXPECT_EQ(owner.Count("close 2"), 1u);
  EXPECT_EQ(sockets.State(2), SocketState::kClosing);
  EXPECT_FALSE(loop.RunOnce(10)) << "and nothing more is heard of it";
}

TEST_F(SocketReceiveTest, WhatCameBeforeTheEndIsReadFirst) {
  const std::string bytes = Kit::Pattern(500'000);
  Kit::RawClient client(port);
  ASSERT_TRUE(client.Send(loop, bytes));
  client.EndSending();
  Kit::Settle(loop);
  EXPECT_TRUE(owner.received[2] == bytes);
  EXPECT_EQ(owner.heard.back(), "close 2");
}

TEST_F(SocketReceiveTest, RequestAndEndTogetherAreRaisedInTheirOrder) {
  Kit::RawClient client(port);
  send(client.Descriptor(), "hello", 5, MSG_NOSIGNAL);
  client.EndSending();
  Kit::Settle(loop);
  EXPECT_EQ(owner.heard, (std::vector<std::string>{"request 1", "data 2 5", "close 2"}));
}

TEST_F(SocketReceiveTest, AnAnswerMayStillBeSentInsideTheNotification) {
  owner.onClose = [&](std::int32_t index) {
    EXPECT_EQ(sockets.State(index), SocketState::kConnected);
    sockets.SendData(index, Kit::TextAnswer("late answer"));
  };
  owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };
  const auto client = Connect();
  client->EndSending();
  EXPECT_EQ(client->ReceiveAll(loop), "late answer");
  EXPECT_FALSE(client->WasReset());
}

TEST_F(SocketReceiveTest, AnAnswerThatIsPendingKeepsTheElementConnected) {
  const auto client = Connect();
  sockets.AnswerPending(2, true);
  client->EndSending();
  Kit::Settle(loop);
  EXPECT_EQ(owner.Count("close 2"), 1u);
  EXPECT_EQ(sockets.State(2), SocketState::kConnected);
  EXPECT_EQ(sockets.LowestFree(2, 2), -1);
  EXPECT_FALSE(loop.RunOnce(10)) << "nor does the loop spin on it";
  owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };
  sockets.SendData(2, Kit::TextAnswer("answer"));
  EXPECT_EQ(client->ReceiveAll(loop), "answer");
  EXPECT_FALSE(client->WasReset());
}

TEST_F(SocketReceiveTest, AnAnswerMayBePromisedInsideTheNotification) {
  owner.onClose = [&](std::int32_t index) { sockets.AnswerPending(index, true); };
  const auto client = Connect();
  client->EndSending();
  Kit::Settle(loop);
  EXPECT_EQ(sockets.State(2), SocketState::kConnected);
}

TEST_F(SocketReceiveTest, ThePromiseTakenBackTheStateFollows) {
  const auto client = Connect();
  sockets.AnswerPending(2, true);
  sockets.AnswerPending(2, false);
  EXPECT_EQ(sockets.State(2), SocketState::kConnected) << "the peer is there";
  sockets.AnswerPending(2, true);
  client->EndSending();
  Kit::Settle(loop);
  sockets.AnswerPending(2, false);
  EXPECT_EQ(sockets.State(2), SocketState::kClosing);
  EXPECT_FALSE(loop.RunOnce(10));
  owner.heard.clear();
  client->Abort();
  Kit::Settle(loop);
  EXPECT_TRUE(owner.heard.empty()) << "nothing more is heard of it";
}

TEST_F(SocketReceiveTest, ThePromiseOfOneClientIsNotKeptToTheNext) {
  auto client = Connect();
  sockets.AnswerPending(2, true);
  sockets.Reload(2);
  client = Connect();
  client->EndSending();
  Kit::Settle(loop);
  EXPECT_EQ(sockets.State(2), SocketState::kClosing);
}

TEST_F(SocketReceiveTest, TheStateFollowsWhenTheAnswerHasGone) {
  struct {
    const char* when;
    std::size_t size;
  } const cases[] = {{"at once", 10}, {"after a while", 20'000'000}};
  for (const auto& c : cases) {
    const auto client = Connect();
    owner.heard.clear();
    client->EndSending();
    sockets.SendData(2, Kit::TextAnswer(std::string(c.size, 'a')));
    Kit::RunUntil(loop, [&] {
      client->Poll();
      return client->Received().size() == c.size;
    });
    Kit::Settle(loop);
    EXPECT_EQ(client->Received().size(), c.size) << c.when;
    EXPECT_EQ(owner.Count("close 2"), 1u) << c.when;
    EXPECT_EQ(owner.Count("sent 2"), 1u) << c.when;
    EXPECT_EQ(sockets.State(2), SocketState::kClosing) << c.when << ", and not lost for ever";
    sockets.Reload(2);
  }
}

// ---- The peer breaks off.

TEST_F(SocketReceiveTest, AResetIsAnErrorOfTheElementWhateverItIsDoing) {
  struct {
    const char* what;
    std::function<void(Kit::RawClient&)> prepare;
  } const cases[] = {
      {"waiting for more", [](Kit::RawClient&) {}},
      {"an answer is pending", [&](Kit::RawClient&) { sockets.AnswerPending(2, true); }},
      {"an answer is pending and the peer closed its side",
       [&](Kit::RawClient& client) {
         sockets.AnswerPending(2, true);
         client.EndSending();
         Kit::Settle(loop);
       }},
      {"sending", [&](Kit::RawClient&) { sockets.SendData(2, Kit::TextAnswer(Kit::Pattern(20'000'000))); }},
      {"sending and the peer closed its side",
       [&](Kit::RawClient& client) {
         sockets.SendData(2, Kit::TextAnswer(Kit::Pattern(20'000'000)));
         client.EndSending();
         Kit::Settle(loop);
       }},
      {"the answer has gone and nobody closed",
       [&](Kit::RawClient&) {
         sockets.SendData(2, Kit::TextAnswer("answer"));
         Kit::Settle(loop);
       }},
  };
  for (const auto& c : cases) {
    const auto client = Connect();
    c.prepare(*client);
    Kit::Settle(loop);
    ASSERT_EQ(sockets.State(2), SocketState::kConnected) << c.what;
    owner.heard.clear();
    client->Abort();
    Kit::Settle(loop);
    EXPECT_EQ(owner.heard, std::vector<std::string>{"error 2 10054 Connection reset by peer."}) << c.what;
    EXPECT_EQ(sockets.State(2), SocketState::kError) << c.what;
    EXPECT_EQ(sockets.RemoteHostIP(2), "") << c.what;
    sockets.Reload(2);
    EXPECT_EQ(sockets.State(2), SocketState::kClosed) << c.what;
  }
}

TEST_F(SocketReceiveTest, AResetOfAClosingElementIsNotRaised) {
  const auto client = Connect();
  client->EndSending();
  Kit::Settle(loop);
  owner.heard.clear();
  client->Abort();
  Kit::Settle(loop);
  EXPECT_TRUE(owner.heard.empty());
  EXPECT_EQ(sockets.State(2), SocketState::kClosing);
}

TEST_F(SocketReceiveTest, AResetAfterUnreadBytesIsRaisedInTheEnd) {
  const auto client = Connect();
  owner.heard.clear();
  send(client->Descriptor(), "more", 4, MSG_NOSIGNAL);
  client->Abort();
  Kit::Settle(loop);
  EXPECT_EQ(owner.Count("error 2 10054"), 1u);
  EXPECT_EQ(sockets.State(2), SocketState::kError);
}

TEST_F(SocketReceiveTest, AFailedElementTakesNothingUntilItIsRenewed) {
  const auto client = Connect();
  client->Abort();
  Kit::Settle(loop);
  ASSERT_EQ(sockets.State(2), SocketState::kError);
  const auto second = Connect("second");
  EXPECT_EQ(owner.received[3], "second");
  owner.heard.clear();
  sockets.Reload(2);
  const auto third = Connect("third");
  EXPECT_EQ(owner.received[2], "hellothird");
}

// ---- Notifications of the past.

TEST_F(SocketReceiveTest, AnElementClosedInsideAnothersNotificationGetsNone) {
  struct {
    const char* how;
    std::function<void(std::int32_t)> close;
  } const cases[] = {
      {"closed", [&](std::int32_t index) { sockets.Close(index); }},
      {"reloaded", [&](std::int32_t index) { sockets.Reload(index); }},
      {"unloaded", [&](std::int32_t index) { sockets.Unload(index); }},
  };
  for (const auto& c : cases) {
    const auto first = Connect();
    const auto second = Connect();
    owner.heard.clear();
    owner.onData = [&](std::int32_t index) { c.close(index == 2 ? 3 : 2); };
    send(first->Descriptor(), "more", 4, MSG_NOSIGNAL);
    send(second->Descriptor(), "more", 4, MSG_NOSIGNAL);
    Kit::Settle(loop);
    EXPECT_EQ(owner.heard.size(), 1u) << c.how << ": whichever was first";
    owner.onData = [](std::int32_t) {};
    sockets.Reload(2);
    sockets.Reload(3);
    Kit::Settle(loop);
  }
}

TEST_F(SocketReceiveTest, ANewClientDoesNotHearTheEndOfTheOldOne) {
  auto first = Connect();
  auto second = Connect();
  owner.heard.clear();
  // both connections are reset in one batch; whichever is heard first, the other's element gets a new client
  owner.onError = [&](std::int32_t index) {
    const std::int32_t other = index == 2 ? 3 : 2;
    sockets.Reload(other);
    sockets.OfferWaiting(1);
    EXPECT_EQ(sockets.State(other), SocketState::kConnected);
  };
  first->Abort();
  second->Abort();
  Kit::RawClient third(port);
  send(third.Descriptor(), "third", 5, MSG_NOSIGNAL);
  Kit::Settle(loop);
  EXPECT_EQ(owner.Count("error 2") + owner.Count("error 3"), 1u);
  EXPECT_EQ(owner.Count("data 2 5") + owner.Count("data 3 5"), 1u);
  EXPECT_EQ(sockets.State(2) == SocketState::kConnected, sockets.State(3) == SocketState::kError);
}

TEST_F(SocketReceiveTest, AnElementMayBeRenewedInsideEachOfItsOwnNotifications) {
  const std::function<void(std::int32_t)> ways[] = {[&](std::int32_t index) { sockets.Close(index); },
                                                    [&](std::int32_t index) { sockets.Reload(index); },
                                                    [&](std::int32_t index) { sockets.Unload(index); }};
  for (const auto& way : ways) {
    struct {
      const char* what;
      std::function<void(std::int32_t)>& event;
      std::function<void(Kit::RawClient&)> provoke;
    } const cases[] = {
        {"data", owner.onData, [&](Kit::RawClient& client) { client.Send(loop, "more"); }},
        {"sent", owner.onSent, [&](Kit::RawClient&) { sockets.SendData(2, Kit::TextAnswer("answer")); }},
        {"sent late", owner.onSent,
         [&](Kit::RawClient& client) {
           sockets.SendData(2, Kit::TextAnswer(Kit::Pattern(20'000'000)));
           Kit::RunUntil(loop, [&] {
             client.Poll();
             return owner.Count("sent 2") > 0;
           });
         }},
        {"close", owner.onClose, [](Kit::RawClient& client) { client.EndSending(); }},
        {"error", owner.onError, [](Kit::RawClient& client) { client.Abort(); }},
    };
    for (const auto& c : cases) {
      const auto client = Connect();
      ASSERT_EQ(sockets.State(2), SocketState::kConnected) << c.what;
      owner.heard.clear();
      c.event = way;
      c.provoke(*client);
      Kit::Settle(loop);
      EXPECT_EQ(owner.heard.size(), 1u) << c.what;
      EXPECT_EQ(sockets.IsLoaded(2) ? sockets.State(2) : SocketState::kClosed, SocketState::kClosed) << c.what;
      c.event = [](std::int32_t) {};
      sockets.Reload(2);
    }
  }
}

TEST_F(SocketReceiveTest, EverythingMayBeClosedInsideANotification) {
  owner.onData = [&](std::int32_t) {
    for (std::int32_t i = sockets.HighestIndex(); i >= 0; --i) sockets.Unload(i);
  };
  const Kit::RawClient first(port);
  const Kit::RawClient second(port);
  send(first.Descriptor(), "hello", 5, MSG_NOSIGNAL);
  send(second.Descriptor(), "hello", 5, MSG_NOSIGNAL);
  Kit::Settle(loop);
  EXPECT_EQ(owner.heard, (std::vector<std::string>{"request 1", "data 2 5"}))
      << "the second was never offered: its listener is gone";
}

TEST_F(SocketReceiveTest, YieldingInsideDataMayDeliverOthersAndClosesNothingTwice) {
  const auto first = Connect();
  const auto second = Connect();
  int depth = 0;
  owner.onData = [&](std::int32_t index) {
    if (++depth == 1) {
      loop.DoEvents();
      loop.DoEvents();
      sockets.Reload(index);
    } else {
      sockets.Reload(index == 2 ? 3 : 2);  // the one whose notification is still on the stack
    }
    --depth;
  };
  send(first->Descriptor(), "more", 4, MSG_NOSIGNAL);
  send(second->Descriptor(), "more", 4, MSG_NOSIGNAL);
  Kit::Settle(loop);
  EXPECT_EQ(owner.received[2] + owner.received[3], "hellomorehellomore");
}

TEST_F(SocketReceiveTest, TheOwnerMayBeDeletedInsideItsNotification) {
  for (const char* when : {"request", "data", "sent", "close", "error"}) {
    auto doomed = std::make_shared<Kit::SocketOwner>(loop);
    const std::weak_ptr<Kit::SocketOwner> alive = doomed;
    Kit::SocketOwner* const raw = doomed.get();
    const auto bury = [&](std::int32_t) {
      loop.DeleteLater(std::move(doomed));
      EXPECT_FALSE(alive.expired()) << when;
    };
    const std::int32_t its = raw->Listen(2);
    if (std::string_view(when) == "request") raw->onRequest = bury;
    if (std::string_view(when) == "data") raw->onData = bury;
    if (std::string_view(when) == "close") raw->onClose = bury;
    if (std::string_view(when) == "error") raw->onError = bury;
    if (std::string_view(when) == "sent") {
      raw->onData = [raw](std::int32_t index) { raw->sockets.SendData(index, Kit::TextAnswer("answer")); };
      raw->onSent = bury;
    }
    Kit::RawClient client(its);
    Kit::RawClient other(its);
    client.Send(loop, "hello");
    other.Send(loop, "hello");
    if (std::string_view(when) == "close") client.EndSending();
    if (std::string_view(when) == "error") {
      Kit::Settle(loop);
      client.Abort();
    }
    Kit::Settle(loop);
    EXPECT_TRUE(alive.expired()) << when;
  }
}

}  // namespace
}  // namespace TesselServer
