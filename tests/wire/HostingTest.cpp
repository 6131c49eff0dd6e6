// The three ways of hosting the loop, each with a real client, and stopping in the middle of things.

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>
#include <utility>

#include <TesselServer/Timer.h>

#include "tests/kit/Descriptors.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::ClientProcess;
using Kit::Clients;
using Kit::Noise;
using Kit::PageNoise;

class HostingTest : public Kit::WireTest {
 protected:
  HostingTest() {
    page = control.Write("index.html", PageNoise(200'000));
    control.Start();
    clients.push_back(Curl("/index.html"));
  }

  std::unique_ptr<ClientProcess> Curl(std::string_view path) const {
    return std::make_unique<ClientProcess>(
        std::vector<std::string>{"curl", "-sS", "--max-time", "10", control.Url(path)});
  }
  void ExpectServed() const {
    EXPECT_EQ(clients[0]->ExitStatus(), 0) << clients[0]->Errors();
    EXPECT_EQ(clients[0]->Output() == page, true);
  }

  std::string page;
  Clients clients;
};

TEST_F(HostingTest, RunServesUntilATimerStopsIt) {
  Timer timer(loop);
  int ticks = 0;
  timer.Interval(10);
  timer.OnTick([&] {
    if (HaveEnded(clients) || ++ticks == 1000) loop.Stop();
  });
  timer.Enabled(true);
  loop.Run();
  ASSERT_TRUE(HaveEnded(clients));
  ExpectServed();
}

TEST_F(HostingTest, RunOnceServesTurnByTurn) {
  EXPECT_TRUE(RunClients(clients, std::chrono::seconds(10), [&] {
    loop.RunOnce(0);
    usleep(1000);
  }));
  ExpectServed();
}

TEST_F(HostingTest, TheDescriptorWakesAHostWithItsOwnPoll) {
  pollfd wake{};
  wake.fd = loop.Descriptor();
  wake.events = POLLIN;
  int turns = 0;
  EXPECT_TRUE(RunClients(clients, std::chrono::seconds(10), [&] {
    if (poll(&wake, 1, 20) != 1) return;
    loop.RunOnce(0);
    ++turns;
  }));
  ExpectServed();
  EXPECT_GT(turns, 0);
  // with nobody there the descriptor is quiet: a host that sleeps on it is not kept busy
  while (loop.RunOnce(10)) {
  }
  wake.revents = 0;
  EXPECT_EQ(poll(&wake, 1, 50), 0);
}

std::atomic<int> alarms = 0;

// While it lives, an alarm interrupts this thread every millisecond, and no thread that begins meanwhile.
class Alarms {
 public:
  Alarms() {
    struct sigaction action {};
    action.sa_handler = [](int) { ++alarms; };
    sigaction(SIGALRM, &action, &before_);
    Repeat(1000);
  }
  Alarms(const Alarms&) = delete;
  Alarms& operator=(const Alarms&) = delete;
  ~Alarms() {
    Repeat(0);
    sigaction(SIGALRM, &before_, nullptr);
  }

 private:
  static void Repeat(suseconds_t microseconds) {
    const itimerval every{{0, microseconds}, {0, microseconds}};
    setitimer(ITIMER_REAL, &every, nullptr);
  }

  struct sigaction before_ {};
};

TEST_F(HostingTest, ThePollLoopOfTheReadmeGoesOnAfterSignals) {
  clients.clear();
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const int descriptorOfMine = ends[0];
  std::atomic<bool> over = false;
  const auto WorkOfMine = [&] { over = true; };
  std::string answer;
  const std::int32_t port = control.Port();
  std::thread client([&, port] {
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    while (alarms < 10 && !over) std::this_thread::yield();
    EventLoop own;
    answer = Kit::Exchange(own, port, "GET /index.html HTTP/1.0\r\n\r\n");
    close(ends[1]);
  });
  {
    const Alarms interrupting;
    pollfd watched[] = {{loop.Descriptor(), POLLIN, 0}, {descriptorOfMine, POLLIN, 0}};
    while (!over) {
      if (poll(watched, 2, -1) < 0) {
        if (errno == EINTR) continue;  // a signal came
        break;
      }
      if (watched[0].revents) loop.RunOnce(0);
      if (watched[1].revents) WorkOfMine();
    }
  }
  over = true;
  client.join();
  close(ends[0]);
  EXPECT_EQ(Kit::BodyOf(answer) == page, true);
}

TEST_F(HostingTest, AHalfSentRequestEndsWithAStopAndItsDescriptorGoesWithTheLoop) {
  clients.clear();
  control.Get("/");  // the root stays open from the first look into it on
  const std::size_t before = Kit::CountDescriptors();
  Kit::RawClient client(control.Port());
  client.Send(loop, "POST /a.trp HTTP/1.0\r\nContent-Length: 500\r\n\r\nabc");
  Kit::Settle(loop);
  ASSERT_EQ(Kit::CountDescriptors(), before + 2) << "the client's and the server's";
  ASSERT_TRUE(control.tessel.StopServer());
  EXPECT_TRUE(client.Poll()) << "the client sees the end at once";
  client.EndSending();
  EXPECT_EQ(Kit::CountDescriptors(), before + 1) << "the listener has gone, the server's descriptor has not";
  Kit::Settle(loop);
  EXPECT_EQ(Kit::CountDescriptors(), before) << "now it has";
}

TEST_F(HostingTest, TheDescriptorWakesForTimersThatEndAWait) {
  control.EchoTrapped();
  pollfd wake{};
  wake.fd = loop.Descriptor();
  wake.events = POLLIN;
  clients.clear();
  Kit::RawClient client(control.Port());
  client.Send(loop, "POST /a.trp HTTP/1.0\r\nContent-Length: 5\r\n\r\nabc");
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!client.Poll() && std::chrono::steady_clock::now() < end) {
    if (poll(&wake, 1, 1000) == 1) loop.RunOnce(0);
  }
  EXPECT_EQ(Kit::BodyOf(client.Received()), "POST /a.trp?\nabc");
}

TEST_F(HostingTest, AStopDuringADownloadLetsTheSamePortBeUsedAtOnce) {
  control.Write("huge.bin", std::string(50'000'000, 'x'));
  EXPECT_TRUE(RunClients(loop, clients, std::chrono::seconds(10)));
  control.tessel.ServerPort(std::to_string(control.Port()));
  for (int round = 0; round < 3; ++round) {
    clients.clear();
    control.log.clear();
    clients.push_back(std::make_unique<ClientProcess>(std::vector<std::string>{
        "curl", "-sS", "--limit-rate", "1M", "--max-time", "20", "-o", "/dev/null", control.Url("/huge.bin")}));
    ASSERT_TRUE(Kit::RunUntil(loop, [&] { return !control.log.empty(); }));  // it is being served
    ASSERT_TRUE(control.tessel.StopServer());
    EXPECT_EQ(control.Port(), 0);
    control.Start();
    clients.push_back(Curl("/index.html"));
    EXPECT_TRUE(RunClients(loop, clients, std::chrono::seconds(10)));
    EXPECT_EQ(clients[0]->ExitStatus(), 18) << "the download was cut off: " << clients[0]->Errors();
    EXPECT_EQ(clients[1]->Output() == page, true) << clients[1]->Errors();
  }
}

TEST_F(HostingTest, AStoppedServerRefusesAndAStartedOneServes) {
  const std::string url = control.Url("/index.html");
  control.tessel.ServerPort(std::to_string(control.Port()));
  clients.clear();
  control.tessel.StopServer();
  EXPECT_EQ(Kit::RunClient(loop, {"curl", "-sS", "--max-time", "10", url}).status, 7);
  control.Start();
  EXPECT_EQ(RunWell({"curl", "-sS", "--max-time", "10", url}) == page, true);
}

TEST_F(HostingTest, AControlMayDieDuringADownload) {
  clients.clear();
  {
    Kit::WireControl other(loop);
    other.Write("huge.bin", std::string(50'000'000, 'x'));
    other.Start();
    clients.push_back(std::make_unique<ClientProcess>(
        std::vector<std::string>{"curl", "-sS", "--limit-rate", "1M", "-o", "/dev/null", other.Url("/huge.bin")}));
    ASSERT_TRUE(Kit::RunUntil(loop, [&] { return !other.log.empty(); }));
  }
  EXPECT_TRUE(RunClients(loop, clients, std::chrono::seconds(10)));
  EXPECT_EQ(clients[0]->ExitStatus(), 18) << clients[0]->Errors();
  EXPECT_EQ(Kit::BodyOf(control.Get("/")) == page, true);
}

volatile std::sig_atomic_t pipeSignals = 0;

TEST_F(HostingTest, NoPipeSignalArrivesHoweverClientsGoAway) {
  pipeSignals = 0;
  const auto before = std::signal(SIGPIPE, [](int) { pipeSignals = pipeSignals + 1; });
  control.Write("huge.bin", Noise(20'000'000));
  control.tessel.ServerPort("0");
  control.tessel.StopServer();
  control.Start(4);
  control.EchoTrapped();
  control.tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
    control.tessel.TrapFileData(index, std::string(20'000'000, 'y'), false);
  };
  for (int i = 0; i < 40; ++i) {
    Kit::RawClient client(control.Port());
    client.Send(loop, i % 2 == 0 ? "GET /huge.bin HTTP/1.0\r\n\r\n" : "GET /huge.trp HTTP/1.0\r\n\r\n");
    for (int turn = 0; turn < i % 5; ++turn) loop.RunOnce(1);
    if (i % 3 == 0) client.Poll();
    i % 4 < 2 ? client.Abort() : client.Close();
    for (int turn = 0; turn < 3; ++turn) loop.RunOnce(1);
  }
  Kit::Settle(loop);
  std::signal(SIGPIPE, before);
  EXPECT_EQ(pipeSignals, 0);
  EXPECT_EQ(Kit::BodyOf(control.Get("/")) == page, true);
  clients.clear();
  for (const std::string& error : std::exchange(control.errors, {})) {
    EXPECT_EQ(error, "Error -  SendData. [10054] Connection reset by peer.");
  }
}

}  // namespace
}  // namespace TesselServer
