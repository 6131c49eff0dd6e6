// A server that has no visitors for a long time, on a clock that only the test moves: each client is served all the
// same.

#include <sys/socket.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/sockets/Endpoint.h"
#include "tests/kit/Child.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/NetworkNamespace.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::Noise;
using Kit::RawClient;
using Kit::WireControl;

struct QuietServer {
  // Lets ten seconds pass, `times` times: the control checks its listener each time.
  void Checks(int times) {
    for (; times > 0; --times) {
      world.Advance(10'000);
      loop.RunOnce(0);
    }
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  WireControl control{loop};
};

TEST(QuietServerTest, AClientThatConnectedLongBeforeItSendsIsAnswered) {
  QuietServer server;
  const std::string page = server.control.Write("page.txt", Noise(1000));
  server.control.Start();
  server.Checks(4);
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 10; ++i) {
    clients.push_back(std::make_unique<RawClient>(server.control.Port()));
    server.Checks(1 + i % 3);
  }
  for (const auto& client : clients) {
    EXPECT_TRUE(client->Send(server.loop, "GET /page.txt HTTP/1.0\r\n\r\n"));
    EXPECT_TRUE(Kit::BodyOf(client->ReceiveAll(server.loop)) == page);
    EXPECT_FALSE(client->WasReset());
    server.Checks(4);
  }
  EXPECT_EQ(server.control.errors, std::vector<std::string>{});
}

// The descriptor of this process that listens on `port`; -1 for none.
int ListeningDescriptor(std::int32_t port) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int descriptor = std::stoi(entry.path().filename().string());
    int listens = 0;
    socklen_t size = sizeof listens;
    if (getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) != 0 || listens == 0) continue;
    const auto own = Endpoint::OwnOf(descriptor);
    if (own && own->Port() == port) return descriptor;
  }
  return -1;
}

TEST(QuietServerTest, AListenerThatWasEndedFromOutsideIsRenewedAtTheNextCheck) {
  QuietServer server;
  const std::string page = server.control.Write("page.txt", Noise(1000));
  server.control.Start();
  const std::int32_t port = server.control.Port();
  const int descriptor = ListeningDescriptor(port);
  ASSERT_GE(descriptor, 0);
  ASSERT_EQ(shutdown(descriptor, SHUT_RDWR), 0);
  server.loop.RunOnce(0);
  EXPECT_FALSE(server.control.tessel.IsListening());
  EXPECT_EQ(server.control.errors, std::vector<std::string>{"Error - TCP::Listen. [10022] Invalid Argument."});
  EXPECT_FALSE(server.loop.RunOnce(0)) << "nothing is left to deliver until the check";
  server.Checks(1);
  EXPECT_TRUE(server.control.tessel.IsListening());
  EXPECT_EQ(server.control.Port(), port);
  EXPECT_TRUE(Kit::BodyOf(server.control.Get("/page.txt")) == page);
  EXPECT_EQ(server.control.errors.size(), 1u);
}

TEST(QuietServerTest, AServerThatIsStartedAnewByTheReportOfItsListenersEndListens) {
  QuietServer server;
  server.control.Start();
  server.control.tessel.LogEvent = [&](std::string&) {
    server.control.tessel.StopServer();
    server.control.tessel.StartServer();
  };
  ASSERT_EQ(shutdown(ListeningDescriptor(server.control.Port()), SHUT_RDWR), 0);
  server.loop.RunOnce(0);
  EXPECT_TRUE(server.control.tessel.ServerRunning());
  EXPECT_TRUE(server.control.tessel.IsListening());
}

// Exit codes of the child below; 0 is a server that served.
enum : int { kNotStarted = 1, kRightsKept, kErrorsReported, kNotServed };

// A free port that only root may bind; 0 where there is none.
std::int32_t PrivilegedPort(Tessel& tessel) {
  for (std::int32_t port = 1023; port > 1000; --port) {
    tessel.ServerPort(std::to_string(port));
    try {
      tessel.StartServer();
      if (tessel.IsListening()) return port;
    } catch (const Error&) {
    }
    tessel.StopServer();
  }
  return 0;
}

bool BecomeAnotherUser() {
  const bool changed =
      geteuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0) || Kit::DropRights();
  return changed && Kit::DropRights();
}

int ServeAfterDroppingRights() {
  if (!Kit::EnterOwnNetwork(true) && geteuid() != 0) return Kit::kNoNamespace;
  QuietServer server;
  server.control.EchoTrapped();
  if (PrivilegedPort(server.control.tessel) == 0) return kNotStarted;
  server.control.errors.clear();
  if (!BecomeAnotherUser()) return Kit::kCannotDropUser;
  QuietServer other;
  if (PrivilegedPort(other.control.tessel) != 0) return kRightsKept;
  server.Checks(20);
  if (!server.control.errors.empty()) return kErrorsReported;
  const std::string answer = server.control.Get("/a.trp");
  return Kit::StatusLineOf(answer) == "HTTP/1.0 200 OK" ? 0 : kNotServed;
}

TEST(QuietServerTest, AServerThatGaveUpTheRightToItsPortGoesOnServing) {
  const int result = Kit::InChild(ServeAfterDroppingRights);
  if (result == Kit::kNoNamespace) GTEST_SKIP() << "this machine gives no rights to drop";
  EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace TesselServer
