#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/sockets/SocketArray.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/SocketTest.h"

namespace TesselServer {
namespace {

// What the kernel tells of a connection (TCP_INFO, tcp(7)), as far as it is asked for here; the C library's own record
// is shorter.
struct TcpFacts {
  tcp_info beginning;
  std::uint64_t rates[2], bytes[2];
  std::uint32_t segmentsOut, segmentsIn;
};

class SocketCloseTest : public Kit::SocketTest {
 protected:
  // Whether the client's next bytes are answered with a reset.
  static bool IsCutOff(const Kit::RawClient& client) {
    send(client.Descriptor(), "x", 1, MSG_NOSIGNAL);
    return send(client.Descriptor(), "x", 1, MSG_NOSIGNAL) < 0;
  }
};

TEST_F(SocketCloseTest, TheElementIsFreeAtOnceAndTheClientSeesTheEnd) {
  const auto client = Connect();
  sockets.Close(2);
  EXPECT_EQ(sockets.State(2), SocketState::kClosed);
  EXPECT_EQ(sockets.LowestClosed(2, 3), 2);
  EXPECT_EQ(client->ReceiveAll(loop), "");
  EXPECT_FALSE(client->WasReset());
  EXPECT_EQ(owner.Count("close 2"), 0u) << "the owner knows";
}

TEST_F(SocketCloseTest, ClosingTwiceIsClosingOnce) {
  const auto client = Connect();
  sockets.Close(2);
  sockets.Close(2);
  EXPECT_EQ(sockets.LingeringCount(), 1u);
}

// ---- Orderly.

TEST_F(SocketCloseTest, WhileInputMayComeTheConnectionLingers) {
  const auto client = Connect();
  sockets.SendData(2, Kit::TextAnswer("answer"));
  Kit::Settle(loop);
  sockets.Reload(2);
  EXPECT_EQ(sockets.LingeringCount(), 1u);
  EXPECT_FALSE(IsCutOff(*client));
  EXPECT_EQ(client->ReceiveAll(loop), "answer");
  EXPECT_FALSE(client->WasReset());
  client->Close();
  Kit::Settle(loop);
  EXPECT_EQ(sockets.LingeringCount(), 0u);
}

TEST_F(SocketCloseTest, AClientThatGoesOnSendingGetsTheWholeAnswer) {
  const std::string bytes = Kit::Pattern(1'500'000);
  owner.onData = [&](std::int32_t index) {
    if (owner.Count("data 2") == 1) sockets.SendData(index, Kit::TextAnswer(bytes));
  };
  owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };
  Kit::RawClient client(port);
  // the request and a megabyte that nobody asked for, before it reads a byte
  EXPECT_TRUE(client.Send(loop, "hello" + std::string(1'000'000, 'x')));
  EXPECT_TRUE(client.ReceiveAll(loop) == bytes) << client.Received().size();
  EXPECT_FALSE(client.WasReset());
}

TEST_F(SocketCloseTest, AnElementThatLingersIsNoBurdenToTheNextClient) {
  const auto client = Connect();
  sockets.Reload(2);
  const auto next = Connect();
  send(client->Descriptor(), "late", 4, MSG_NOSIGNAL);
  Kit::Settle(loop);
  EXPECT_EQ(owner.received[2], "hellohello") << "what is dropped is nobody's";
  EXPECT_EQ(sockets.State(2), SocketState::kConnected);
}

TEST_F(SocketCloseTest, AfterTwoSecondsTheConnectionIsClosedWhateverTheClientDoes) {
  const auto client = Connect();
  sockets.Close(2);
  Pass(1900);
  EXPECT_EQ(sockets.LingeringCount(), 1u);
  EXPECT_FALSE(IsCutOff(*client));
  Pass(350);
  EXPECT_EQ(sockets.LingeringCount(), 0u);
  EXPECT_TRUE(IsCutOff(*client));
}

TEST_F(SocketCloseTest, ABoundedNumberLingers) {
  for (std::int32_t i = 4; i < 302; ++i) sockets.Load(i);
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < 300; ++i) {
    clients.push_back(std::make_unique<Kit::RawClient>(port));
    send(clients.back()->Descriptor(), "hello", 5, MSG_NOSIGNAL);
  }
  Kit::Settle(loop);
  for (std::int32_t i = 2; i < 302; ++i) {
    ASSERT_EQ(sockets.State(i), SocketState::kConnected) << i;
    sockets.SendData(i, Kit::TextAnswer("answer"));
    sockets.Reload(i);
    EXPECT_LE(sockets.LingeringCount(), 256u);
  }
  EXPECT_EQ(sockets.LingeringCount(), 256u);
  for (const auto& client : clients) EXPECT_EQ(client->ReceiveAll(loop), "answer");
}

// ---- Plain.

TEST_F(SocketCloseTest, WhenNothingMayComeTheConnectionIsClosedAtOnce) {
  const auto client = Connect();
  sockets.InputMayCome(2, false);
  sockets.SendData(2, Kit::TextAnswer("answer"));
  Kit::Settle(loop);
  const std::size_t before = Kit::CountDescriptors();
  sockets.Close(2);
  EXPECT_EQ(sockets.LingeringCount(), 0u);
  EXPECT_EQ(Kit::CountDescriptors(), before - 1);
  EXPECT_EQ(client->ReceiveAll(loop), "answer");
  EXPECT_FALSE(client->WasReset());
}

TEST_F(SocketCloseTest, BytesLeftUnreadMakeItOrderlyAllTheSame) {
  const auto client = Connect();
  sockets.InputMayCome(2, false);
  sockets.SendData(2, Kit::TextAnswer("answer"));
  send(client->Descriptor(), "more", 4, MSG_NOSIGNAL);  // it is there, and the loop has not read it
  sockets.Close(2);
  EXPECT_EQ(sockets.LingeringCount(), 1u);
  EXPECT_EQ(client->ReceiveAll(loop), "answer");
  EXPECT_FALSE(client->WasReset());
}

TEST_F(SocketCloseTest, WhatMayComeFromOneClientIsNotHeldAgainstTheNext) {
  const auto client = Connect();
  sockets.InputMayCome(2, false);
  sockets.Reload(2);
  const auto next = Connect();
  sockets.Reload(2);
  EXPECT_EQ(sockets.LingeringCount(), 1u) << "input may come, until it is said that it may not";
}

TEST_F(SocketCloseTest, APeerThatEndedIsNotWaitedFor) {
  const auto client = Connect();
  client->EndSending();
  Kit::Settle(loop);
  sockets.Reload(2);
  EXPECT_EQ(sockets.LingeringCount(), 0u);
  EXPECT_EQ(client->ReceiveAll(loop), "");
  EXPECT_FALSE(client->WasReset());
}

TEST_F(SocketCloseTest, APeerThatEndedBeforeItsAnswerIsNotWaitedForEither) {
  const auto client = Connect();
  sockets.AnswerPending(2, true);
  client->EndSending();
  Kit::Settle(loop);
  sockets.SendData(2, Kit::TextAnswer("answer"));
  sockets.Reload(2);
  EXPECT_EQ(sockets.LingeringCount(), 0u);
  EXPECT_EQ(client->ReceiveAll(loop), "answer");
  EXPECT_FALSE(client->WasReset());
}

TEST_F(SocketCloseTest, AnAnswerThatIsBrokenOffIsNotWaitedForEither) {
  const auto client = Connect();
  sockets.SendData(2, Kit::TextAnswer(std::string(20'000'000, 'a')));
  Kit::Settle(loop);
  sockets.Close(2);
  EXPECT_EQ(sockets.LingeringCount(), 0u);
  client->ReceiveAll(loop);
  EXPECT_TRUE(client->Ended());
  EXPECT_LT(client->Received().size(), 20'000'000u);
  EXPECT_EQ(owner.Count("sent 2"), 0u);
}

// ---- Nothing is left behind.

TEST_F(SocketCloseTest, AThousandRequestsLeaveNoDescriptorOpen) {
  owner.onData = [&](std::int32_t index) {
    sockets.InputMayCome(index, index == 2);
    sockets.SendData(index, Kit::TextAnswer("answer"));
  };
  owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };
  const std::size_t before = Kit::CountDescriptors();
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(Kit::Exchange(loop, port, "hello"), "answer") << i;
  Kit::Settle(loop);
  EXPECT_EQ(Kit::CountDescriptors(), before);
  EXPECT_EQ(sockets.LingeringCount(), 0u);
}

TEST_F(SocketCloseTest, NoEndOfAConnectionLeavesADescriptorOpen) {
  struct {
    const char* what;
    std::function<void(Kit::RawClient&)> act;
  } const cases[] = {
      {"nothing", [](Kit::RawClient&) {}},
      {"the client ends", [](Kit::RawClient& client) { client.EndSending(); }},
      {"the client breaks off", [](Kit::RawClient& client) { client.Abort(); }},
      {"the client leaves", [](Kit::RawClient& client) { client.Close(); }},
      {"it is being sent to", [&](Kit::RawClient&) { sockets.SendData(2, Kit::TextAnswer(Kit::Pattern(9'000'000))); }},
      {"it was sent to", [&](Kit::RawClient&) { sockets.SendData(2, Kit::TextAnswer("answer")); }},
      {"it lingers", [&](Kit::RawClient&) { sockets.Close(2); }},
      {"it waits for its answer",
       [&](Kit::RawClient& client) {
         sockets.AnswerPending(2, true);
         client.EndSending();
       }},
  };
  const std::size_t before = Kit::CountDescriptors();
  for (const auto& c : cases) {
    {
      const auto client = Connect();
      c.act(*client);
      Kit::Settle(loop);
      sockets.Unload(2);
      sockets.Load(2);
    }
    Kit::Settle(loop);
    EXPECT_EQ(Kit::CountDescriptors(), before) << c.what;
  }
}

// ---- Together with the answer.

TEST_F(SocketCloseTest, WhereTheCloseFollowsTheAnswerAndTheEndComeInOneSegment) {
  using AfterSend = SocketArray::AfterSend;
  const auto segmentsOf = [&](AfterSend after) {
    const auto client = Connect();
    sockets.InputMayCome(2, false);
    owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };
    sockets.SendData(2, Kit::TextAnswer("answer"), after);
    EXPECT_EQ(client->ReceiveAll(loop), "answer");
    EXPECT_FALSE(client->WasReset());
    TcpFacts facts{};
    socklen_t size = sizeof facts;
    EXPECT_EQ(getsockopt(client->Descriptor(), IPPROTO_TCP, TCP_INFO, &facts, &size), 0);
    EXPECT_EQ(size, sizeof facts);
    return facts.segmentsIn;
  };
  EXPECT_EQ(segmentsOf(AfterSend::kCloses) + 1, segmentsOf(AfterSend::kStaysOpen));
}

TEST_F(SocketCloseTest, WhereTheCloseDoesNotFollowAfterAllTheAnswerGoesOutByItself) {
  const auto client = Connect();
  sockets.SendData(2, Kit::TextAnswer("answer"), SocketArray::AfterSend::kCloses);
  EXPECT_TRUE(Kit::RunUntil(loop, [&] { return client->Poll() || client->Received() == "answer"; }));
  EXPECT_EQ(client->Received(), "answer");
  EXPECT_FALSE(client->Ended());
}

TEST_F(SocketCloseTest, AnOrderlyCloseLetsTheAnswerGoAtOnceToo) {
  const auto client = Connect();
  owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };
  sockets.SendData(2, Kit::TextAnswer("answer"), SocketArray::AfterSend::kCloses);
  EXPECT_EQ(client->ReceiveAll(loop), "answer");
  EXPECT_EQ(sockets.LingeringCount(), 1u);
}

}  // namespace
}  // namespace TesselServer
