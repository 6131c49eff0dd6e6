// A host that stops and starts the server inside an event of a start or a stop gets one server, started once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using testing::IsEmpty;
using Lines = std::vector<std::string>;

constexpr int kStartEvents = 19;  // two status texts, two announcements, fifteen lines of configuration
constexpr int kStopEvents = 4;

// A control that does something at its n-th event, and writes down all it says.
class RestartInsideEventsTest : public Kit::ControlTest {
 protected:
  RestartInsideEventsTest() {
    control.tree.Write("a.txt", "text");
    tessel.CGIDirectory("/cgi");
    const auto hear = [this](std::string& text) {
      said.push_back(text);
      if (--left != 0) return;
      const auto now = act;  // which may set the next one
      now();
    };
    tessel.HTTPLog = hear;
    tessel.StatusLine = hear;
  }

  void ActAt(int event, std::function<void()> what) {
    said.clear();
    left = event;
    act = std::move(what);
  }

  // That the server stands, serves, and loaded nothing twice.
  void ExpectServing(const std::string& when) {
    EXPECT_TRUE(tessel.ServerRunning()) << when;
    EXPECT_TRUE(tessel.IsListening()) << when;
    EXPECT_EQ(Kit::BodyOf(control.Get("/a.txt")), "text") << when;
    EXPECT_THAT(control.errors, IsEmpty()) << when;
  }

  Lines said;
  int left = 0;
  std::function<void()> act;
};

TEST_F(RestartInsideEventsTest, ARestartInsideEachEventOfAStartEndsThatStart) {
  for (int event = 1; event <= kStartEvents; ++event) {
    bool stopped = false, started = false;
    ActAt(event, [&] {
      stopped = tessel.StopServer();
      started = tessel.StartServer();
    });
    const std::string when = "event " + std::to_string(event);
    EXPECT_FALSE(tessel.StartServer()) << when << ": this one was given up";
    EXPECT_TRUE(stopped && started) << when;
    EXPECT_EQ(said.size(), static_cast<std::size_t>(event + kStopEvents + kStartEvents)) << when << ": " << said.back();
    ExpectServing(when);
    tessel.StopServer();
  }
}

TEST_F(RestartInsideEventsTest, AStartThatFailsInsideAnEventEndsTheOuterOneToo) {
  Kit::TestControl other;
  const std::string taken = std::to_string(other.Start());
  ActAt(5, [&] {
    tessel.StopServer();
    tessel.ServerPort(taken);
    EXPECT_THROW(tessel.StartServer(), Error);
  });
  EXPECT_FALSE(tessel.StartServer());
  EXPECT_TRUE(tessel.ServerRunning()) << "as after any start that failed";
  EXPECT_FALSE(tessel.IsListening());
  EXPECT_EQ(control.errors, Lines{"Error - StartServer. [10048] Address in use"});
}

TEST_F(RestartInsideEventsTest, AStartInsideTheEndOfAStopIsKept) {
  for (int event = 3; event <= kStopEvents; ++event) {
    tessel.StartServer();
    bool started = false;
    ActAt(event, [&] { started = tessel.StartServer(); });
    const std::string when = "event " + std::to_string(event);
    EXPECT_TRUE(tessel.StopServer()) << when;
    EXPECT_TRUE(started) << when;
    ExpectServing(when);
    tessel.StopServer();
  }
}

TEST_F(RestartInsideEventsTest, AStartInsideTheBeginningOfAStopIsRefused) {
  for (int event = 1; event < 3; ++event) {
    tessel.StartServer();
    bool started = true;
    ActAt(event, [&] { started = tessel.StartServer(); });
    EXPECT_TRUE(tessel.StopServer());
    EXPECT_FALSE(started) << "the server still runs";
    EXPECT_FALSE(tessel.ServerRunning());
  }
}

TEST_F(RestartInsideEventsTest, AStartInsideAStopMayItselfBeStopped) {
  for (int event = 1; event <= kStartEvents; ++event) {
    tessel.StartServer();
    bool started = true, stopped = false;
    ActAt(3, [&] {  // "Server Stopped."
      ActAt(event, [&] { stopped = tessel.StopServer(); });
      started = tessel.StartServer();
    });
    const std::string when = "event " + std::to_string(event);
    EXPECT_TRUE(tessel.StopServer()) << when;
    EXPECT_FALSE(started) << when;
    EXPECT_TRUE(stopped) << when;
    EXPECT_FALSE(tessel.ServerRunning()) << when;
    EXPECT_FALSE(tessel.IsListening()) << when;
    EXPECT_THAT(control.errors, IsEmpty()) << when;
  }
}

}  // namespace
}  // namespace TesselServer
