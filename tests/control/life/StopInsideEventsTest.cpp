// A host may stop, restart or destroy the control inside every event: nothing crashes, nothing is left open, and the
// loop goes on.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "control/Tessel.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Kit::RawClient;

// A control that does something with itself at the n-th event, whichever that is.
class Scene {
 public:
  Scene() {
    tree.Write("index.html", "page");
    tree.Write("large.bin", std::string(2'000'000, 'x'));
    tree.Write("page.trp", "trapped");
    tree.Write("functions.html", "<%=FunctionOne()%><%=FunctionTwo()%>");
    tessel->ServerIP("127.0.0.1");
    tessel->ServerPort("0");
    tessel->VirtualPath(tree.Text());
    tessel->MaxConnections(4);
    tessel->TrapFileEnable(true);
    tessel->TrapFileTypes("trp");
    tessel->HTMLFunctionsEnable(true);
    tessel->HTTPLog = [this](std::string& line) { Event("HTTPLog " + line); };
    tessel->StatusLine = [this](std::string& text) { Event("StatusLine " + text); };
    tessel->LogEvent = [this](std::string& text) { Event("LogEvent " + text); };
    tessel->PropertyChanged = [this](const std::string& name) { Event("PropertyChanged " + name); };
    tessel->AboutBox = [this](const std::string& name, const std::string&) { Event("AboutBox " + name); };
    tessel->FileRequest = [this](std::int32_t& index, std::string& file, std::string&) {
      const std::int32_t connection = index;
      Event("FileRequest " + file);
      if (tessel) tessel->TrapFileData(connection, "host", false);
    };
    tessel->CallFunction = [this](std::int32_t& index, std::string& name) {
      const std::int32_t connection = index;
      Event("CallFunction " + name);
      if (tessel) tessel->ReturnData(connection, "host");
    };
  }

  // Counts an event, and acts when it is the one. The control may be gone behind this.
  void Event(std::string name) {
    ++count;
    if (count != at || !tessel) return;
    happened = std::move(name);
    act(*this);
  }

  // Everything that raises an event: properties, a failed listener, the start, requests of every kind, the stop.
  void Play() {
    Do([](Tessel& t) { t.ServerName("name"); });
    Do([](Tessel& t) { t.CGIDirectory(""); });
    Do([](Tessel& t) { t.ShowAboutBox(); });
    Do([](Tessel& t) { t.StartServer(); });
    for (const char* request :
         {"GET / HTTP/1.0\r\n\r\n", "GET /none HTTP/1.0\r\n\r\n", "GET /page.trp HTTP/1.0\r\n\r\n",
          "GET /functions.html HTTP/1.0\r\n\r\n", "GET /large.bin HTTP/1.0\r\n\r\n", "HEAD / HTTP/1.0\r\n\r\n"}) {
      Ask(request);
    }
    Do([](Tessel& t) { t.StopServer(); });
    Do([](Tessel& t) { t.ServerIP("192.0.2.1"); });  // no address of this machine: told through LogEvent
    Do([](Tessel& t) { t.StartServer(); });
    Do([](Tessel& t) { t.StopServer(); });
    Kit::Settle(loop);
  }

  Kit::TemporaryTree tree;
  Kit::FakeWorld world;
  EventLoop loop{world};
  std::unique_ptr<Tessel> tessel = std::make_unique<Tessel>(loop);
  std::function<void(Scene&)> act;
  int at = 0;
  int count = 0;
  std::string happened;

 private:
  void Do(const std::function<void(Tessel&)>& step) {
    if (tessel) step(*tessel);
  }
  void Ask(const char* request) {
    const std::int32_t port = tessel ? tessel->ListeningPort() : 0;
    if (port == 0) return;
    RawClient client(port);
    client.Send(loop, request);
    for (int turn = 0; turn < 50 && !client.Poll(); ++turn) loop.RunOnce(1);
  }
};

// Plays the scene once for each event that it raises, with `act` done at that one. The names of the events.
std::vector<std::string> ActAtEachEvent(const std::function<void(Scene&)>& act,
                                        const std::function<void(Scene&)>& afterwards) {
  std::vector<std::string> names;
  for (int at = 1;; ++at) {
    const auto before = Kit::CountDescriptors();
    {
      Scene scene;
      scene.at = at;
      scene.act = act;
      scene.Play();
      if (scene.happened.empty()) return names;
      names.push_back(scene.happened);
      SCOPED_TRACE(scene.happened);
      afterwards(scene);
    }
    EXPECT_EQ(Kit::CountDescriptors(), before) << names.back();
  }
}

bool Holds(const std::vector<std::string>& names, const std::string& beginning) {
  for (const std::string& name : names) {
    if (name.starts_with(beginning)) return true;
  }
  return false;
}

// The scene is only worth its name when it really raises every kind of event.
void ExpectEveryEvent(const std::vector<std::string>& names) {
  for (const char* beginning :
       {"PropertyChanged ServerName", "AboutBox Tessel", "PropertyChanged CGIDirectory",
        "StatusLine Starting Server ...", "HTTPLog #[", "HTTPLog #Connection Timeout [min]: 10",
        "HTTPLog #Index Page Name: index.html", "StatusLine Server Started. 127.0.0.1:0 - testhost",
        "HTTPLog 127.0.0.1 - - [", "FileRequest page.trp", "CallFunction One", "CallFunction Two",
        "StatusLine Stopping Server ...", "StatusLine Server Stopped.",
        "LogEvent Error - TCP::Listen. [10049] Can't assign requested address."}) {
    EXPECT_TRUE(Holds(names, beginning)) << beginning;
  }
}

TEST(StopInsideEventsTest, StopServerInsideEachEvent) {
  const auto names = ActAtEachEvent([](Scene& scene) { scene.tessel->StopServer(); },
                                    [](Scene& scene) {
                                      EXPECT_FALSE(scene.tessel->IsListening());
                                      EXPECT_FALSE(scene.tessel->ServerRunning());
                                    });
  ExpectEveryEvent(names);
}

TEST(StopInsideEventsTest, StopAndStartInsideEachEvent) {
  const auto names = ActAtEachEvent(
      [](Scene& scene) {
        scene.tessel->StopServer();
        scene.tessel->StartServer();
      },
      [](Scene& scene) {
        scene.tessel->StopServer();
        scene.tessel->ServerIP("127.0.0.1");
        EXPECT_TRUE(scene.tessel->StartServer());
        const std::string answer = Kit::Exchange(scene.loop, scene.tessel->ListeningPort(), "GET / HTTP/1.0\r\n\r\n");
        EXPECT_TRUE(answer.ends_with("page"));
        scene.tessel.reset();
        Kit::Settle(scene.loop);
      });
  ExpectEveryEvent(names);
}

TEST(StopInsideEventsTest, DestroyTheControlInsideEachEvent) {
  const auto names = ActAtEachEvent([](Scene& scene) { scene.tessel.reset(); },
                                    [](Scene& scene) { EXPECT_EQ(scene.tessel, nullptr); });
  ExpectEveryEvent(names);
}

TEST(StopInsideEventsTest, HandlersAreTakenAwayInsideEachEvent) {
  const auto names = ActAtEachEvent(
      [](Scene& scene) {
        scene.tessel->HTTPLog = nullptr;
        scene.tessel->StatusLine = nullptr;
        scene.tessel->LogEvent = nullptr;
        scene.tessel->PropertyChanged = nullptr;
        scene.tessel->AboutBox = nullptr;
        scene.tessel->FileRequest = nullptr;
        scene.tessel->CallFunction = nullptr;
      },
      [](Scene& scene) { EXPECT_EQ(scene.count, scene.at) << "nothing is heard afterwards"; });
  ExpectEveryEvent(names);
}

TEST(StopInsideEventsTest, StartIsGivenUpWhenAnEventOfItStops) {
  Scene scene;
  scene.tessel->StatusLine = [&](std::string& text) {
    if (text == "Starting Server ...") scene.tessel->StopServer();
  };
  EXPECT_FALSE(scene.tessel->StartServer());
  EXPECT_FALSE(scene.tessel->ServerRunning());
  EXPECT_FALSE(scene.tessel->IsListening());
  EXPECT_EQ(scene.tessel->Stats_UpTime(), "");
}

TEST(StopInsideEventsTest, StopInsideAStopDoesNotBeginAnew) {
  Scene scene;
  int stops = 0;
  scene.tessel->StartServer();
  scene.tessel->StatusLine = [&](std::string&) {
    ++stops;
    EXPECT_TRUE(scene.tessel->StopServer());
  };
  EXPECT_TRUE(scene.tessel->StopServer());
  EXPECT_EQ(stops, 2) << "\"Stopping Server ...\" and \"Server Stopped.\"";
}

TEST(StopInsideEventsTest, DestroyedControlLeavesTheLoopToOthers) {
  Scene scene;
  scene.tessel->StartServer();
  RawClient waiting(scene.tessel->ListeningPort());
  waiting.Send(scene.loop, "GET /large.bin HTTP/1.0\r\n\r\n");
  scene.loop.RunOnce(1);
  scene.tessel.reset();
  waiting.ReceiveAll(scene.loop);
  EXPECT_TRUE(waiting.Ended());
  EXPECT_FALSE(scene.loop.RunOnce(0));
}

}  // namespace
}  // namespace TesselServer
