// Many clients at once and many one after the other: nobody is refused, nothing is left behind.

#include <sys/socket.h>

#include "tests/kit/Descriptors.h"
#include "tests/kit/Memory.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::ClientProcess;
using Kit::Clients;
using Kit::Noise;
using Kit::WireControl;

// Each request leaves a connection in the kernel's table of waiting ones for a minute. A full table (see
// tcp_max_tw_buckets, tcp(7)) makes the kernel reset connections that were closed well, so the numbers keep below it.
constexpr int kBenchRequests = Kit::kSanitized ? 2000 : 20000;
constexpr int kBenchAtOnce = 32;
constexpr std::chrono::seconds kBenchLimit{60};

std::unique_ptr<ClientProcess> Bench(const WireControl& control, std::string_view path, int requests) {
  return std::make_unique<ClientProcess>(std::vector<std::string>{"ab", "-q", "-n", std::to_string(requests), "-c",
                                                                  std::to_string(kBenchAtOnce), control.Url(path)});
}

// The number behind `name` in the report of ab, -1 when it has none.
int Reported(const std::string& report, const std::string& name) {
  const std::size_t found = report.find("\n" + name + ":");
  return found == std::string::npos ? -1 : std::stoi(report.substr(found + name.size() + 2));
}

void ExpectFlawless(const ClientProcess& bench, int requests) {
  const std::string report = bench.Output();
  EXPECT_EQ(bench.ExitStatus(), 0) << bench.Errors();
  EXPECT_EQ(Reported(report, "Complete requests"), requests) << report << bench.Errors();
  EXPECT_EQ(Reported(report, "Failed requests"), 0) << report;
  EXPECT_EQ(Reported(report, "Write errors"), -1) << report;
  EXPECT_EQ(Reported(report, "Non-2xx responses"), -1) << report;
}

class ManyClientsTest : public Kit::WireTest {
 protected:
  ManyClientsTest() { page = control.Write("index.html", "<html><body>" + Kit::PageNoise(2000) + "</body></html>"); }

  void BenchWith(std::int32_t slots) {
    control.Start(slots);
    Clients clients;
    clients.push_back(Bench(control, "/index.html", kBenchRequests));
    EXPECT_TRUE(RunClients(loop, clients, kBenchLimit));
    ExpectFlawless(*clients[0], kBenchRequests);
    EXPECT_GE(control.log.size(), static_cast<std::size_t>(kBenchRequests));
  }

  std::string page;
};

TEST_F(ManyClientsTest, ThirtyTwoAtOnceWaitForTheOneSlot) { BenchWith(1); }

TEST_F(ManyClientsTest, ThirtyTwoAtOnceShareManySlots) { BenchWith(999); }

TEST_F(ManyClientsTest, TwoControlsServeInOneLoop) {
  WireControl other(loop);
  other.Write("other.txt", Noise(5000));
  control.Start(1);
  other.Start(10);
  Clients clients;
  clients.push_back(Bench(control, "/index.html", kBenchRequests / 4));
  clients.push_back(Bench(other, "/other.txt", kBenchRequests / 4));
  EXPECT_TRUE(RunClients(loop, clients, kBenchLimit));
  ExpectFlawless(*clients[0], kBenchRequests / 4);
  ExpectFlawless(*clients[1], kBenchRequests / 4);
  EXPECT_EQ(other.errors, std::vector<std::string>{});
}

TEST_F(ManyClientsTest, EightBrowsersLoadAnAlbumThroughOneSlot) {
  constexpr int kBrowsers = 8;
  constexpr int kPictures = 24;
  std::string album;
  for (int i = 0; i < kPictures; ++i) {
    album += control.Write("p" + std::to_string(i) + ".png", Noise(5000 + static_cast<std::size_t>(i) * 7000));
  }
  control.Start(1);
  std::vector<std::string> arguments = {"curl", "-sS", "--max-time", "30"};
  for (int i = 0; i < kPictures; ++i) arguments.push_back(control.Url("/p" + std::to_string(i) + ".png"));
  Clients browsers;
  for (int i = 0; i < kBrowsers; ++i) browsers.push_back(std::make_unique<ClientProcess>(arguments));
  EXPECT_TRUE(RunClients(loop, browsers, kBenchLimit));
  for (const auto& browser : browsers) {
    EXPECT_EQ(browser->ExitStatus(), 0) << browser->Errors();
    EXPECT_EQ(browser->Output() == album, true) << browser->Output().size() << " of " << album.size() << " bytes";
  }
}

TEST_F(ManyClientsTest, OneClientWithManyConnectionsGetsEveryPicture) {
  std::vector<std::string> arguments = {"curl", "-sS", "--max-time", "30", "--parallel", "--parallel-max", "8"};
  const Kit::TemporaryTree copy;
  constexpr int kPictures = 40;
  for (int i = 0; i < kPictures; ++i) {
    const std::string name = "p" + std::to_string(i) + ".png";
    control.Write(name, Noise(30'000, static_cast<std::uint32_t>(i)));
    arguments.insert(arguments.end(), {"-o", (copy.Path() / name).string()});
  }
  control.Start(1);
  for (int i = 0; i < kPictures; ++i) arguments.push_back(control.Url("/p" + std::to_string(i) + ".png"));
  RunWell(arguments);
  for (int i = 0; i < kPictures; ++i) {
    EXPECT_EQ(
        Kit::ReadFile(copy.Path() / ("p" + std::to_string(i) + ".png")) == Noise(30'000, static_cast<std::uint32_t>(i)),
        true)
        << "picture " << i;
  }
}

// ---- What is left behind.

// One round of requests of every kind that ends in an answer.
constexpr int kKindsOfRequest = 10;

void AskOfEveryKind(const WireControl& control, const std::string& page) {
  EXPECT_EQ(Kit::BodyOf(control.Get("/")), page);
  EXPECT_EQ(Kit::BodyOf(control.Get("/index.html")), page);
  EXPECT_EQ(control.Get("/big.bin").size() > 200'000, true);
  EXPECT_NE(control.Get("/nothing.htm"), "");
  EXPECT_NE(control.Get("/../secret"), "");
  EXPECT_NE(control.Ask("HEAD / HTTP/1.0\r\n\r\n"), "");
  EXPECT_NE(control.Ask("POST / HTTP/1.0\r\n\r\n"), "");
  EXPECT_EQ(Kit::BodyOf(control.Ask("POST / HTTP/1.0\r\nContent-Length: 3\r\n\r\nabc")), page);
  EXPECT_EQ(Kit::BodyOf(control.Ask("POST /a.trp HTTP/1.0\r\nContent-Length: 3\r\n\r\nabcdef")), "POST /a.trp?\nabc");
  EXPECT_EQ(Kit::BodyOf(control.Ask("GET / HTTP/1.0\r\n\r\nGET /again HTTP/1.0\r\n\r\n")), page);
}

TEST_F(ManyClientsTest, AThousandRequestsLeakNoDescriptorAndNoMemory) {
  constexpr int kRounds = 1000 / kKindsOfRequest;
  // the sanitizer keeps up to 256 MiB of what was freed, and looks for leaks itself
  constexpr std::int64_t kGrowth = (Kit::kSanitized ? 300 : 2) * 1024 * 1024;
  control.Write("big.bin", Noise(200'000));
  control.EchoTrapped();
  control.Start(20);
  AskOfEveryKind(control, page);  // opens the root
  Kit::Settle(loop);
  const std::size_t descriptors = Kit::CountDescriptors();
  for (int i = 0; i < kRounds / 2; ++i) AskOfEveryKind(control, page);
  const std::int64_t memory = Kit::ResidentBytes();
  for (int i = 0; i < kRounds; ++i) {
    control.log.clear();
    AskOfEveryKind(control, page);
  }
  EXPECT_TRUE(Kit::RunUntil(loop, [&] { return Kit::CountDescriptors() == descriptors; }))
      << Kit::CountDescriptors() << " descriptors, before " << descriptors;
  EXPECT_LT(Kit::ResidentBytes() - memory, kGrowth);
}

TEST_F(ManyClientsTest, AClientThatHasSentHalfARequestCostsFourKilobytes) {
  constexpr int kWaiting = 400;
  constexpr std::int64_t kMost = Kit::kSanitized ? 64 * 1024 : 4 * 1024;  // the test's own end of it included
  constexpr std::string_view kBeginnings[] = {
      "GET /a/folder/and/a/fi",
      "POST /form HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: Mozilla/5.0 (X11; Linux x86_64)\r\nContent-Le",
      "POST /form HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 100\r\n\r\nabc",
  };
  control.Start(kWaiting);
  control.Get("/");
  const std::int64_t before = Kit::ResidentBytes();
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < kWaiting; ++i) {
    clients.push_back(std::make_unique<Kit::RawClient>(control.Port()));
    clients.back()->Send(loop, kBeginnings[static_cast<std::size_t>(i) % std::size(kBeginnings)]);
  }
  Kit::Settle(loop);
  EXPECT_LT((Kit::ResidentBytes() - before) / kWaiting, kMost);
}

TEST_F(ManyClientsTest, ClientsThatGoAwayLeakNoDescriptor) {
  control.Write("big.bin", Noise(4'000'000));
  control.Start();
  control.Get("/");  // opens the root
  control.tessel.StopServer();
  const std::size_t before = Kit::CountDescriptors();
  control.Start(20);
  const std::size_t started = Kit::CountDescriptors();
  constexpr std::string_view kBeginnings[] = {
      "G",
      "GET /index.html",
      "GET /index.html HTTP/1.0\r\n",
      "GET /big.bin HTTP/1.0\r\n\r\n",
      "POST / HTTP/1.0\r\nContent-Le",
      "POST / HTTP/1.0\r\nContent-Length: 100\r\n\r\nabc",
  };
  for (int i = 0; i < 50; ++i) {
    for (const std::string_view beginning : kBeginnings) {
      Kit::RawClient client(control.Port());
      client.Send(loop, beginning);
      Kit::Settle(loop);  // it is served as far as it goes, whatever a turn has time for
      if (i % 2 == 0) client.Abort();
    }
    EXPECT_EQ(Kit::BodyOf(control.Get("/")), page);
  }
  // a connection that its client closed is kept until its slot is wanted, but no longer
  EXPECT_TRUE(Kit::RunUntil(loop, [&] { return Kit::CountDescriptors() <= started + 20; }))
      << Kit::CountDescriptors() << " descriptors, after the start " << started;
  control.tessel.StopServer();
  EXPECT_TRUE(Kit::RunUntil(loop, [&] { return Kit::CountDescriptors() == before; }))
      << Kit::CountDescriptors() << " descriptors, before " << before;
}

}  // namespace
}  // namespace TesselServer
