#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "net/cls_INet.h"
#include "platform/network/NetworkSubsystem.h"
#include "platform/world/World.h"
#include "tests/kit/Child.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/NameServer.h"
#include "tests/kit/NetworkNamespace.h"
#include "tests/kit/SystemCallFilter.h"

namespace TesselServer {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kNotResponding =
    "Windows Sockets for 32 bit Windows environments is not successfully responding.";

// A network that starts, ends and answers as the test says.
class FakeNetwork : public NetworkSubsystem {
 public:
  NetworkStart start{0, 0x0101, 65535};
  std::int32_t endError = 0;
  EchoReply reply{EchoOutcome::kAnswered, 12.5};

  VersionWord asked = 0;
  int starts = 0;
  int ends = 0;
  Lines echoes;

  NetworkStart StartUp(VersionWord version) override {
    asked = version;
    ++starts;
    return start;
  }
  std::int32_t CleanUp() override {
    ++ends;
    return endError;
  }
  EchoReply Echo(std::uint32_t address, std::string_view payload, std::int32_t milliseconds) override {
    EXPECT_EQ(starts, ends + 1) << "while it is started";
    echoes.push_back(std::to_string(ntohl(address)) + " " + std::string(payload) + " " + std::to_string(milliseconds));
    return reply;
  }
};

class cls_INetTest : public testing::Test {
 protected:
  cls_INetTest() {
    world_.addresses["printer.example"] = inet_addr("192.0.2.7");
    world_.hostNames[inet_addr("192.0.2.7")] = "printer.example";
  }

  Kit::FakeWorld world_;
  FakeNetwork network_;
  cls_INet net_{world_, network_};
};

TEST_F(cls_INetTest, AWorkingNetworkStartsAndEndsInSilence) {
  EXPECT_TRUE(net_.SocketsInitialize());
  EXPECT_EQ(network_.asked, 0x0101);
  EXPECT_TRUE(net_.SocketsShutdown());
  EXPECT_EQ(network_.starts, 1);
  EXPECT_EQ(network_.ends, 1);
  EXPECT_TRUE(world_.messages.empty());
}

TEST_F(cls_INetTest, WhatKeepsTheNetworkFromStartingIsShown) {
  struct {
    NetworkStart start;
    std::string message;  // "" when it starts
    const char* why;
  } const cases[] = {
      {{10091, 0x0101, 100}, kNotResponding, "it does not start"},
      {{-1, 0x0101, 100}, kNotResponding, "whatever the error"},
      {{10091, 0x0001, 0}, kNotResponding, "the first complaint is the only one"},
      {{0, 0x0001, 100},
       "Windows Sockets Version 1.0 is not supported by Windows Sockets for 32 bit Windows environments.",
       "1.0"},
      {{0, 0x0900, 100},
       "Windows Sockets Version 0.9 is not supported by Windows Sockets for 32 bit Windows environments.",
       "0.9"},
      {{0, 0xFF00, 100},
       "Windows Sockets Version 0.255 is not supported by Windows Sockets for 32 bit Windows environments.",
       "0.255"},
      {{0, 0x0000, 0},
       "Windows Sockets Version 0.0 is not supported by Windows Sockets for 32 bit Windows environments.",
       "the version comes first"},
      {{0, 0x0101, 0}, "This application requires a minimum of 1 supported sockets.", "no socket"},
      {{0, 0x0101, 1}, "", "one socket"},
      {{0, 0x0101, 65535}, "", "many"},
      {{0, 0x0201, 1}, "", "1.2"},
      {{0, 0x0002, 1}, "", "2.0: the minor number counts only behind a 1"},
      {{0, 0xFFFF, 1}, "", "255.255"},
  };
  for (const auto& c : cases) {
    world_.messages.clear();
    network_.start = c.start;
    EXPECT_EQ(net_.SocketsInitialize(), c.message.empty()) << c.why;
    EXPECT_EQ(world_.messages, c.message.empty() ? Lines{} : Lines{c.message}) << c.why;
  }
}

TEST_F(cls_INetTest, AFailingEndIsShownWithItsNumber) {
  network_.endError = 10036;
  EXPECT_FALSE(net_.SocketsShutdown());
  EXPECT_EQ(world_.messages, Lines{"Windows Sockets error 10036 occurred in Cleanup."});
  network_.endError = -1;
  EXPECT_FALSE(net_.SocketsShutdown());
  EXPECT_EQ(world_.messages.back(), "Windows Sockets error -1 occurred in Cleanup.");
}

TEST_F(cls_INetTest, AVersionHasALowAndAHighByte) {
  EXPECT_EQ(cls_INet::LowByte(0x0102), 2);
  EXPECT_EQ(cls_INet::HighByte(0x0102), 1);
  EXPECT_EQ(cls_INet::LowByte(0xFF00), 0);
  EXPECT_EQ(cls_INet::HighByte(0xFF00), 255);
  EXPECT_EQ(cls_INet::LowByte(0x80FF), 255);
  EXPECT_EQ(cls_INet::HighByte(0x80FF), 128);
}

TEST_F(cls_INetTest, NamesAndAddressesAreLookedUpBetweenStartAndEnd) {
  world_.localAddress = "192.0.2.1";
  EXPECT_EQ(net_.LocalHostAddress(), "192.0.2.1");
  EXPECT_EQ(net_.HostNameOfAddress("192.0.2.7"), "printer.example");
  EXPECT_EQ(net_.AddressOfHostName("printer.example"), "192.0.2.7");
  EXPECT_EQ(net_.AddressOfHostName("192.0.2.9"), "192.0.2.9");
  EXPECT_EQ(network_.starts, 4);
  EXPECT_EQ(network_.ends, 4);
}

TEST_F(cls_INetTest, WhatIsNotFoundHasItsFallback) {
  for (const std::string_view text : {"192.0.2.8", "printer.example", "", "255.255.255.255", "1.2.3.4.5", "<b>"}) {
    EXPECT_EQ(net_.HostNameOfAddress(text), "Unknown") << text;
  }
  for (const std::string_view text : {"no.such.host", "", "255.255.255.255", "a b", "256.1.1.1"}) {
    EXPECT_EQ(net_.AddressOfHostName(text), "") << text;
  }
  EXPECT_EQ(network_.starts, network_.ends);
  EXPECT_TRUE(world_.messages.empty());
}

TEST_F(cls_INetTest, WithoutANetworkNothingIsLookedUp) {
  network_.start.error = 10091;
  EXPECT_EQ(net_.LocalHostAddress(), "");
  EXPECT_EQ(net_.HostNameOfAddress("192.0.2.7"), "Unknown");
  EXPECT_EQ(net_.AddressOfHostName("printer.example"), "");
  const EchoHostResult echo = net_.EchoHost("printer.example");
  EXPECT_EQ(echo.Status, 11003);
  EXPECT_EQ(echo.Address, "");
  EXPECT_EQ(world_.messages, Lines(4, kNotResponding));
  EXPECT_EQ(network_.ends, 0) << "what did not start is not ended";
  EXPECT_TRUE(network_.echoes.empty());
}

TEST_F(cls_INetTest, AFailingEndIsShownAndTheAnswerIsKept) {
  network_.endError = 10093;
  EXPECT_EQ(net_.AddressOfHostName("printer.example"), "192.0.2.7");
  EXPECT_EQ(net_.EchoHost("printer.example").Status, 0);
  EXPECT_EQ(world_.messages, Lines(2, "Windows Sockets error 10093 occurred in Cleanup."));
}

TEST_F(cls_INetTest, AnEchoTellsWhatCameOfIt) {
  struct {
    const char* host;
    EchoReply reply;
    std::int32_t status;
    double milliseconds;
    const char* address;
  } const cases[] = {
      {"printer.example", {EchoOutcome::kAnswered, 12.5}, 0, 12.5, "192.0.2.7"},
      {"192.0.2.9", {EchoOutcome::kAnswered, 0.25}, 0, 0.25, "192.0.2.9"},
      {"printer.example", {EchoOutcome::kTimedOut, 0}, 11010, 0, "192.0.2.7"},
      {"printer.example", {EchoOutcome::kNotSent, 0}, 11003, 0, "192.0.2.7"},
  };
  for (const auto& c : cases) {
    network_.echoes.clear();
    network_.reply = c.reply;
    const EchoHostResult result = net_.EchoHost(c.host);
    EXPECT_EQ(result.Status, c.status) << c.host;
    EXPECT_EQ(result.RoundTripMs, c.milliseconds) << c.host;
    EXPECT_EQ(result.Address, c.address) << c.host;
    EXPECT_EQ(network_.echoes, Lines{std::to_string(ntohl(inet_addr(c.address))) + " Echo This. 200"});
  }
}

TEST_F(cls_INetTest, AHostThatIsNotFoundIsNotAskedForAnEcho) {
  for (const std::string& host : {std::string("no.such.host"), std::string(), std::string("255.255.255.255"),
                                  std::string("a\0b", 3), std::string(100'000, 'a')}) {
    const EchoHostResult result = net_.EchoHost(host);
    EXPECT_EQ(result.Status, 11001) << host.substr(0, 20);
    EXPECT_EQ(result.Address, "");
    EXPECT_EQ(result.RoundTripMs, 0);
  }
  EXPECT_TRUE(network_.echoes.empty());
  EXPECT_EQ(network_.starts, network_.ends);
}

// ---- On the real network.

// What EchoHost of a real host came to in a child with a network of its own, for a process with or without rights.
int StatusInOwnNetwork(const std::string& host, bool pingSockets, bool rights, bool silent) {
  return Kit::InChild([&] {
    if (!Kit::EnterOwnNetwork(true)) return Kit::kNoNamespace;
    if ((pingSockets && !Kit::AllowPingSockets()) || (silent && !Kit::IgnoreEchoes()) ||
        (!rights && !Kit::DropRights())) {
      return 100;
    }
    Kit::FakeWorld world;
    world.addresses["localhost"] = inet_addr("127.0.0.1");
    cls_INet net(world);
    const EchoHostResult result = net.EchoHost(host);
    if (result.Address != "127.0.0.1" || !world.messages.empty()) return 101;
    if ((result.Status == 0) != (result.RoundTripMs > 0 && result.RoundTripMs < 200)) return 102;
    return result.Status == 0 ? 1 : result.Status - 11000;  // 11010 and 11003 do not fit an exit status
  });
}

TEST_F(cls_INetTest, ThisMachineEchoesWhereItMay) {
  struct {
    const char* host;
    bool pingSockets, rights, silent;
    int status;
    const char* why;
  } const cases[] = {
      {"127.0.0.1", true, false, false, 1, "ping socket"},
      {"localhost", true, false, false, 1, "by name"},
      {"127.0.0.1", false, true, false, 1, "raw socket"},
      {"127.0.0.1", false, false, false, 3, "no right to either"},
      {"127.0.0.1", true, false, true, 10, "a host that keeps silent"},
  };
  for (const auto& c : cases) {
    const int status = StatusInOwnNetwork(c.host, c.pingSockets, c.rights, c.silent);
    if (status == Kit::kNoNamespace) GTEST_SKIP() << "this machine gives a process no network of its own";
    EXPECT_EQ(status, c.status) << c.why;
  }
}

TEST_F(cls_INetTest, HereItEchoesOrSaysThatItMayNot) {
  cls_INet net(world_);
  const EchoHostResult result = net.EchoHost("127.0.0.1");
  EXPECT_TRUE(result.Status == 0 || result.Status == 11003) << result.Status;
  EXPECT_EQ(result.Status == 0, result.RoundTripMs > 0);
  EXPECT_EQ(result.Address, "127.0.0.1");
}

TEST_F(cls_INetTest, AProcessThatMayHaveNoSocketsGetsTheError) {
  const int status = Kit::InChild([] {
    if (!Kit::RefuseSystemCall(SYS_socket, EACCES)) return 200;
    Kit::FakeWorld world;
    cls_INet net(world);
    if (net.SocketsInitialize() || world.messages != Lines{kNotResponding}) return 1;
    if (net.SocketsShutdown()) return 2;
    return world.messages.back() == "Windows Sockets error 10093 occurred in Cleanup." ? 0 : 3;
  });
  if (status == 200) GTEST_SKIP() << "this kernel takes no system call filter";
  EXPECT_EQ(status, 0);
}

TEST_F(cls_INetTest, AProcessWithoutDescriptorsHasNoSockets) {
  const int status = Kit::InChild([] {
    Kit::FakeWorld world;
    cls_INet net(world);
    if (!net.SocketsInitialize() || !net.SocketsShutdown() || net.SocketsShutdown()) return 1;
    world.messages.clear();  // of the end without a start
    const rlimit none{0, 0};
    if (setrlimit(RLIMIT_NOFILE, &none) != 0) return 2;
    if (net.SocketsInitialize()) return 3;
    return world.messages == Lines{"This application requires a minimum of 1 supported sockets."} ? 0 : 4;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(cls_INetTest, ASilentNameServerBlocksForOneSecondAtMost) {
  const auto start = std::chrono::steady_clock::now();
  const int status = Kit::InChild([] {
    const Kit::NameServer server;
    if (!server.IsReady()) return 1;
    _res.dnsrch[0] = nullptr;  // no search domains
    cls_INet net(SystemWorld());
    const EchoHostResult result = net.EchoHost("silent.example");
    if (result.Status != 11001) return 2;
    return server.CountQuestions() == 1 ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

}  // namespace
}  // namespace TesselServer
