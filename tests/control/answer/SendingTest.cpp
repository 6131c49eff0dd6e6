#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "control/answer/Sending.h"
#include "tests/kit/TestControl.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::RawClient;
using testing::ElementsAre;
using testing::IsEmpty;

class SendingTest : public testing::Test {
 protected:
  SendingTest() {
    control.tree.Write("a.txt", "text");
    port = control.Start();
  }

  // A client on slot 2 whose request is not complete.
  std::unique_ptr<RawClient> Connect() {
    auto client = std::make_unique<RawClient>(port);
    client->Send(control.loop,
                 "POST /a.txt HTTP/1.0\r\nReferer: from\r\nUser-Agent: agent\r\nContent-Length: 99\r\n\r\n");
    Kit::Settle(control.loop);
    EXPECT_EQ(control.State(2), SocketState::kConnected);
    return client;
  }

  Kit::TestCore control;
  Sending& sending = control.core.sending;
  std::int32_t port = 0;
};

TEST_F(SendingTest, AnAnswerThatHasGoneClosesItsConnection) {
  const auto client = Connect();
  EXPECT_EQ(control.SlotAt(2).Fields().RequestPath, "a.txt");
  EXPECT_TRUE(sending.SendData(2, {"answer", ""}));
  EXPECT_EQ(client->ReceiveAll(control.loop), "answer");
  EXPECT_EQ(control.State(2), SocketState::kClosed);
  EXPECT_EQ(control.SlotAt(2).Fields().RequestPath, "");
}

TEST_F(SendingTest, WithoutARequestPathTheConnectionStaysOpen) {
  const auto client = Connect();
  control.SlotAt(2).Fields().RequestPath = "";
  EXPECT_TRUE(sending.SendData(2, {"answer", ""}));
  Kit::Settle(control.loop);
  EXPECT_FALSE(client->Poll());
  EXPECT_EQ(client->Received(), "answer");
  EXPECT_EQ(control.State(2), SocketState::kConnected);

  control.SlotAt(2).Fields().RequestPath = "a.txt";
  EXPECT_TRUE(sending.SendData(2, {" and more", ""}));
  EXPECT_EQ(client->ReceiveAll(control.loop), "answer and more");
}

TEST_F(SendingTest, SendCompleteWithoutAClientDoesNothing) {
  for (const std::int32_t index : {-1, 0, 1, 2, 3}) sending.SendComplete(index);
  EXPECT_EQ(control.State(1), SocketState::kListening);
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(SendingTest, AnAnswerWithoutAClientIsReported) {
  EXPECT_FALSE(sending.SendData(2, {"answer", ""}));
  EXPECT_FALSE(sending.SendData(99, {"answer", ""}));
  EXPECT_THAT(control.errors, ElementsAre("Error -  SendData. [10057] Socket is not connected.",
                                          "Error -  SendData. [10057] Socket is not connected."));
}

TEST_F(SendingTest, AClientThatWentWithAResetIsReported) {
  const auto client = Connect();
  client->Abort();  // the loop does not run: the control cannot know yet
  EXPECT_FALSE(sending.SendData(2, {"answer", ""}));
  EXPECT_THAT(control.errors, ElementsAre("Error -  SendData. [10054] Connection reset by peer."));
  EXPECT_EQ(control.core.state.statistics.ErrorCount, 1);
}

TEST_F(SendingTest, SendingIsActivity) {
  const auto client = Connect();
  control.world.utcSeconds = 1'800'000'000;
  sending.SendData(2, {"answer", ""});
  EXPECT_EQ(control.SlotAt(2).LastActivity, 1'800'000'000);
}

TEST_F(SendingTest, TwoErrorsAreIgnoredAndAllOthersRenewTheElement) {
  struct {
    std::int32_t number;
    SocketState after;
  } const cases[] = {{10048, SocketState::kConnected}, {10035, SocketState::kConnected}, {10054, SocketState::kClosed},
                     {10053, SocketState::kClosed},    {10060, SocketState::kClosed},    {0, SocketState::kClosed}};
  for (const auto& c : cases) {
    const auto client = Connect();
    sending.SocketError(2, c.number);
    EXPECT_EQ(control.State(2), c.after) << c.number;
    EXPECT_EQ(control.SlotAt(2).Fields().RequestPath, c.after == SocketState::kClosed ? "" : "a.txt") << c.number;
    sending.CloseConnection(2);
    Kit::Settle(control.loop);
  }
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(SendingTest, AListenerThatFailedIsMadeAnewByTheNextCheck) {
  sending.SocketError(1, 10054);
  EXPECT_EQ(control.State(1), SocketState::kClosed);
  control.Pass(10'000);
  EXPECT_EQ(control.State(1), SocketState::kListening);
  EXPECT_EQ(control.Port(), port);
  EXPECT_EQ(BodyOf(control.Get("/a.txt")), "text");
}

TEST_F(SendingTest, ServerTooBusySaysSoAndLogs503) {
  const auto client = Connect();
  const std::string page =
      "<html><head><meta http-equiv=\"Content-Type\" content=\"text/html; charset=iso-8859-1\"><title>Error: Server "
      "Too "
      "Busy</title></head><body bgcolor=\"#FFFFFF\"><p><font color=\"#FF0000\" face=\"Arial\"><strong>Sorry, server "
      "too "
      "busy.</strong></font></p><dl><dt><font face=\"Arial\">Sorry, the server is too busy to handle you request.</dt>"
      "</dl></body></html>";
  const std::string answer =
      "HTTP/1.0 200 OK\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\nContent-Length: " +
      std::to_string(page.size()) + "\r\n\r\n" + page;
  EXPECT_EQ(sending.ServerTooBusy(2), static_cast<std::int64_t>(answer.size()));
  EXPECT_EQ(client->ReceiveAll(control.loop), answer);
  EXPECT_THAT(control.log, ElementsAre("127.0.0.1 - - [15/11/2026:18:20:05 -0000] \"POST /a.txt HTTP/1.0\" 503 " +
                                       std::to_string(answer.size()) + " \"from\" \"agent\""));
  EXPECT_EQ(control.core.state.statistics.BytesSent, 0);
}

TEST_F(SendingTest, ServerTooBusyWithoutAClientIsReported) {
  EXPECT_EQ(sending.ServerTooBusy(2), 0);
  EXPECT_THAT(control.errors, ElementsAre("Error -  ServerTooBusy. [10057] Socket is not connected."));
  EXPECT_THAT(control.log, IsEmpty());
}

TEST_F(SendingTest, KillAllConnectionsClosesAndForgetsAllButTheListener) {
  const auto client = Connect();
  control.SlotAt(2).Record = std::make_shared<cls_HTTP>(control.world);
  control.core.state.sckWS.Load(7);
  sending.KillAllConnections();
  EXPECT_EQ(client->ReceiveAll(control.loop), "");
  EXPECT_TRUE(client->Ended());
  EXPECT_FALSE(control.core.state.sckWS.IsLoaded(2));
  EXPECT_FALSE(control.core.state.sckWS.IsLoaded(7));
  EXPECT_EQ(control.State(1), SocketState::kListening);
  EXPECT_EQ(control.SlotAt(2).Record, nullptr);
  EXPECT_EQ(control.SlotAt(2).Fields().RequestPath, "");
  EXPECT_THAT(control.errors, IsEmpty());
  EXPECT_THAT(control.log, IsEmpty());
}

TEST_F(SendingTest, TheLogStampIsOfTheMomentInLocalTime) {
  EXPECT_EQ(sending.LogTimestamp(), "[15/11/2026:18:20:05 -0000]");
  control.world.bias = [](std::int64_t) { return -60; };
  control.world.Advance(3'600'000);
  EXPECT_EQ(sending.LogTimestamp(), "[15/11/2026:20:20:05 +0100]");
}

TEST_F(SendingTest, WithoutALogTheBytesOfAnAnswerStillCount) {
  control.owner.HTTPLog = nullptr;
  const std::string answer = control.Get("/a.txt");
  EXPECT_EQ(control.core.state.statistics.BytesSent, static_cast<double>(answer.size()));
  EXPECT_THAT(control.log, IsEmpty());
  control.owner.HTTPLog = [this](std::string& line) { control.log.push_back(line); };
  control.Get("/a.txt");
  EXPECT_THAT(control.log, ElementsAre("127.0.0.1 - - [15/11/2026:18:20:05 -0000] \"GET /a.txt HTTP/1.0\" 200 " +
                                       std::to_string(answer.size()) + " \"\" \"\""))
      << "connected again";
}

TEST_F(SendingTest, AnAnswerWithoutARequestIsNotLogged) {
  sending.LogRequest(2, "127.0.0.1", "200", 1);
  sending.LogRequest(99, "127.0.0.1", "200", 1);
  EXPECT_THAT(control.log, IsEmpty());
}

}  // namespace
}  // namespace TesselServer
