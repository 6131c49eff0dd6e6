// The real control on the real clock, on a port of 127.0.0.1 that the system chose, with a temporary root.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <TesselServer/EventLoop.h>
#include <TesselServer/Tessel.h>

#include "tests/kit/AnswerParts.h"
#include "tests/kit/ClientProcess.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/SkippingWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Kit {

// Bytes that look like nothing in particular, the same ones for the same number.
inline std::string Noise(std::size_t size, std::uint32_t seed = 1) {
  std::string bytes;
  bytes.reserve(size);
  for (std::uint32_t x = seed * 2654435761u + 1; bytes.size() < size;) {
    x = x * 1664525u + 1013904223u;
    bytes += static_cast<char>(x >> 24);
  }
  return bytes;
}

// The same for a page: without a tag, it is sent as it is.
inline std::string PageNoise(std::size_t size) {
  std::string bytes = Noise(size);
  std::replace(bytes.begin(), bytes.end(), '<', '_');
  return bytes;
}

// A control on a loop that it shares with others, and everything it says.
struct WireControl {
  explicit WireControl(EventLoop& sharedLoop) : loop(sharedLoop), tessel(loop) {
    tessel.ServerIP("127.0.0.1");
    tessel.ServerPort("0");
    tessel.VirtualPath(root);
    tessel.HTTPLog = [this](std::string& line) { log.push_back(line); };
    tessel.LogEvent = [this](std::string& text) { errors.push_back(text); };
  }

  // Starts, with `slots` clients served at once, and forgets what the start said.
  void Start(std::int32_t slots = 1) {
    tessel.MaxConnections(slots + 1);
    ASSERT_TRUE(tessel.StartServer());
    ASSERT_TRUE(tessel.IsListening());
    log.clear();
  }

  // Answers every request for a file "….trp" with what the control made of it.
  void EchoTrapped() {
    tessel.TrapFileEnable(true);
    tessel.TrapFileTypes("trp");
    tessel.FileRequest = [this](std::int32_t& index, std::string&, std::string&) {
      std::string text = tessel.CGIValue(index, "REQUEST_METHOD") + " " + tessel.CGIValue(index, "DOCUMENT_URI") + "?" +
                         tessel.CGIValue(index, "QUERY_STRING") + "\n" + tessel.RequestBody(index);
      tessel.TrapFileData(index, text, false, "text/plain");
    };
  }

  std::int32_t Port() const { return tessel.ListeningPort(); }
  std::string Url(std::string_view path) const {
    return "http://127.0.0.1:" + std::to_string(Port()) + std::string(path);
  }

  // Writes a file below the root and returns its bytes.
  std::string Write(std::string_view relative, std::string bytes) const {
    tree.Write("root/" + std::string(relative), bytes);
    return bytes;
  }

  std::string Ask(std::string_view request) const { return Exchange(loop, Port(), request); }
  std::string Get(std::string_view path) const { return Ask("GET " + std::string(path) + " HTTP/1.0\r\n\r\n"); }

  TemporaryTree tree;  // the root lies in it, and beside the root what must never be served
  std::string root = tree.MakeFolder("root");
  EventLoop& loop;
  std::vector<std::string> log;
  std::vector<std::string> errors;
  Tessel tessel;
};

// One control on a loop of its own, on a clock that may be put forward. Fails the test when the control reports an
// error that the test did not take away.
class WireTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(control.errors, std::vector<std::string>{}); }

  // Runs a client that must end well, and returns what it wrote to its output.
  std::string RunWell(std::vector<std::string> arguments, std::chrono::seconds limit = std::chrono::seconds(20)) {
    const ClientResult result = RunClient(loop, std::move(arguments), limit);
    EXPECT_EQ(result.status, 0) << result.errors;
    return result.output;
  }

  Kit::SkippingWorld world;
  EventLoop loop{world};
  WireControl control{loop};
};

// The first line of an answer, and the whole without the line that changes with the clock.
inline std::string StatusLineOf(const std::string& answer) { return answer.substr(0, answer.find("\r\n")); }
inline std::string WithoutDate(std::string answer) {
  const std::size_t line = answer.find("\r\nDate: ");
  if (line != std::string::npos) answer.erase(line, answer.find("\r\n", line + 2) - line);
  return answer;
}

}  // namespace TesselServer::Kit
