// A control on a standing world and a temporary root, with everything it says written down.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "control/Tessel.h"
#include "platform/loop/EventLoop.h"
#include "tests/kit/AnswerParts.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Kit {

struct TestControl {
  TestControl() : tessel(loop) {
    tessel.ServerIP("127.0.0.1");
    tessel.ServerPort("0");
    tessel.VirtualPath(tree.Text());
    tessel.HTTPLog = [this](std::string& line) { log.push_back(line); };
    tessel.LogEvent = [this](std::string& text) { errors.push_back(text); };
    tessel.StatusLine = [this](std::string& text) { status.push_back(text); };
  }

  // Starts, forgets what the start said, and returns the port.
  std::int32_t Start() {
    tessel.StartServer();
    log.clear();
    status.clear();
    return tessel.ListeningPort();
  }

  // The whole answer to one request.
  std::string Ask(std::string_view request) { return Exchange(loop, tessel.ListeningPort(), request); }
  std::string Get(const std::string& url) { return Ask("GET " + url + " HTTP/1.0\r\n\r\n"); }

  TemporaryTree tree;
  FakeWorld world;
  EventLoop loop{world};
  std::vector<std::string> log;
  std::vector<std::string> errors;
  std::vector<std::string> status;
  Tessel tessel;
};

// A test of one control.
class ControlTest : public testing::Test {
 protected:
  std::string Get(const std::string& url) { return control.Get(url); }
  // A client that has sent so much, with the loop at rest.
  std::unique_ptr<RawClient> Send(std::string_view bytes) {
    auto client = std::make_unique<RawClient>(tessel.ListeningPort());
    client->Send(control.loop, bytes);
    Settle(control.loop);
    return client;
  }
  // Lets time pass, and the loop take one turn.
  void Pass(std::int64_t milliseconds) {
    control.world.Advance(milliseconds);
    control.loop.RunOnce(0);
  }

  TestControl control;
  Tessel& tessel = control.tessel;
  const TemporaryTree& tree = control.tree;
};

}  // namespace TesselServer::Kit
