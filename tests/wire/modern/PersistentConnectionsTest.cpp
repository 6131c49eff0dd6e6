// Connections that carry one request after the other: when they go on, when they end, and that an idle one is in no
// other client's way.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/kit/ModernControl.h"

namespace TesselServer::Modern {
namespace {

class PersistentConnectionsTest : public Kit::ModernTest {
 protected:
  PersistentConnectionsTest() {
    tree.Write("a.txt", "first");
    tree.Write("b.txt", "second one");
  }
};

TEST_F(PersistentConnectionsTest, GoOnAsTheirVersionAndTheirClientSay) {
  const struct {
    const char *request, *notice;
    bool goesOn;
    const char* why;
  } cases[] = {
      {"GET /a.txt HTTP/1.1\r\nHost: h\r\n\r\n", "", true, "1.1 goes on by itself"},
      {"GET /a.txt HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n", "close", false, "the client ends it"},
      {"GET /a.txt HTTP/1.1\r\nHost: h\r\nConnection: x, CLOSE\r\n\r\n", "close", false, "a list, in any case"},
      {"GET /a.txt HTTP/1.0\r\n\r\n", "close", false, "1.0 ends by itself"},
      {"GET /a.txt HTTP/1.0\r\nConnection: keep-alive\r\n\r\n", "keep-alive", true, "1.0 that asks for it"},
      {"GET /none HTTP/1.1\r\nHost: h\r\n\r\n", "", true, "404 is an answer like others"},
      {"GET /%zz HTTP/1.1\r\nHost: h\r\n\r\n", "", true, "a path that is none: where the next request begins is known"},
      {"GET /a b HTTP/1.1\r\nHost: h\r\n\r\n", "close", false, "no request line: it is not known"},
      {"GET /a.txt HTTP/1.1\r\n\r\n", "close", false, "no Host"},
  };
  Start();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const auto client = Send(c.request);
    client->Poll();
    EXPECT_EQ(client->Ended(), !c.goesOn);
    EXPECT_EQ(FieldOf(client->Received(), "Connection"), c.notice);
  }
}

TEST_F(PersistentConnectionsTest, EachRequestHasItsAnswerInOrder) {
  Start();
  const std::string two = Request("/a.txt") + Request("/b.txt", "Connection: close\r\n");
  for (std::size_t cut = 0; cut <= two.size(); cut += 7) {
    auto client = Send(two.substr(0, cut));
    client->Send(control.loop, two.substr(cut));
    const std::vector<std::string> answers = AnswersOf(client->ReceiveAll(control.loop));
    ASSERT_EQ(answers.size(), 2u) << cut;
    EXPECT_EQ(Kit::BodyOf(answers[0]), "first");
    EXPECT_EQ(Kit::BodyOf(answers[1]), "second one");
  }
}

TEST_F(PersistentConnectionsTest, ManyRequestsThatComeTogetherAreAnsweredInOrder) {
  Start();
  std::string requests;
  for (int i = 0; i < 300; ++i) requests += Request(i % 2 == 0 ? "/a.txt" : "/b.txt");
  requests += Request("/a.txt", "Connection: close\r\n");
  auto client = Send(requests);
  const auto answers = AnswersOf(client->ReceiveAll(control.loop));
  ASSERT_EQ(answers.size(), 301u);
  for (std::size_t i = 0; i < 300; ++i) EXPECT_EQ(Kit::BodyOf(answers[i]), i % 2 == 0 ? "first" : "second one");
  EXPECT_EQ(control.log.size(), 301u);
}

TEST_F(PersistentConnectionsTest, AnIdleOneKeepsNoOtherClientOut) {
  tessel.MaxConnections(2);
  Start();
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < 20; ++i) {
    clients.push_back(Send(Request("/a.txt")));
    clients.back()->Poll();
    EXPECT_EQ(Kit::BodyOf(clients.back()->Received()), "first") << i;
    EXPECT_FALSE(clients.back()->Ended());
  }
  for (std::size_t i = 0; i + 1 < clients.size(); ++i) EXPECT_TRUE(clients[i]->Poll()) << "its slot was used";
}

TEST_F(PersistentConnectionsTest, TheOneIdleLongestGoesFirst) {
  tessel.MaxConnections(3);  // two clients
  Start();
  auto older = Send(Request("/a.txt"));
  auto newer = Send(Request("/a.txt"));
  older->Send(control.loop, Request("/b.txt"));  // now it has been idle for the shorter time
  Kit::Settle(control.loop);
  const auto third = Send(Request("/a.txt"));
  EXPECT_FALSE(older->Poll());
  EXPECT_TRUE(newer->Poll());
}

TEST_F(PersistentConnectionsTest, OneThatHasARequestUnderWayStays) {
  tessel.MaxConnections(2);
  Start();
  auto client = Send("GET /a.txt HTTP/1.1\r\nHo");
  auto other = Send(Request("/a.txt"));
  EXPECT_EQ(other->Received(), "");
  client->Send(control.loop, "st: h\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(Kit::BodyOf(client->ReceiveAll(control.loop)), "first");
  EXPECT_TRUE(Kit::RunUntil(control.loop, [&] {
    other->Poll();
    return Kit::BodyOf(other->Received()) == "first";
  }));
}

TEST_F(PersistentConnectionsTest, AnIdleOneEndsAfterItsTime) {
  Start();
  const auto client = Send(Request("/a.txt"));
  Pass(14'900);
  EXPECT_FALSE(client->Poll());
  Pass(200);
  EXPECT_TRUE(client->Poll());
  EXPECT_FALSE(client->WasReset());
  EXPECT_EQ(AnswersOf(client->Received()).size(), 1u) << "without a word";
}

TEST_F(PersistentConnectionsTest, EachRequestGivesItItsTimeAnew) {
  Start();
  const auto client = Send(Request("/a.txt"));
  for (int i = 0; i < 5; ++i) {
    Pass(10'000);
    client->Send(control.loop, Request("/b.txt"));
    Kit::Settle(control.loop);
  }
  EXPECT_FALSE(client->Poll());
  EXPECT_EQ(AnswersOf(client->Received()).size(), 6u);
}

TEST_F(PersistentConnectionsTest, WithoutATimeEachEndsWithItsAnswer) {
  tessel.KeepAliveTimeout(0);
  Start();
  const auto client = Send(Request("/a.txt"));
  EXPECT_EQ(FieldOf(client->ReceiveAll(control.loop), "Connection"), "close");
}

TEST_F(PersistentConnectionsTest, AClientThatGoesSilentInARequestIsTold) {
  Start();
  const auto client = Send("GET /a.txt HTTP/1.1\r\n");
  Pass(29'000);
  client->Send(control.loop, "Host: h\r\n");  // no progress: it is the whole header block that has its time
  Kit::Settle(control.loop);
  Pass(1'200);
  EXPECT_EQ(StatusOf(client->ReceiveAll(control.loop)), "408");
  EXPECT_EQ(FieldOf(client->Received(), "Connection"), "close");
  EXPECT_EQ(control.log.size(), 1u);
}

TEST_F(PersistentConnectionsTest, ABodyHasItsTimeAnewWithEachPiece) {
  tessel.TrapFileEnable(true);
  tessel.FileRequest = [this](std::int32_t& index, std::string&, std::string&) {
    tessel.TrapFileData(index, tessel.RequestBody(index), false, "text/plain");
  };
  Start();
  const auto client = Send("POST /x HTTP/1.1\r\nHost: h\r\nContent-Length: 4\r\n\r\n");
  for (const char* piece : {"a", "b", "c"}) {
    Pass(25'000);
    client->Send(control.loop, piece);
    Kit::Settle(control.loop);
  }
  client->Send(control.loop, "d");
  Kit::Settle(control.loop);
  client->Poll();
  EXPECT_EQ(Kit::BodyOf(client->Received()), "abcd");
}

TEST_F(PersistentConnectionsTest, ForEverMeansForEver) {
  tessel.ClientTimeout(0);
  Start();
  const auto client = Send("GET /a.txt HTTP/1.1\r\n");
  Pass(86'400'000);
  EXPECT_FALSE(client->Poll());
}

TEST_F(PersistentConnectionsTest, EachRequestHasANumberOfItsOwn) {
  std::vector<std::pair<std::int32_t, std::uint64_t>> asked;
  tessel.TrapFileEnable(true);
  tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
    asked.emplace_back(index, tessel.RequestNumber(index));
  };
  Start();
  const auto client = Send(Request("/x") + Request("/y"));
  ASSERT_EQ(asked.size(), 1u) << "the second waits for its turn";
  tessel.TrapFileData(asked[0].first, "one", false, "text/plain");
  Kit::Settle(control.loop);
  ASSERT_EQ(asked.size(), 2u);
  EXPECT_EQ(asked[0].first, asked[1].first) << "the same connection";
  EXPECT_NE(asked[0].second, asked[1].second);
  tessel.TrapFileData(asked[1].first, "two", false, "text/plain");
  tessel.TrapFileData(asked[1].first, "too late", false, "text/plain");
  Kit::Settle(control.loop);
  client->Poll();
  const auto answers = AnswersOf(client->Received());
  ASSERT_EQ(answers.size(), 2u);
  EXPECT_EQ(Kit::BodyOf(answers[0]), "one");
  EXPECT_EQ(Kit::BodyOf(answers[1]), "two");
}

TEST_F(PersistentConnectionsTest, AStopEndsThemAll) {
  Start();
  const auto idle = Send(Request("/a.txt"));
  const auto begun = Send("GET /a.txt HT");
  tessel.StopServer();
  EXPECT_TRUE(Kit::RunUntil(control.loop, [&] { return idle->Poll() && begun->Poll(); }));
}

TEST_F(PersistentConnectionsTest, AClientThatEndsItsSideGetsItsAnswers) {
  Start();
  const auto client = Send("");
  client->Send(control.loop, Request("/a.txt") + Request("/b.txt"));
  client->EndSending();
  EXPECT_EQ(AnswersOf(client->ReceiveAll(control.loop)).size(), 2u);
  EXPECT_FALSE(client->WasReset());
}

TEST_F(PersistentConnectionsTest, AStartInTheOtherModeSpeaksTheOther) {
  Start();
  EXPECT_TRUE(control.Ask(Request("/a.txt", "Connection: close\r\n")).starts_with("HTTP/1.1 200 OK\r\n"));
  tessel.StopServer();
  tessel.HTTPMode(e_HTTPMode::Classic);
  Start();
  EXPECT_TRUE(control.Ask(Request("/a.txt")).starts_with("HTTP/1.0 200 OK\r\n"));
  tessel.HTTPMode(e_HTTPMode::Modern);
  EXPECT_TRUE(control.Ask(Request("/a.txt")).starts_with("HTTP/1.0 200 OK\r\n")) << "chosen at the start";
}

}  // namespace
}  // namespace TesselServer::Modern
