// Files of every size: what a file costs does not depend on how long it is.

#include <unistd.h>

#include <algorithm>

#include "tests/kit/Memory.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::ClientProcess;
using Kit::Clients;
using Kit::Noise;

using BigFilesTest = Kit::WireTest;

TEST_F(BigFilesTest, SizesAroundTheLimitOfWhatIsReadWhole) {
  control.Start();
  for (const std::size_t size : {0u, 1u, 65535u, 65536u, 65537u, 131072u, 3'000'000u}) {
    const std::string bytes = control.Write("file.bin", Noise(size));
    const std::string answer = control.Get("/file.bin");
    EXPECT_EQ(Kit::BodyOf(answer) == bytes, true) << size;
    // kept: an empty file has no such line
    const bool announced = answer.find("\r\nContent-Length: " + std::to_string(size) + "\r\n") != std::string::npos;
    EXPECT_EQ(announced, size != 0) << size;
    EXPECT_EQ(RunWell({"curl", "-sS", control.Url("/file.bin")}) == bytes, true) << size;
  }
}

TEST_F(BigFilesTest, AGibibyteGoesOutWholeTwiceAndCostsNoMemory) {
  constexpr off_t kSize = off_t{1} << 30;
  constexpr std::int64_t kGrowth = 8 * 1024 * 1024;
  const std::string path = control.tree.Write("root/huge.bin", "");
  ASSERT_EQ(truncate(path.c_str(), kSize), 0);
  control.Write("small.txt", "small");
  control.Start(4);
  ASSERT_EQ(Kit::BodyOf(control.Get("/small.txt")), "small");
  const std::int64_t before = Kit::ResidentBytes();
  std::int64_t most = before;
  int turns = 0;
  int answeredMeanwhile = 0;
  Clients clients;
  for (int i = 0; i < 2; ++i) {
    clients.push_back(std::make_unique<ClientProcess>(
        std::vector<std::string>{"curl", "-sS", "--limit-rate", "300M", "--max-time", "50", "-o", "/dev/null", "-w",
                                 "%{http_code} %{size_download}", control.Url("/huge.bin")}));
  }
  const bool ended = RunClients(clients, std::chrono::seconds(60), [&] {
    loop.RunOnce(5);
    if (++turns % 200 != 0) return;
    most = std::max(most, Kit::ResidentBytes());
    answeredMeanwhile += Kit::BodyOf(control.Get("/small.txt")) == "small" ? 1 : -1000;
  });
  EXPECT_TRUE(ended);
  for (const auto& client : clients) {
    EXPECT_EQ(client->ExitStatus(), 0) << client->Errors();
    EXPECT_EQ(client->Output(), "200 1073741824");
  }
  EXPECT_LT(most - before, kGrowth);
  EXPECT_GT(answeredMeanwhile, 0);
}

TEST_F(BigFilesTest, AFileThatShrinksOnItsWayEndsTheAnswerAndNothingElse) {
  const std::string path = control.tree.Write("root/shrinks.bin", Noise(20'000'000));
  control.Write("small.txt", "small");
  control.Start(2);
  Kit::RawClient client(control.Port());
  client.Send(loop, "GET /shrinks.bin HTTP/1.0\r\n\r\n");
  loop.RunOnce(2);
  ASSERT_EQ(truncate(path.c_str(), 1'000'000), 0);
  EXPECT_LT(client.ReceiveAll(loop).size(), 20'000'000u);
  EXPECT_TRUE(client.Ended());
  EXPECT_EQ(Kit::BodyOf(control.Get("/small.txt")), "small");
}

TEST_F(BigFilesTest, AFileThatGrowsOnItsWayIsSentAsItWas) {
  const std::string bytes = control.Write("grows.bin", Noise(8'000'000));
  control.Start();
  Kit::RawClient client(control.Port());
  client.Send(loop, "GET /grows.bin HTTP/1.0\r\n\r\n");
  loop.RunOnce(2);
  control.Write("grows.bin", bytes + "more");
  EXPECT_EQ(Kit::BodyOf(client.ReceiveAll(loop)) == bytes, true);
  EXPECT_EQ(Kit::BodyOf(control.Get("/grows.bin")) == bytes + "more", true);
}

}  // namespace
}  // namespace TesselServer
