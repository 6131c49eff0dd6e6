// The periodic check: quiet listeners and the sweep, on a clock that only the test moves.

#include <gtest/gtest.h>

#include <string>

#include "control/life/TimeOuts.h"
#include "tests/kit/TestControl.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

using Kit::RawClient;
using Kit::RunUntil;
using Kit::Settle;
using Kit::TestControl;
using Kit::TestCore;

// One check, ten seconds after the one before.
void Check(TestControl& control) {
  control.world.Advance(TimeOuts::kCheckMilliseconds);
  control.loop.RunOnce(0);
}

// A client that is in the middle of its request when it goes away leaves its connection closing.
void LeaveHalfWay(TestControl& control) {
  RawClient client(control.tessel.ListeningPort());
  client.Send(control.loop, "POST / HTTP/1.0\r\nContent-Length: 100\r\n\r\n");
  Settle(control.loop);
  client.Close();
  Settle(control.loop);
}

// Whether ten seconds later the listening element has been renewed.
bool IsRenewedByACheck(TestCore& core) {
  const std::uint64_t before = core.core.state.sckWS.Generation(kListener);
  core.Pass(TimeOuts::kCheckMilliseconds);
  return core.core.state.sckWS.Generation(kListener) != before;
}

TEST(TimeOutsTest, QuietListenerIsRenewedOnEveryCheckUntilAClientComes) {
  TestCore core;
  core.tree.Write("index.html", "page");
  const std::int32_t port = core.Start();
  for (const int seconds : {10, 20, 30}) EXPECT_FALSE(IsRenewedByACheck(core)) << seconds << ": not more than 30 s";
  EXPECT_TRUE(IsRenewedByACheck(core)) << "40 s";
  EXPECT_TRUE(IsRenewedByACheck(core)) << "50 s, and again";
  EXPECT_EQ(Kit::BodyOf(core.Get("/")), "page");
  EXPECT_FALSE(IsRenewedByACheck(core)) << "a client came";
  EXPECT_EQ(core.Port(), port);
  EXPECT_TRUE(core.errors.empty());
}

TEST(TimeOutsTest, ClientThatHasOnlyConnectedOutlivesTheRenewal) {
  TestControl control;
  control.tree.Write("index.html", "page");
  RawClient silent(control.Start());
  for (int i = 0; i < 6; ++i) Check(control);
  EXPECT_TRUE(silent.Send(control.loop, "GET / HTTP/1.0\r\n\r\n"));
  EXPECT_EQ(Kit::BodyOf(silent.ReceiveAll(control.loop)), "page");
}

TEST(TimeOutsTest, ClientInTheQueueIsServedInsteadOfARenewal) {
  TestControl control;
  control.tree.Write("index.html", "page");
  const std::int32_t port = control.Start();
  RawClient client(port);
  // the client's request lies in the queue when the check comes: the loop did not run meanwhile
  ASSERT_EQ(send(client.Descriptor(), "GET / HTTP/1.0\r\n\r\n", 18, MSG_NOSIGNAL), 18);
  control.world.Advance(40'000);
  EXPECT_EQ(Kit::BodyOf(client.ReceiveAll(control.loop)), "page");
  EXPECT_FALSE(client.WasReset());
}

TEST(TimeOutsTest, ControlDestroyedByTheClientInTheQueueDoesNotListenAgain) {
  TestCore core;
  core.tree.Write("index.html", "page");
  RawClient client(core.Start());
  bool destroyed = false;
  core.owner.HTTPLog = [&](std::string&) {
    core.world.Advance(40'000);
    core.core.lifecycle.Terminate();
    destroyed = true;
  };
  ASSERT_EQ(send(client.Descriptor(), "GET / HTTP/1.0\r\n\r\n", 18, MSG_NOSIGNAL), 18);
  core.world.Advance(40'000);
  core.core.timeOuts.TimerCheckConnections();
  EXPECT_TRUE(destroyed);
  EXPECT_NE(core.State(kListener), SocketState::kListening);
}

TEST(TimeOutsTest, ChosenPortIsKeptByARenewal) {
  TestControl control;
  control.tree.Write("index.html", "page");
  const std::int32_t port = control.Start();
  for (int i = 0; i < 5; ++i) Check(control);
  EXPECT_EQ(control.tessel.ListeningPort(), port);
  EXPECT_EQ(Kit::BodyOf(control.Get("/")), "page");
}

TEST(TimeOutsTest, SweepComesByTheControlsOwnCountOfMinutes) {
  struct {
    std::int32_t timeout;
    int seconds;
  } const cases[] = {{1, 60}, {2, 70}, {3, 80}, {4, 90}, {5, 100}, {6, 110}, {7, 120}, {8, 120}, {9, 130}, {10, 130}};
  for (const auto& c : cases) {
    TestControl control;
    control.tessel.ConnectionTimeout(c.timeout);
    control.Start();
    EXPECT_EQ(control.tessel.Stats_FreeConnections(), "2/2");
    for (int seconds = 10; seconds < c.seconds; seconds += 10) {
      Check(control);
      EXPECT_EQ(control.tessel.Stats_FreeConnections(), "2/2") << c.timeout << " at " << seconds;
    }
    Check(control);
    EXPECT_EQ(control.tessel.Stats_FreeConnections(), "1/2") << c.timeout << " at " << c.seconds;
  }
}

TEST(TimeOutsTest, CountBeginsAnewAfterASweep) {
  TestControl control;
  control.tessel.ConnectionTimeout(1);
  control.tessel.MaxConnections(3);
  control.Start();
  for (int i = 0; i < 6; ++i) Check(control);
  EXPECT_EQ(control.tessel.Stats_FreeConnections(), "2/3");
  RawClient waiting(control.tessel.ListeningPort());
  waiting.Send(control.loop, "POST / HTTP/1.0\r\nContent-Length: 100\r\n\r\n");
  Settle(control.loop);
  for (int i = 0; i < 5; ++i) Check(control);
  EXPECT_EQ(control.tessel.Stats_FreeConnections(), "2/3") << "50 s later";
  Check(control);
  EXPECT_EQ(control.tessel.Stats_FreeConnections(), "1/3") << "60 s later";
}

TEST(TimeOutsTest, WithoutATimeOutNothingIsSweptButTheListenerIsWatched) {
  TestCore core;
  core.core.state.settings.ConnectionTimeout = 0;
  core.Start();
  core.core.state.tmrCheckConn.Interval(5000);
  core.Pass(300'000, 5000);
  EXPECT_EQ(core.core.state.tmrCheckConn.Interval(), 5000) << "left as it was";
  EXPECT_EQ(core.core.state.statistics.FreeConnections, 2);
  const std::uint64_t listener = core.core.state.sckWS.Generation(kListener);
  core.Pass(5000, 5000);
  EXPECT_NE(core.core.state.sckWS.Generation(kListener), listener) << "rebuilt, for nobody came";
}

TEST(TimeOutsTest, CheckSetsItsIntervalAgainWhileThereIsATimeOut) {
  TestCore core;
  core.Start();
  core.core.state.tmrCheckConn.Interval(5000);
  core.Pass(5000, 5000);
  EXPECT_EQ(core.core.state.tmrCheckConn.Interval(), TimeOuts::kCheckMilliseconds);
}

TEST(TimeOutsTest, ConnectionsThatWereLeftAreSweptAndConnectedOnesKept) {
  TestControl control;
  control.tessel.ConnectionTimeout(1);
  control.tessel.MaxConnections(4);
  control.Start();
  LeaveHalfWay(control);
  RawClient patient(control.tessel.ListeningPort());
  patient.Send(control.loop, "POST / HTTP/1.0\r\nContent-Length: 1\r\n\r\n");
  RawClient idle(control.tessel.ListeningPort());
  idle.Send(control.loop, "POST / HTTP/1.0\r\nContent-Length: 100\r\n\r\n");
  Settle(control.loop);
  for (int i = 0; i < 6; ++i) Check(control);
  // of the three elements one carries the idle client; the tolerant request was answered, the left one swept
  EXPECT_EQ(control.tessel.Stats_FreeConnections(), "2/4");
  EXPECT_FALSE(idle.Poll()) << "a connected client is never closed for being idle";
}

TEST(TimeOutsTest, StopEndsTheChecks) {
  TestControl control;
  control.Start();
  control.tessel.StopServer();
  for (int i = 0; i < 10; ++i) Check(control);
  EXPECT_FALSE(control.tessel.IsListening());
  EXPECT_TRUE(control.errors.empty());
}

TEST(TimeOutsTest, ListenerThatCannotBeRebuiltIsReportedOnEveryCheckAndComesBack) {
  TestControl other;
  const std::int32_t taken = other.Start();
  TestCore core;
  core.Start();
  core.core.state.listenPort = taken;  // as if another program had come by it
  core.Pass(50'000);
  const std::string report = "Error - TimerCheckConnections. [10048] Address already in use.";
  EXPECT_EQ(core.errors, (std::vector<std::string>{report, report})) << "at 40 s and 50 s";
  EXPECT_EQ(core.State(kListener), SocketState::kClosed);
  other.tessel.StopServer();
  core.Pass(10'000);
  EXPECT_EQ(core.State(kListener), SocketState::kListening);
  EXPECT_EQ(core.errors.size(), 2u);
}

}  // namespace
}  // namespace TesselServer
