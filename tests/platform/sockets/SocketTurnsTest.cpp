#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/sockets/SocketArray.h"
#include "tests/kit/SocketTest.h"

namespace TesselServer {
namespace {

// Connections that wait together are accepted, read and served one after the other.
class SocketTurnsTest : public Kit::SocketTest {
 protected:
  // Has the owner answer every request and close its connection behind the answer.
  void AnswerEachAndClose() {
    owner.onData = [this](std::int32_t index) {
      sockets.InputMayCome(index, false);
      sockets.SendData(index, Kit::TextAnswer("answer"), SocketArray::AfterSend::kCloses);
    };
    owner.onSent = [this](std::int32_t index) { sockets.Reload(index); };
  }
};

TEST_F(SocketTurnsTest, ThoseThatWaitAreServedInTheirOrderWithTheirOwnBytes) {
  constexpr int kMany = 16;
  for (std::int32_t i = 4; i < 2 + kMany; ++i) sockets.Load(i);
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  std::vector<std::string> expected;
  for (int i = 0; i < kMany; ++i) {
    clients.push_back(std::make_unique<Kit::RawClient>(port));
    const std::string bytes(static_cast<std::size_t>(1 + i * 500), static_cast<char>('!' + i));  // not all fit at once
    send(clients.back()->Descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    expected.push_back(bytes);
  }
  Kit::Settle(loop);
  for (int i = 0; i < kMany; ++i) EXPECT_EQ(owner.received[2 + i], expected[static_cast<std::size_t>(i)]) << i;
}

TEST_F(SocketTurnsTest, AHandlerThatYieldsLetsTheOthersBeServed) {
  std::string servedInside;
  owner.onData = [&](std::int32_t index) {
    if (index != 2) return;
    EXPECT_EQ(owner.received[3], "");
    loop.DoEvents();
    servedInside = owner.received[3];
  };
  const auto first = Waiting();
  const auto second = Waiting();
  Kit::Settle(loop);
  EXPECT_EQ(servedInside, "hello");
  EXPECT_EQ(Served(), 2u);
}

TEST_F(SocketTurnsTest, NewClientsAreServedInsideAHandlerThatYields) {
  for (std::int32_t i = 4; i < 10; ++i) sockets.Load(i);
  std::unique_ptr<Kit::RawClient> third;
  owner.onData = [&](std::int32_t index) {
    if (index != 2 || third) return;
    third = std::make_unique<Kit::RawClient>(port);
    send(third->Descriptor(), "third", 5, MSG_NOSIGNAL);
    for (int i = 0; i < 3; ++i) loop.DoEvents();
    EXPECT_EQ(owner.received[3], "hello");
    EXPECT_EQ(owner.received[4], "third");
  };
  const auto first = Waiting();
  const auto second = Waiting();
  Kit::Settle(loop);
  EXPECT_EQ(owner.received[4], "third");
}

TEST_F(SocketTurnsTest, AHandlerThatYieldsGetsTheConnectionsThatWaitWithIt) {
  for (std::int32_t i = 4; i < 8; ++i) sockets.Load(i);
  for (const std::int64_t pause : {0, 1}) {  // a turn that has time, and one that has none
    owner.received.clear();
    const auto waitFor = [&](std::int32_t index) {
      for (int i = 0; i < 100 && owner.received[index].empty(); ++i) loop.DoEvents();
      EXPECT_EQ(owner.received[index], "hello") << index << ", " << pause;
    };
    owner.onData = [&](std::int32_t index) {
      world.Advance(pause);
      if (index == 2) waitFor(3);
      if (index == 3) loop.DoEvents();
      if (index == 4) waitFor(5);
    };
    std::vector<std::unique_ptr<Kit::RawClient>> clients;
    for (int i = 0; i < 4; ++i) clients.push_back(Waiting());
    Kit::Settle(loop);
    for (std::int32_t i = 2; i < 8; ++i) sockets.Reload(i);
    Kit::Settle(loop);
  }
}

TEST_F(SocketTurnsTest, AnExceptionOutOfOneHandlerLeavesTheOthersTheirBytes) {
  bool thrown = false;
  owner.onData = [&](std::int32_t) {
    if (!std::exchange(thrown, true)) throw std::bad_alloc();
  };
  const auto first = Waiting();
  const auto second = Waiting();
  const auto third = Waiting();
  EXPECT_THROW(Kit::Settle(loop), std::bad_alloc);
  EXPECT_EQ(sockets.State(2), SocketState::kClosed) << "the connection is closed, and not forgotten";
  Kit::Settle(loop);
  EXPECT_EQ(owner.received[2], "hellohello");
  EXPECT_EQ(owner.received[3], "hello");
}

TEST_F(SocketTurnsTest, AnExceptionAfterAnAcceptClosesTheElement) {
  bool thrown = false;
  owner.onRequest = [&](std::int32_t request) {
    owner.Take(request);
    if (!std::exchange(thrown, true)) throw std::bad_alloc();
  };
  const auto first = Waiting();
  EXPECT_THROW(Kit::Settle(loop), std::bad_alloc);
  EXPECT_EQ(sockets.State(2), SocketState::kClosed) << "nobody would ever read it";
  const auto second = Connect();
  EXPECT_EQ(owner.received[2], "hello") << "and is free for the next";
}

// ---- Their ends.

TEST_F(SocketTurnsTest, OneThatIsAnsweredEndsBeforeTheNextIsServed) {
  AnswerEachAndClose();
  const auto first = Waiting();
  const auto second = Waiting();
  bool ended = false;
  owner.onData = [&, answer = owner.onData](std::int32_t index) {
    if (Served() == 2) ended = first->Poll();
    answer(index);
  };
  Kit::Settle(loop);
  EXPECT_TRUE(ended);
  for (const auto* client : {&first, &second}) {
    EXPECT_TRUE((*client)->Poll());
    EXPECT_EQ((*client)->Received(), "answer");
    EXPECT_FALSE((*client)->WasReset());
  }
  EXPECT_EQ(sockets.LingeringCount(), 0u);
}

TEST_F(SocketTurnsTest, ASecondRequestDoesNotEatTheAnswerToTheFirst) {
  AnswerEachAndClose();
  const auto client = Waiting();
  owner.onData = [&, answer = owner.onData](std::int32_t index) {
    answer(index);
    send(client->Descriptor(), "again", 5, MSG_NOSIGNAL);
  };
  loop.RunOnce(0);
  EXPECT_EQ(sockets.LingeringCount(), 1u);
  EXPECT_TRUE(client->Poll());
  EXPECT_EQ(client->Received(), "answer");
  EXPECT_FALSE(client->WasReset());
}

TEST_F(SocketTurnsTest, ALongRequestIsReportedInOnePiece) {
  for (std::int32_t i = 4; i < 10; ++i) sockets.Load(i);
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  const std::string bytes = Kit::Pattern(30'000);
  for (int i = 0; i < 6; ++i) {
    clients.push_back(std::make_unique<Kit::RawClient>(port));
    ASSERT_EQ(send(clients.back()->Descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL), 30'000);
  }
  Kit::Settle(loop);
  for (std::int32_t i = 2; i < 8; ++i) {
    EXPECT_EQ(owner.Count("data " + std::to_string(i)), 1u) << i;
    EXPECT_TRUE(owner.received[i] == bytes) << i;
  }
}

TEST_F(SocketTurnsTest, OneThatWasRefusedIsOfferedAgainHoweverLongTheHandlersTake) {
  for (std::int32_t i = 4; i < 20; ++i) sockets.Load(i);
  owner.onData = [&](std::int32_t) { world.Advance(300); };
  bool refused = false;
  owner.onRequest = [&](std::int32_t request) {
    if (Requests() == 7 && !std::exchange(refused, true)) return;
    owner.Take(request);
  };
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < 7; ++i) clients.push_back(Waiting());
  for (int i = 0; i < 100; ++i) {
    Kit::Settle(loop);
    world.Advance(250);
  }
  EXPECT_TRUE(refused);
  EXPECT_EQ(owner.received[8], "hello");
}

TEST_F(SocketTurnsTest, WhenATurnHasTakenItsTimeTheRestIsServedInTheNext) {
  constexpr std::size_t kMany = 8;
  for (std::int32_t i = 4; i < 10; ++i) sockets.Load(i);
  std::size_t served = 0;
  owner.onData = [&](std::int32_t) {
    ++served;
    world.Advance(1);
  };
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (std::size_t i = 0; i < kMany; ++i) clients.push_back(Waiting());
  for (std::size_t before = 0; before < kMany; before = served) {
    loop.RunOnce(1000);
    EXPECT_GT(served, before);
    EXPECT_EQ(served, before + 1) << "one in each turn";
  }
  Kit::Settle(loop);
  EXPECT_EQ(served, kMany);
}

TEST_F(SocketTurnsTest, ARefusedConnectionIsServedBeforeLaterOnes) {
  int refusals = 0;
  owner.onRequest = [&](std::int32_t request) {
    if (owner.sockets.State(2) == SocketState::kConnected && refusals++ == 0) return;
    owner.Take(request);
  };
  sockets.Load(4);
  const auto first = Waiting();
  const Kit::RawClient second(port);
  send(second.Descriptor(), "second", 6, MSG_NOSIGNAL);
  const Kit::RawClient third(port);
  send(third.Descriptor(), "third", 5, MSG_NOSIGNAL);
  Kit::Settle(loop);
  EXPECT_EQ(refusals, 1);
  EXPECT_EQ(owner.received[3], "");
  Pass(SocketArray::kOfferAgainMilliseconds);
  EXPECT_EQ(owner.received[3], "second");
  EXPECT_EQ(owner.received[4], "third");
}

TEST_F(SocketTurnsTest, OneThatWasRefusedEndsWithItsListener) {
  owner.onRequest = [&](std::int32_t request) {
    if (owner.sockets.State(2) != SocketState::kConnected) owner.Take(request);
  };
  const auto first = Waiting();
  const auto second = Waiting();
  Kit::Settle(loop);
  ASSERT_EQ(Served(), 1u);
  sockets.Close(1);
  Kit::Settle(loop);
  EXPECT_TRUE(second->Poll());
  EXPECT_FALSE(first->Poll());
}

}  // namespace
}  // namespace TesselServer
