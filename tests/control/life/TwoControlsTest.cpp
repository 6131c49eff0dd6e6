// Several controls side by side in one process and one loop.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/TemporaryTree.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::Exchange;
using Kit::RawClient;

struct TwoControls {
  TwoControls() {
    Prepare(*first, firstTree, "first");
    Prepare(*second, secondTree, "second");
  }
  static void Prepare(Tessel& tessel, const Kit::TemporaryTree& tree, const std::string& text) {
    tree.Write("index.html", text);
    tree.Write("large.bin", std::string(3'000'000, text[0]));
    tessel.ServerIP("127.0.0.1");
    tessel.ServerPort("0");
    tessel.VirtualPath(tree.Text());
    tessel.StartServer();
  }
  std::string Get(const Tessel& tessel, const std::string& url) {
    return BodyOf(Exchange(loop, tessel.ListeningPort(), "GET " + url + " HTTP/1.0\r\n\r\n"));
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  Kit::TemporaryTree firstTree, secondTree;
  std::unique_ptr<Tessel> first = std::make_unique<Tessel>(loop);
  std::unique_ptr<Tessel> second = std::make_unique<Tessel>(loop);
};

TEST(TwoControlsTest, EachServesItsOwn) {
  TwoControls controls;
  EXPECT_NE(controls.first->ListeningPort(), controls.second->ListeningPort());
  EXPECT_EQ(controls.Get(*controls.first, "/"), "first");
  EXPECT_EQ(controls.Get(*controls.second, "/"), "second");
  EXPECT_EQ(controls.first->Stats_Requests(), "1");
  EXPECT_EQ(controls.second->Stats_Requests(), "1");
}

TEST(TwoControlsTest, OneStopsWhileTheOtherSends) {
  TwoControls controls;
  RawClient client(controls.second->ListeningPort());
  client.Send(controls.loop, "GET /large.bin HTTP/1.0\r\n\r\n");
  controls.loop.RunOnce(0);
  controls.first->StopServer();
  EXPECT_EQ(BodyOf(client.ReceiveAll(controls.loop)), std::string(3'000'000, 's'));
  controls.first->StartServer();
  EXPECT_EQ(controls.Get(*controls.first, "/"), "first");
}

TEST(TwoControlsTest, OneIsDestroyedInsideAnEventOfTheOther) {
  TwoControls controls;
  controls.second->HTTPLog = [&](std::string&) { controls.first.reset(); };
  EXPECT_EQ(controls.Get(*controls.second, "/"), "second");
  EXPECT_EQ(controls.first, nullptr);
  EXPECT_EQ(controls.Get(*controls.second, "/"), "second");
}

TEST(TwoControlsTest, BothAreDestroyedInsideAnEventOfOne) {
  TwoControls controls;
  const std::int32_t port = controls.second->ListeningPort();
  controls.second->HTTPLog = [&](std::string&) {
    controls.first.reset();
    controls.second.reset();
  };
  RawClient client(port);
  client.Send(controls.loop, "GET / HTTP/1.0\r\n\r\n");
  client.ReceiveAll(controls.loop);
  EXPECT_TRUE(client.Ended());
  EXPECT_EQ(controls.second, nullptr);
}

TEST(TwoControlsTest, SamePortIsInUse) {
  TwoControls controls;
  controls.second->StopServer();
  controls.second->ServerPort(std::to_string(controls.first->ListeningPort()));
  EXPECT_THROW(controls.second->StartServer(), Error);
  EXPECT_EQ(controls.Get(*controls.first, "/"), "first");
}

}  // namespace
}  // namespace TesselServer
