// What starts and stops leave behind, in every order.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/kit/Descriptors.h"
#include "tests/kit/TestControl.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::RawClient;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

const std::string kStamp = "[15/11/2026:18:20:05 -0000]";
const Lines kStopLines = {"log #" + kStamp + " - Stopping Server ...", "status Stopping Server ...",
                          "status Server Stopped.", "log #" + kStamp + " - Server Stopped."};

bool CanConnect(std::int32_t port) {
  try {
    RawClient client(port);
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

// A control that writes down all it says in one list.
class LifecycleStatesTest : public Kit::ControlTest {
 protected:
  LifecycleStatesTest() {
    tessel.CGIDirectory("/cgi");
    tessel.HTTPLog = [this](std::string& line) { said.push_back("log " + line); };
    tessel.StatusLine = [this](std::string& text) { said.push_back("status " + text); };
    tessel.LogEvent = [this](std::string& text) { said.push_back("error " + text); };
  }

  Lines TakeSaid() { return std::exchange(said, {}); }
  void Check() {
    control.world.Advance(10'000);
    control.loop.RunOnce(0);
  }

  Lines said;
};

TEST_F(LifecycleStatesTest, TextsComeInTheOrderInWhichThingsHappen) {
  tessel.VirtualPath("/srv/www/");
  tessel.ServerName(" my name ");
  tessel.StartServer();
  tessel.ServerPort(std::to_string(tessel.ListeningPort()));  // a fixed one from here on
  tessel.StopServer();
  control.world.bias = [](std::int64_t) { return -60; };
  said.clear();
  ASSERT_TRUE(tessel.StartServer());
  EXPECT_EQ(TakeSaid(), (Lines{
                            "status Starting Server ...",
                            "log #[15/11/2026:19:20:05 +0100] - Starting Server ...",
                            "log #Connection Timeout [min]: 10",
                            "log #CGI Enabled: False",
                            "log #CGI Directory: /cgi",
                            "log #CGI Timeout [sec]: 30",
                            "log #SSI Enabled: False",
                            "log #HTML Functions Enabled: False",
                            "log #Directory Browsing: False",
                            "log #Verbose Server Errors: True",
                            "log #Use Error Files:False",
                            "log #Max Connections: 2",
                            "log #Server Name: my name",
                            "log #Server IP Address: 127.0.0.1",
                            "log #HTTP Port: " + tessel.ServerPort(),
                            "log #HTML Home Path: /srv/www/",
                            "log #Index Page Name: index.html",
                            "status Server Started. 127.0.0.1:" + tessel.ServerPort() + " - my name",
                            "log #[15/11/2026:19:20:05 +0100] - Server Started.",
                        }));
}

TEST_F(LifecycleStatesTest, AStopSaysTheSameInEveryState) {
  EXPECT_TRUE(tessel.StopServer()) << "before the first start";
  EXPECT_EQ(TakeSaid(), kStopLines);
  tessel.StartServer();
  said.clear();
  for (const char* when : {"running", "stopped"}) {
    EXPECT_TRUE(tessel.StopServer()) << when;
    EXPECT_EQ(TakeSaid(), kStopLines) << when;
    EXPECT_FALSE(tessel.ServerRunning()) << when;
  }
  EXPECT_EQ(tessel.Stats_Errors(), "0");
}

TEST_F(LifecycleStatesTest, AStopClosesTheListenerAndEveryConnection) {
  tessel.MaxConnections(4);
  tessel.StartServer();
  const std::int32_t port = tessel.ListeningPort();
  RawClient half(port), other(port);
  half.Send(control.loop, "POST / HT");
  other.Send(control.loop, "POST / HTTP/1.0\r\nContent-Length: 9\r\n\r\n");
  Kit::Settle(control.loop);
  tessel.StopServer();
  EXPECT_EQ(half.ReceiveAll(control.loop), "");
  EXPECT_EQ(other.ReceiveAll(control.loop), "");
  EXPECT_TRUE(half.Ended() && other.Ended());
  EXPECT_EQ(tessel.ListeningPort(), 0);
  EXPECT_FALSE(CanConnect(port));
}

TEST_F(LifecycleStatesTest, StartsAndStopsInARowServeOnOnePortAndLeaveNothing) {
  control.tree.Write("a.txt", "text");
  tessel.StartServer();
  tessel.ServerPort(std::to_string(tessel.ListeningPort()));
  EXPECT_EQ(BodyOf(control.Get("/a.txt")), "text");
  Kit::Settle(control.loop);
  const std::size_t descriptors = Kit::CountDescriptors();
  for (int run = 0; run < 5; ++run) {
    EXPECT_TRUE(tessel.StopServer());
    EXPECT_TRUE(tessel.StartServer());
    EXPECT_EQ(BodyOf(control.Get("/a.txt")), "text");
  }
  Kit::Settle(control.loop);
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
  EXPECT_EQ(tessel.Stats_Errors(), "0");
}

TEST_F(LifecycleStatesTest, ANewMaximumTakesEffectWithTheNextStart) {
  tessel.MaxConnections(5);
  tessel.StartServer();
  tessel.MaxConnections(3);
  tessel.StopServer();
  tessel.StartServer();
  EXPECT_EQ(tessel.Stats_FreeConnections(), "3/3");
  EXPECT_NO_THROW(tessel.HTTPHeader(3));
  EXPECT_THROW(tessel.HTTPHeader(4), Error);
  EXPECT_EQ(tessel.Stats_Errors(), "0");
}

TEST_F(LifecycleStatesTest, AFailedStartWaitsForAStop) {
  Kit::TestControl other;
  tessel.StartServer();
  tessel.StopServer();
  control.world.Advance(5'000);
  tessel.ServerPort(std::to_string(other.Start()));
  said.clear();
  EXPECT_THROW(tessel.StartServer(), Error);
  EXPECT_EQ(TakeSaid(), (Lines{"status Starting Server ...", "log #[15/11/2026:18:20:10 -0000] - Starting Server ...",
                               "error Error - StartServer. [10048] Address in use"}));
  EXPECT_EQ(tessel.Stats_UpTime(), "00:00:00:05") << "that of the last start";
  EXPECT_FALSE(tessel.StartServer());
  for (int i = 0; i < 6; ++i) Check();
  EXPECT_FALSE(tessel.IsListening()) << "it is not tried again by itself";
  EXPECT_THAT(said, IsEmpty());
  EXPECT_TRUE(tessel.StopServer());
  EXPECT_EQ(TakeSaid().size(), 4u);
  EXPECT_THROW(tessel.StartServer(), Error) << "still in use";
}

TEST_F(LifecycleStatesTest, DescriptorsAreEnoughWhenSixtyFourAreLeftBesideTheConnections) {
  struct {
    std::int64_t limit;
    std::size_t warnings;
  } const cases[] = {{163, 1}, {164, 0}, {0, 1}};
  tessel.MaxConnections(100);
  for (const auto& c : cases) {
    control.world.descriptorLimit = c.limit;
    said.clear();
    EXPECT_TRUE(tessel.StartServer());
    EXPECT_EQ(said.size(), 19 + c.warnings) << c.limit;
    if (c.warnings != 0) {
      EXPECT_EQ(said.back(), "error MaxConnections is 100, but the process may open only " + std::to_string(c.limit) +
                                 " descriptors: connections beyond that wait.");
    }
    tessel.StopServer();
  }
}

TEST_F(LifecycleStatesTest, DestroyingARunningControlClosesEverythingInSilence) {
  std::int32_t port = 0;
  Lines heard;
  {
    Tessel other(control.loop);
    other.ServerIP("127.0.0.1");
    other.ServerPort("0");
    other.VirtualPath(control.tree.Text());
    other.StartServer();
    port = other.ListeningPort();
    const auto hear = [&](std::string& text) { heard.push_back(text); };
    other.HTTPLog = hear;
    other.StatusLine = hear;
    other.LogEvent = hear;
    EXPECT_TRUE(CanConnect(port));
  }
  EXPECT_FALSE(CanConnect(port));
  EXPECT_THAT(heard, IsEmpty());
  Kit::Settle(control.loop);
}

// ---- What only the inside can bring about.

TEST(LifecycleCoreTest, AnElementLoadedTwiceIsReportedAndTheServerServes) {
  struct {
    const char* ip;
    const char* told;
  } const cases[] = {
      {"127.0.0.1", "127.0.0.1:0 - There is another web server using that port. "},
      {"", ":0 - There is another web server using that port. "},
  };
  for (const auto& c : cases) {
    Kit::TestCore control;
    control.tree.Write("a.txt", "text");
    control.core.state.settings.ServerIP = c.ip;
    control.core.state.settings.MaxConnections = 5;
    control.core.state.sckWS.Load(2);
    EXPECT_TRUE(control.core.lifecycle.StartServer());
    EXPECT_THAT(control.errors, ElementsAre(c.told));
    EXPECT_EQ(control.core.state.statistics.ErrorCount, 1);
    EXPECT_FALSE(control.core.state.sckWS.IsLoaded(3)) << "the loading ended there";
    EXPECT_EQ(BodyOf(control.Get("/a.txt")), "text");
  }
}

TEST(LifecycleCoreTest, AStopUnloadsEveryElementAboveTheListener) {
  Kit::TestCore control;
  control.core.state.settings.MaxConnections = 5;
  control.Start();
  control.core.state.settings.MaxConnections = 2;
  control.core.lifecycle.StopServer();
  for (std::int32_t i = 2; i <= 5; ++i) EXPECT_FALSE(control.core.state.sckWS.IsLoaded(i)) << i;
  EXPECT_TRUE(control.core.state.sckWS.IsLoaded(0));
  EXPECT_EQ(control.State(1), SocketState::kClosed);
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST(LifecycleCoreTest, TheCheckRunsOnlyWhileTheServerDoes) {
  Kit::TestCore control;
  EXPECT_EQ(control.core.state.tmrCheckConn.Interval(), 10000);
  EXPECT_FALSE(control.core.state.tmrCheckConn.Enabled());
  control.Start();
  EXPECT_TRUE(control.core.state.tmrCheckConn.Enabled());
  EXPECT_FALSE(control.core.state.holdConnections);
  control.core.lifecycle.StopServer();
  EXPECT_FALSE(control.core.state.tmrCheckConn.Enabled());
  EXPECT_TRUE(control.core.state.holdConnections) << "until the next start";
}

}  // namespace
}  // namespace TesselServer
