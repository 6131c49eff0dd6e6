// The two short waits of a connection, on a clock that only the test moves: for the last bytes of a body, and for the
// end of a header block.

#include <gtest/gtest.h>

#include <string>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::RawClient;
using Kit::Settle;

std::string Post(std::size_t announced, const std::string& body) {
  return "POST /form HTTP/1.0\r\nContent-Length: " + std::to_string(announced) + "\r\n\r\n" + body;
}

// The host writes down the body of each request and answers "taken".
class GraceTest : public Kit::ControlTest {
 protected:
  GraceTest() {
    tessel.TrapFileEnable(true);
    tessel.FileRequest = [this](std::int32_t& index, std::string&, std::string&) {
      bodies.push_back(tessel.RequestBody(index));
      tessel.TrapFileData(index, "taken", false);
    };
    control.Start();
  }
  std::string AnswerTo(RawClient& client) { return Kit::BodyOf(client.ReceiveAll(control.loop)); }

  std::vector<std::string> bodies;
};

TEST_F(GraceTest, BodyUpToEightBytesShortIsAnsweredAfterAQuarterOfASecond) {
  for (std::size_t missing = 1; missing <= 8; ++missing) {
    bodies.clear();
    const auto client = Send(Post(20, std::string(20 - missing, 'b')));
    EXPECT_TRUE(bodies.empty()) << missing << " missing: waited for";
    Pass(249);
    EXPECT_TRUE(bodies.empty()) << missing << " missing: not yet";
    Pass(1);
    EXPECT_EQ(bodies, std::vector<std::string>{std::string(20 - missing, 'b')}) << missing;
    EXPECT_EQ(AnswerTo(*client), "taken") << missing;
  }
}

TEST_F(GraceTest, BodyNineBytesShortIsWaitedForAsLongAsItTakes) {
  const auto client = Send(Post(20, std::string(11, 'b')));
  for (int i = 0; i < 20; ++i) Pass(10'000);
  EXPECT_TRUE(bodies.empty());
  client->Send(control.loop, std::string(9, 'c'));
  EXPECT_EQ(AnswerTo(*client), "taken");
  EXPECT_EQ(bodies, std::vector<std::string>{std::string(11, 'b') + std::string(9, 'c')});
}

TEST_F(GraceTest, ArrivalOfTheMissingBytesEndsTheWait) {
  const auto client = Send(Post(5, "12"));
  client->Send(control.loop, "345");
  EXPECT_EQ(AnswerTo(*client), "taken");
  EXPECT_EQ(bodies, std::vector<std::string>{"12345"});
}

TEST_F(GraceTest, ClientThatClosesItsSideEndsTheWait) {
  RawClient client(tessel.ListeningPort());
  client.Send(control.loop, Post(5, "12"));
  client.EndSending();
  EXPECT_EQ(AnswerTo(client), "taken");
  EXPECT_EQ(bodies, std::vector<std::string>{"12"});
}

TEST_F(GraceTest, FurtherBytesDoNotProlongTheWait) {
  const auto client = Send(Post(9, "1234"));
  control.world.Advance(200);
  client->Send(control.loop, "5");
  Settle(control.loop);
  Pass(50);
  EXPECT_EQ(bodies, std::vector<std::string>{"12345"});
}

TEST_F(GraceTest, ASmallBodyThatComesAfterItsHeaderIsWaitedForTwoSeconds) {
  for (std::size_t size = 1; size <= 8; ++size) {
    bodies.clear();
    const auto client = Send(Post(size, ""));
    Pass(1999);
    EXPECT_TRUE(bodies.empty()) << size;
    client->Send(control.loop, std::string(size, 'b'));
    EXPECT_EQ(AnswerTo(*client), "taken") << size;
    EXPECT_EQ(bodies, std::vector<std::string>{std::string(size, 'b')});
  }
}

TEST_F(GraceTest, ASmallBodyThatNeverComesIsAnsweredAfterTwoSeconds) {
  const auto client = Send(Post(8, ""));
  Pass(2000);
  EXPECT_EQ(bodies, std::vector<std::string>{""});
  EXPECT_EQ(AnswerTo(*client), "taken");
}

TEST_F(GraceTest, ABodyThatHasBegunHasAQuarterOfASecondFromItsFirstByteOn) {
  const auto client = Send(Post(5, ""));
  control.world.Advance(1900);
  client->Send(control.loop, "12");
  Settle(control.loop);
  Pass(249);
  EXPECT_TRUE(bodies.empty());
  Pass(1);
  EXPECT_EQ(bodies, std::vector<std::string>{"12"});
}

TEST_F(GraceTest, AClientThatExpectsContinueHasTwoSeconds) {
  for (const char* line : {"Expect: 100-continue", "expect:100-Continue", "EXPECT:   100-CONTINUE  "}) {
    bodies.clear();
    const auto client =
        Send(std::string("POST /form HTTP/1.0\r\n") + line + "\r\nContent-Length: 20\r\n\r\n" + std::string(15, 'b'));
    Pass(1999);
    EXPECT_TRUE(bodies.empty()) << line;
    Pass(1);
    EXPECT_EQ(bodies, std::vector<std::string>{std::string(15, 'b')}) << line;
  }
}

TEST_F(GraceTest, HeaderBlockIsWaitedForTwoSeconds) {
  tessel.TrapFileEnable(false);
  const auto client = Send("HEAD / HTTP/1.0\r\nAccept: text/html\r\n");
  Pass(1999);
  EXPECT_FALSE(client->Poll());
  EXPECT_EQ(client->Received(), "");
  Pass(1);
  EXPECT_TRUE(client->ReceiveAll(control.loop).ends_with("</html>"));
  EXPECT_EQ(tessel.Stats_Requests(), "1");
}

TEST_F(GraceTest, HeaderBlockInPiecesIsJoined) {
  RawClient client(tessel.ListeningPort());
  for (const char* piece : {"PO", "ST /form HT", "TP/1.0\r\nContent-Len", "gth: 4\r\n", "\r\nbo", "dy"}) {
    client.Send(control.loop, piece);
    Settle(control.loop);
  }
  EXPECT_EQ(AnswerTo(client), "taken");
  EXPECT_EQ(bodies, std::vector<std::string>{"body"});
}

// A wait that is still running when its client goes must not end the request of the next one.
TEST_F(GraceTest, WaitOfOneClientDoesNotReachTheNext) {
  {
    const auto gone = Send("POST /form HTTP/1.0\r\nContent-Length: 4\r\n");
    gone->Abort();
    Settle(control.loop);
  }
  control.world.Advance(1900);
  const auto next = Send("POST /form HTTP/1.0\r\nContent-Length: 40\r\n\r\n");
  Pass(500);
  EXPECT_TRUE(bodies.empty());
  EXPECT_FALSE(next->Poll());
  EXPECT_EQ(next->Received(), "");
}

}  // namespace
}  // namespace TesselServer
