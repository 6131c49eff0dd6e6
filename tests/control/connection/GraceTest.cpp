// The two short waits of a connection, on a clock that only the test moves: for the last bytes of a body, and for the
// end of a header block.

#include <gtest/gtest.h>

#include <string>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::RawClient;
using Kit::Settle;
using Kit::TestControl;

struct Trapped {
  explicit Trapped(TestControl& testControl) : control(testControl) {
    control.tessel.TrapFileEnable(true);
    control.tessel.FileRequest = [this](std::int32_t& index, std::string&, std::string&) {
      bodies.push_back(control.tessel.RequestBody(index));
      control.tessel.TrapFileData(index, "taken", false);
    };
  }
  TestControl& control;
  std::vector<std::string> bodies;
};

std::string Post(std::size_t announced, const std::string& body) {
  return "POST /form HTTP/1.0\r\nContent-Length: " + std::to_string(announced) + "\r\n\r\n" + body;
}

TEST(GraceTest, BodyUpToEightBytesShortIsAnsweredAfterAQuarterOfASecond) {
  for (std::size_t missing = 1; missing <= 8; ++missing) {
    TestControl control;
    Trapped trapped(control);
    control.Start();
    RawClient client(control.tessel.ListeningPort());
    client.Send(control.loop, Post(20, std::string(20 - missing, 'b')));
    Settle(control.loop);
    EXPECT_TRUE(trapped.bodies.empty()) << missing << " missing: waited for";
    control.world.Advance(249);
    control.loop.RunOnce(0);
    EXPECT_TRUE(trapped.bodies.empty()) << missing << " missing: not yet";
    control.world.Advance(1);
    control.loop.RunOnce(0);
    EXPECT_EQ(trapped.bodies, std::vector<std::string>{std::string(20 - missing, 'b')}) << missing;
    EXPECT_EQ(Kit::BodyOf(client.ReceiveAll(control.loop)), "taken") << missing;
  }
}

TEST(GraceTest, BodyNineBytesShortIsWaitedForAsLongAsItTakes) {
  TestControl control;
  Trapped trapped(control);
  control.Start();
  RawClient client(control.tessel.ListeningPort());
  client.Send(control.loop, Post(20, std::string(11, 'b')));
  Settle(control.loop);
  for (int i = 0; i < 20; ++i) {
    control.world.Advance(10'000);
    control.loop.RunOnce(0);
  }
  EXPECT_TRUE(trapped.bodies.empty());
  client.Send(control.loop, std::string(9, 'c'));
  EXPECT_EQ(Kit::BodyOf(client.ReceiveAll(control.loop)), "taken");
  EXPECT_EQ(trapped.bodies, std::vector<std::string>{std::string(11, 'b') + std::string(9, 'c')});
}

TEST(GraceTest, ArrivalOfTheMissingBytesEndsTheWait) {
  TestControl control;
  Trapped trapped(control);
  control.Start();
  RawClient client(control.tessel.ListeningPort());
  client.Send(control.loop, Post(5, "12"));
  Settle(control.loop);
  client.Send(control.loop, "345");
  EXPECT_EQ(Kit::BodyOf(client.ReceiveAll(control.loop)), "taken");
  EXPECT_EQ(trapped.bodies, std::vector<std::string>{"12345"});
}

TEST(GraceTest, ClientThatClosesItsSideEndsTheWait) {
  TestControl control;
  Trapped trapped(control);
  control.Start();
  RawClient client(control.tessel.ListeningPort());
  client.Send(control.loop, Post(5, "12"));
  client.EndSending();
  EXPECT_EQ(Kit::BodyOf(client.ReceiveAll(control.loop)), "taken");
  EXPECT_EQ(trapped.bodies, std::vector<std::string>{"12"});
}

TEST(GraceTest, FurtherBytesDoNotProlongTheWait) {
  TestControl control;
  Trapped trapped(control);
  control.Start();
  RawClient client(control.tessel.ListeningPort());
  client.Send(control.loop, Post(9, "1234"));
  Settle(control.loop);
  control.world.Advance(200);
  client.Send(control.loop, "5");
  Settle(control.loop);
  control.world.Advance(50);
  control.loop.RunOnce(0);
  EXPECT_EQ(trapped.bodies, std::vector<std::string>{"12345"});
}

TEST(GraceTest, ASmallBodyThatComesAfterItsHeaderIsWaitedForTwoSeconds) {
  for (std::size_t size = 1; size <= 8; ++size) {
    TestControl control;
    Trapped trapped(control);
    control.Start();
    RawClient client(control.tessel.ListeningPort());
    client.Send(control.loop, Post(size, ""));
    Settle(control.loop);
    control.world.Advance(1999);
    control.loop.RunOnce(0);
    EXPECT_TRUE(trapped.bodies.empty()) << size;
    client.Send(control.loop, std::string(size, 'b'));
    EXPECT_EQ(Kit::BodyOf(client.ReceiveAll(control.loop)), "taken") << size;
    EXPECT_EQ(trapped.bodies, std::vector<std::string>{std::string(size, 'b')});
  }
}

TEST(GraceTest, ASmallBodyThatNeverComesIsAnsweredAfterTwoSeconds) {
  TestControl control;
  Trapped trapped(control);
  control.Start();
  RawClient client(control.tessel.ListeningPort());
  client.Send(control.loop, Post(8, ""));
  Settle(control.loop);
  control.world.Advance(2000);
  control.loop.RunOnce(0);
  EXPECT_EQ(trapped.bodies, std::vector<std::string>{""});
  EXPECT_EQ(Kit::BodyOf(client.ReceiveAll(control.loop)), "taken");
}

TEST(GraceTest, ABodyThatHasBegunHasAQuarterOfASecondFromItsFirstByteOn) {
  TestControl control;
  Trapped trapped(control);
  control.Start();
  RawClient client(control.tessel.ListeningPort());
  client.Send(control.loop, Post(5, ""));
  Settle(control.loop);
  control.world.Advance(1900);
  client.Send(control.loop, "12");
  Settle(control.loop);
  control.world.Advance(249);
  control.loop.RunOnce(0);
  EXPECT_TRUE(trapped.bodies.empty());
  control.world.Advance(1);
  control.loop.RunOnce(0);
  EXPECT_EQ(trapped.bodies, std::vector<std::string>{"12"});
}

TEST(GraceTest, AClientThatExpectsToBeToldToGoOnHasTwoSeconds) {
  for (const char* line : {"Expect: 100-continue", "expect:100-Continue", "EXPECT:   100-CONTINUE  "}) {
    TestControl control;
    Trapped trapped(control);
    control.Start();
    RawClient client(control.tessel.ListeningPort());
    client.Send(control.loop, std::string("POST /form HTTP/1.0\r\n") + line + "\r\nContent-Length: 20\r\n\r\n" +
                                  std::string(15, 'b'));
    Settle(control.loop);
    control.world.Advance(1999);
    control.loop.RunOnce(0);
    EXPECT_TRUE(trapped.bodies.empty()) << line;
    control.world.Advance(1);
    control.loop.RunOnce(0);
    EXPECT_EQ(trapped.bodies, std::vector<std::string>{std::string(15, 'b')}) << line;
  }
}

TEST(GraceTest, HeaderBlockIsWaitedForTwoSeconds) {
  TestControl control;
  control.Start();
  RawClient client(control.tessel.ListeningPort());
  client.Send(control.loop, "HEAD / HTTP/1.0\r\nAccept: text/html\r\n");
  Settle(control.loop);
  control.world.Advance(1999);
  control.loop.RunOnce(0);
  EXPECT_FALSE(client.Poll());
  EXPECT_EQ(client.Received(), "");
  control.world.Advance(1);
  control.loop.RunOnce(0);
  EXPECT_TRUE(client.ReceiveAll(control.loop).ends_with("</html>"));
  EXPECT_EQ(control.tessel.Stats_Requests(), "1");
}

TEST(GraceTest, HeaderBlockInPiecesIsJoined) {
  TestControl control;
  Trapped trapped(control);
  control.Start();
  RawClient client(control.tessel.ListeningPort());
  for (const char* piece : {"PO", "ST /form HT", "TP/1.0\r\nContent-Len", "gth: 4\r\n", "\r\nbo", "dy"}) {
    client.Send(control.loop, piece);
    Settle(control.loop);
  }
  EXPECT_EQ(Kit::BodyOf(client.ReceiveAll(control.loop)), "taken");
  EXPECT_EQ(trapped.bodies, std::vector<std::string>{"body"});
}

// A wait that is still running when its client goes must not end the request of the next one.
TEST(GraceTest, WaitOfOneClientDoesNotReachTheNext) {
  TestControl control;
  Trapped trapped(control);
  control.Start();
  {
    RawClient gone(control.tessel.ListeningPort());
    gone.Send(control.loop, "POST /form HTTP/1.0\r\nContent-Length: 4\r\n");
    Settle(control.loop);
    gone.Abort();
    Settle(control.loop);
  }
  control.world.Advance(1900);
  RawClient next(control.tessel.ListeningPort());
  next.Send(control.loop, "POST /form HTTP/1.0\r\nContent-Length: 40\r\n\r\n");
  Settle(control.loop);
  control.world.Advance(500);
  control.loop.RunOnce(0);
  EXPECT_TRUE(trapped.bodies.empty());
  EXPECT_FALSE(next.Poll());
  EXPECT_EQ(next.Received(), "");
}

}  // namespace
}  // namespace TesselServer
