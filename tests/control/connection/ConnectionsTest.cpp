#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "control/connection/Connections.h"
#include "tests/kit/TestControl.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::RawClient;
using testing::ElementsAre;
using testing::IsEmpty;

class ConnectionsTest : public testing::Test {
 protected:
  // Starts with every request waiting for the host, so that a client keeps its slot until it is answered.
  void Start(std::int16_t maxConnections) {
    control.tree.Write("a.txt", "text");
    Settings& settings = state.settings;
    settings.MaxConnections = maxConnections;
    settings.TrapFileEnable = true;
    control.owner.FileRequest = [this](std::int32_t& index, std::string&, std::string&) { taken.push_back(index); };
    control.Start();
  }

  std::unique_ptr<RawClient> Connect(const std::string& bytes = "GET /a.txt HTTP/1.0\r\n\r\n") {
    auto client = std::make_unique<RawClient>(control.Port());
    client->Send(control.loop, bytes);
    Kit::Settle(control.loop);
    return client;
  }
  void Answer(std::int32_t index) {
    control.core.hostAnswers.TrapFileData(index, "answer", false, "text/plain");
    Kit::Settle(control.loop);
  }
  void OfferAgain() { control.Pass(SocketArray::kOfferAgainMilliseconds); }

  Kit::TestCore control;
  ControlState& state = control.core.state;
  std::vector<std::int32_t> taken;  // the slots of the requests, as they came
};

TEST_F(ConnectionsTest, TheLowestClosedSlotIsTaken) {
  Start(5);
  const auto a = Connect(), b = Connect(), c = Connect();
  EXPECT_THAT(taken, ElementsAre(2, 3, 4));
  Answer(3);
  const auto d = Connect();
  Answer(2);
  Answer(4);
  const auto e = Connect(), f = Connect(), g = Connect();
  EXPECT_THAT(taken, ElementsAre(2, 3, 4, 3, 2, 4, 5));
}

TEST_F(ConnectionsTest, OneLessThanMaxConnectionsAreServedAtOnceAndTheNextWaits) {
  Start(4);
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 5; ++i) clients.push_back(Connect());
  EXPECT_THAT(taken, ElementsAre(2, 3, 4));
  EXPECT_EQ(clients[3]->Received(), "") << "nothing is sent to a client that waits";
  EXPECT_FALSE(clients[3]->Poll());
  Answer(3);
  EXPECT_THAT(taken, ElementsAre(2, 3, 4, 3)) << "offered again at once";
  Answer(3);
  EXPECT_THAT(taken, ElementsAre(2, 3, 4, 3, 3));
  for (const std::int32_t index : {2, 3, 4}) Answer(index);
  for (const auto& client : clients) EXPECT_EQ(BodyOf(client->ReceiveAll(control.loop)), "answer");
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(ConnectionsTest, ManyClientsPassThroughOneSlot) {
  Start(2);
  state.settings.TrapFileEnable = false;
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 50; ++i) clients.push_back(std::make_unique<RawClient>(control.Port()));
  for (const auto& client : clients) client->Send(control.loop, "GET /a.txt HTTP/1.0\r\n\r\n");
  for (const auto& client : clients) EXPECT_EQ(BodyOf(client->ReceiveAll(control.loop)), "text");
}

TEST_F(ConnectionsTest, AMaximumOfOneAcceptsNoClient) {
  Start(2);
  state.settings.MaxConnections = 1;
  const auto client = Connect();
  OfferAgain();
  OfferAgain();
  EXPECT_THAT(taken, IsEmpty());
  EXPECT_FALSE(client->Poll());
  EXPECT_THAT(control.errors, IsEmpty());
  state.settings.MaxConnections = 2;
  OfferAgain();
  EXPECT_THAT(taken, ElementsAre(2)) << "it was only left waiting";
}

TEST_F(ConnectionsTest, ALargerMaximumAddsNoSlotWhileRunning) {
  Start(2);
  state.settings.MaxConnections = 5;
  const auto a = Connect(), b = Connect();
  OfferAgain();
  EXPECT_THAT(taken, ElementsAre(2));
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(ConnectionsTest, ASmallerMaximumTakesSlotsAwayOnceTheyAreFree) {
  Start(4);
  const auto a = Connect(), b = Connect(), c = Connect();
  state.settings.MaxConnections = 2;
  Answer(4);
  EXPECT_EQ(BodyOf(c->ReceiveAll(control.loop)), "answer") << "who is in is served";
  Answer(3);
  const auto d = Connect();
  OfferAgain();
  EXPECT_THAT(taken, ElementsAre(2, 3, 4)) << "no slot above 2 any more";
  Answer(2);
  EXPECT_THAT(taken, ElementsAre(2, 3, 4, 2));
}

TEST_F(ConnectionsTest, ASlotWhoseClientLeftIsTakenWhenNoClosedOneIsThere) {
  Start(3);
  Connect("POST /a.txt HTTP/1.0\r\nContent-Length: 100\r\n\r\n")->Close();
  Kit::Settle(control.loop);
  EXPECT_EQ(control.State(2), SocketState::kClosing);
  const auto a = Connect();
  EXPECT_THAT(taken, ElementsAre(3)) << "a closed one first";
  const auto b = Connect();
  EXPECT_THAT(taken, ElementsAre(3, 2));
  Answer(2);
  EXPECT_EQ(BodyOf(b->ReceiveAll(control.loop)), "answer");
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(ConnectionsTest, ASlotWhoseClientFailedIsFreeAtOnce) {
  Start(2);
  const auto client = Connect("POST /a.txt HTTP/1.0\r\nContent-Length: 100\r\n\r\n");
  EXPECT_EQ(control.State(2), SocketState::kConnected);
  client->Abort();
  Kit::Settle(control.loop);
  EXPECT_EQ(control.State(2), SocketState::kClosed);
}

TEST_F(ConnectionsTest, WhileConnectionsAreHeldEveryoneWaits) {
  Start(2);
  state.holdConnections = true;
  const std::uint32_t tick = state.lastConnectionTick;
  control.world.Advance(1000);
  const auto client = Connect();
  OfferAgain();
  EXPECT_THAT(taken, IsEmpty());
  EXPECT_EQ(state.lastConnectionTick, tick) << "and is not counted as a visitor";
  state.holdConnections = false;
  OfferAgain();
  EXPECT_THAT(taken, ElementsAre(2));
  EXPECT_EQ(state.lastConnectionTick, state.TickCount());
}

TEST_F(ConnectionsTest, ARequestIsAVisitEvenWhenItFindsNoSlot) {
  Start(2);
  const auto first = Connect();
  control.world.Advance(5000);
  const auto second = Connect();
  EXPECT_EQ(state.lastConnectionTick, state.TickCount());
}

TEST_F(ConnectionsTest, ASlotBeginsAnewWithEachClient) {
  Start(2);
  Slot& slot = control.SlotAt(2);
  static_cast<Reception&>(*slot.Input)
      .Data(
          "POST /old?q HTTP/1.0\r\nAccept: a\r\nReferer: r\r\nUser-Agent: u\r\nContent-Type: t\r\n"
          "Authorization: Basic dTpw\r\nContent-Length: 4\r\n\r\nbod");
  slot.FunctionResult = std::make_shared<const std::string>("old");
  slot.ScriptName = "old";
  slot.NotTrapped = false;
  slot.SecondaryAccepted = true;
  slot.Enter(RequestPhase::kOfferedToHost);
  slot.TrapData = slot.TrapContentType = slot.TrapHeaderField = slot.TrapStatusCode = "old";
  slot.QueryParser.QueryString("old=1");
  slot.Record = std::make_shared<cls_HTTP>(control.world);
  const auto record = slot.Record;

  const auto client = Connect("G");
  ASSERT_EQ(&slot, &control.SlotAt(2));
  RequestFields& fields = slot.Fields();
  for (std::string* text : {&fields.RequestLine, &fields.DocumentURI, &fields.RequestPath, &fields.RequestQuery,
                            &fields.RequestMethod, &fields.RequestHeader, &fields.RequestAccept, &fields.RequestReferer,
                            &fields.RequestUserAgent, &fields.RequestContentType, &fields.AuthUser,
                            &fields.AuthPassword, &fields.ContentLengthText, &fields.RequestBody, &slot.ScriptName,
                            &slot.TrapData, &slot.TrapContentType, &slot.TrapHeaderField, &slot.TrapStatusCode}) {
    EXPECT_EQ(*text, "");
  }
  EXPECT_EQ(slot.FunctionResult, nullptr);
  EXPECT_FALSE(fields.BodyPending);
  EXPECT_EQ(fields.BodyWritePos, 1);
  EXPECT_EQ(fields.HeaderEndPos, 1);
  EXPECT_EQ(slot.QueryParser.Count("old"), 0);
  EXPECT_EQ(slot.Phase(), RequestPhase::kReceiving);
  EXPECT_FALSE(slot.NotTrapped) << "left as it is";
  EXPECT_TRUE(slot.SecondaryAccepted) << "left as it is";
  EXPECT_EQ(slot.Record, record) << "used again";
}

TEST_F(ConnectionsTest, EveryArrivalIsTheLatestActivity) {
  Start(2);
  control.world.utcSeconds = 1'800'000'000;
  const auto client = Connect("POST /a.txt HTTP/1.0\r\nContent-Length: 100\r\n\r\n");
  EXPECT_EQ(control.SlotAt(2).LastActivity, 1'800'000'000);
  control.world.utcSeconds += 5;
  client->Send(control.loop, "x");
  Kit::Settle(control.loop);
  EXPECT_EQ(control.SlotAt(2).LastActivity, 1'800'000'005);
}

TEST_F(ConnectionsTest, AClientThatClosesItsSideAfterItsRequestIsAnswered) {
  Start(2);
  state.settings.TrapFileEnable = false;
  RawClient client(control.Port());
  client.Send(control.loop, "GET /a.txt HTTP/1.0\r\n\r\n");
  client.EndSending();
  EXPECT_EQ(BodyOf(client.ReceiveAll(control.loop)), "text");
}

TEST_F(ConnectionsTest, AnotherElementThanTheListenerWouldPassItsClientToElementZero) {
  Start(3);
  control.core.connections.ConnectionRequest(3, 1);
  EXPECT_TRUE(control.SlotAt(3).SecondaryAccepted);
  EXPECT_EQ(control.State(0), SocketState::kClosed) << "nobody is there to be taken";
  control.SlotAt(3).SecondaryAccepted = false;
  state.sckWS.Unload(0);
  control.core.connections.ConnectionRequest(3, 2);
  EXPECT_FALSE(control.SlotAt(3).SecondaryAccepted) << "element 0 is not free";
  EXPECT_THAT(control.errors, IsEmpty());
}

}  // namespace
}  // namespace TesselServer
