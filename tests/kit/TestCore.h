// The inside of a control, made in the test: for what no client and no host can bring about. Its events are those of
// `owner`.
#pragma once

#include <string>
#include <vector>

#include "control/Tessel.h"
#include "control/life/TesselCore.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Kit {

struct TestCore {
  TestCore() {
    core.lifecycle.Initialize();
    core.state.settings = Settings();
    core.state.settings.ServerIP = "127.0.0.1";
    core.state.settings.ServerPort = 0;
    core.state.settings.VirtualPath = tree.Text();
    owner.HTTPLog = [this](std::string& line) { log.push_back(line); };
    owner.LogEvent = [this](std::string& text) { errors.push_back(text); };
    owner.StatusLine = [this](std::string& text) { status.push_back(text); };
  }
  ~TestCore() { core.lifecycle.Terminate(); }

  // Starts, forgets what the start said, and returns the port.
  std::int32_t Start() {
    core.lifecycle.StartServer();
    log.clear();
    status.clear();
    return Port();
  }
  std::int32_t Port() const { return core.state.sckWS.BoundPort(kListener); }
  SocketState State(std::int32_t index) const { return core.state.sckWS.State(index); }
  Slot& SlotAt(std::int32_t index) { return *core.state.slots->At(index); }

  std::string Get(const std::string& url) { return Exchange(loop, Port(), "GET " + url + " HTTP/1.0\r\n\r\n"); }

  // Lets time pass, in steps that no timer's tick is lost in.
  void Pass(std::int64_t milliseconds, std::int64_t step = 10000) {
    for (; milliseconds > 0; milliseconds -= step) {
      world.Advance(std::min(milliseconds, step));
      loop.RunOnce(0);
    }
  }

  TemporaryTree tree;
  FakeWorld world;
  EventLoop loop{world};
  std::vector<std::string> log;
  std::vector<std::string> errors;
  std::vector<std::string> status;
  Tessel owner{loop};
  TesselCore core{loop, owner};
};

}  // namespace TesselServer::Kit
