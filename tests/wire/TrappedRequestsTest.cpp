// Requests that the host answers, with real clients: any data, at any time, and clients that do not wait for it.

#include <functional>
#include <memory>
#include <vector>

#include <TesselServer/Timer.h>

#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::RawClient;
using Kit::ReadFile;

class TrappedRequestsTest : public Kit::WireTest {
 protected:
  TrappedRequestsTest() {
    control.tessel.TrapFileEnable(true);
    control.tessel.TrapFileTypes("trp");
    control.tessel.FileRequest = [this](std::int32_t& index, std::string& name, std::string&) {
      waiting.push_back(index);
      if (answer) answer(index, name);
    };
    control.Start(2);
  }

  // A client whose request waits for the host.
  std::unique_ptr<RawClient> Wait() {
    const std::size_t before = waiting.size();
    auto client = std::make_unique<RawClient>(control.Port());
    client->Send(loop, "GET /a.trp HTTP/1.0\r\n\r\n");
    EXPECT_TRUE(Kit::RunUntil(loop, [&] { return waiting.size() > before; }));
    return client;
  }

  std::function<void(std::int32_t, const std::string&)> answer;
  std::vector<std::int32_t> waiting;
};

TEST_F(TrappedRequestsTest, DataOfAnySizeArriveUnchanged) {
  const std::string copy = control.tree.Text() + "/copy";
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{65'536}, std::size_t{5 * 1024 * 1024}}) {
    std::string data = Kit::Noise(size, 3);
    if (size > 2) data.replace(0, 3, std::string("\0\r\n", 3));
    for (const char* type : {"application/octet-stream", "text/html"}) {
      answer = [&](std::int32_t index, const std::string&) { control.tessel.TrapFileData(index, data, false, type); };
      EXPECT_EQ(RunWell({"curl", "-sS", "-o", copy, "-w", "%{size_download} %{content_type}", control.Url("/a.trp")}),
                std::to_string(size) + " " + type);
      EXPECT_TRUE(size == 0 || ReadFile(copy) == data) << size;
    }
  }
}

TEST_F(TrappedRequestsTest, ATimerOfTheHostMayAnswerAndTwiceIsOnce) {
  Timer timer(loop);
  timer.Interval(50);
  timer.OnTick([&] {
    for (const std::int32_t index : waiting) {
      control.tessel.TrapFileDataEX(index, "first", false, "text/plain", "202", "X-Mine: 1");
      control.tessel.TrapFileData(index, "second", false);
    }
    waiting.clear();
  });
  timer.Enabled(true);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(RunWell({"curl", "-sS", "-w", "|%{http_code}", control.Url("/a.trp")}), "first|202");
  }
}

TEST_F(TrappedRequestsTest, AClientThatDoesNotWaitHarmsNoOther) {
  control.Write("plain.txt", "plain");
  const Kit::ClientResult gone = Kit::RunClient(loop, {"curl", "-sS", "--max-time", "0.3", control.Url("/a.trp")});
  EXPECT_EQ(gone.status, 28) << "it gave up";
  Kit::Settle(loop);
  ASSERT_EQ(waiting.size(), 1u);
  EXPECT_EQ(BodyOf(control.Get("/plain.txt")), "plain");
  control.tessel.TrapFileData(waiting[0], "late", false);
  Kit::Settle(loop);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(BodyOf(control.Get("/plain.txt")), "plain");
}

TEST_F(TrappedRequestsTest, TheRequestNumberTellsTwoClientsOfOneSlotApart) {
  const auto first = Wait();
  const std::uint64_t number = control.tessel.RequestNumber(waiting[0]);
  EXPECT_NE(number, 0u);
  first->Abort();
  Kit::Settle(loop);
  EXPECT_EQ(control.tessel.RequestNumber(waiting[0]), 0u) << "nobody waits";
  const auto second = Wait();
  ASSERT_EQ(waiting[0], waiting[1]) << "the same slot";
  EXPECT_NE(control.tessel.RequestNumber(waiting[1]), number);
  EXPECT_NE(control.tessel.RequestNumber(waiting[1]), 0u);
  control.tessel.TrapFileData(waiting[1], "for the second", false);
  EXPECT_EQ(BodyOf(second->ReceiveAll(loop)), "for the second");
  EXPECT_EQ(control.tessel.RequestNumber(waiting[1]), 0u) << "answered";
  EXPECT_EQ(control.tessel.RequestNumber(0), 0u) << "no connection";
  EXPECT_EQ(control.tessel.RequestNumber(-1), 0u);
}

TEST_F(TrappedRequestsTest, AnAnswerAfterAStopReachesNoClient) {
  const auto first = Wait();
  first->Abort();
  Kit::Settle(loop);
  const auto second = Wait();
  ASSERT_EQ(waiting[0], waiting[1]) << "the same slot";
  control.tessel.StopServer();
  control.tessel.TrapFileData(waiting[1], "too late", false);
  EXPECT_EQ(second->ReceiveAll(loop), "");
  control.tessel.ServerPort("0");
  ASSERT_TRUE(control.tessel.StartServer());
  answer = [&](std::int32_t index, const std::string& name) { control.tessel.TrapFileData(index, name, false); };
  EXPECT_EQ(BodyOf(control.Get("/b.trp")), "b.trp");
}

}  // namespace
}  // namespace TesselServer
