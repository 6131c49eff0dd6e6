#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "net/cls_WinSock.h"
#include "platform/loop/EventLoop.h"
#include "platform/world/SystemErrors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"

namespace TesselServer {
namespace {

// An address by its four numbers, as the system holds it.
std::int32_t Address(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  return static_cast<std::int32_t>(htonl(a << 24 | b << 16 | c << 8 | d));
}

class cls_WinSockTest : public testing::Test {
 protected:
  void Name(std::int32_t address, std::string name) { world_.hostNames[static_cast<std::uint32_t>(address)] = name; }

  Kit::FakeWorld world_;
  cls_WinSock sockets_{world_};
};

TEST_F(cls_WinSockTest, ItIsStartedUntilItIsCleanedUp) {
  std::string description;
  EXPECT_FALSE(sockets_.Started());
  EXPECT_TRUE(sockets_.SocketsStartup(description));
  EXPECT_EQ(description, "Linux sockets, IPv4");
  EXPECT_TRUE(sockets_.Started());
  description = "mine";
  EXPECT_TRUE(sockets_.SocketsStartup(description)) << "a second start";
  EXPECT_EQ(description, "mine") << "changes nothing";
  sockets_.SocketsCleanup();
  EXPECT_FALSE(sockets_.Started());
  sockets_.SocketsCleanup();
  EXPECT_TRUE(sockets_.SocketsStartup(description));
  EXPECT_EQ(description, "Linux sockets, IPv4");
}

TEST_F(cls_WinSockTest, DottedTextsAreReadInAllTheirForms) {
  struct {
    std::string_view text;
    std::int32_t address;
    const char* why;
  } const cases[] = {
      {"127.0.0.1", Address(127, 0, 0, 1), "four numbers"},
      {"192.0.2.7", Address(192, 0, 2, 7), "four numbers"},
      {"0.0.0.0", 0, "nothing at all"},
      {"255.255.255.254", Address(255, 255, 255, 254), "the largest"},
      {"127.1", Address(127, 0, 0, 1), "two numbers"},
      {"10.1.2", Address(10, 1, 0, 2), "three numbers"},
      {"10.1.515", Address(10, 1, 2, 3), "the last one fills two bytes"},
      {"10.66051", Address(10, 1, 2, 3), "the last one fills three bytes"},
      {"16909060", Address(1, 2, 3, 4), "one number"},
      {"0x7f.0.0.0x1", Address(127, 0, 0, 1), "hexadecimal"},
      {"0X7F000001", Address(127, 0, 0, 1), "hexadecimal as one"},
      {"0177.0.0.01", Address(127, 0, 0, 1), "octal"},
      {"0", 0, "one zero"},
      {"1.2.3.4 ", Address(1, 2, 3, 4), "a blank behind it"},
      {"1.2.3.4\r\n", Address(1, 2, 3, 4), "a line end behind it"},
      {"255.255.255.255", -1, "the number that says that there is none"},
      {"4294967295", -1, "the same as one number"},
  };
  for (const auto& c : cases) EXPECT_EQ(sockets_.AddressFromText(c.text), c.address) << c.text << ": " << c.why;
}

TEST_F(cls_WinSockTest, TheSystemReadsTheSameAddresses) {
  const char* const texts[] = {"1.2.3.4",    "127.1",        "1.2.65535", "1.2.65536", "1.16777215",     "1.16777216",
                               "4294967294", "4294967296",   "256.1.1.1", "1.1.1.256", "1.256.1",        "010.8.8.8",
                               "08.1.1.1",   "0x10.1.1.1",   "0xg.1.1.1", "0x",        "0x.1.1.1",       "1..2.3",
                               "1.2.3.",     ".1.2.3",       "1.2.3.4.5", "1.2.3.4x",  "-1.2.3.4",       "+1.2.3.4",
                               " 1.2.3.4",   "1.2.3.0x4",    "1.2.3.04",  "1.2.3.09",  "00000001.2.3.4", "0x00000001",
                               "1.2.3.4\t",  "037777777776", "1e3",       "1,2,3,4"};
  for (const char* text : texts) {
    EXPECT_EQ(sockets_.AddressFromText(text), static_cast<std::int32_t>(inet_addr(text))) << text;
  }
}

TEST_F(cls_WinSockTest, NothingButWhiteSpaceMayFollowAnAddress) {
  for (const std::string_view text : {"1.2.3.4 x", "1 .2.3.4", "1.2.3.4\n5", "1.2.3.4 <b>"}) {
    EXPECT_EQ(sockets_.AddressFromText(text), -1) << text;
  }
  EXPECT_EQ(sockets_.AddressFromText("1.2.3.4 \t\n\v\f\r"), Address(1, 2, 3, 4));
}

TEST_F(cls_WinSockTest, OtherTextsAreLookedUpAsHostNames) {
  world_.addresses["printer.example.org"] = static_cast<std::uint32_t>(Address(192, 0, 2, 7));
  world_.addresses["broadcast"] = 0xFFFFFFFF;
  EXPECT_EQ(sockets_.AddressFromText("printer.example.org"), Address(192, 0, 2, 7));
  EXPECT_EQ(sockets_.AddressFromText("unknown.example.org"), -1);
  EXPECT_EQ(sockets_.AddressFromText("broadcast"), -1);
  EXPECT_EQ(sockets_.AddressFromText(""), -1);
}

// A world that remembers what it was asked.
class AskedWorld : public Kit::FakeWorld {
 public:
  std::optional<std::uint32_t> AddressOf(std::string_view name) const override {
    names.emplace_back(name);
    return 1;
  }
  std::optional<std::string> HostNameOf(std::uint32_t address) const override {
    numbers.push_back(address);
    return "name";
  }
  mutable std::vector<std::string> names;
  mutable std::vector<std::uint32_t> numbers;
};

TEST_F(cls_WinSockTest, OnlyWhatCanBeAHostNameIsLookedUp) {
  const AskedWorld world;
  const cls_WinSock sockets(world);
  const std::string hostile[] = {"",    " ",        "a b", "a\r\nb", std::string("a\0b", 3), "a/b",
                                 "a%b", "\xC3\xA4", "a;b", "[::1]",  std::string(256, 'a'),  std::string(65536, '1')};
  for (const std::string& name : hostile) {
    EXPECT_EQ(sockets.AddressFromText(name), -1) << name.substr(0, 20);
  }
  EXPECT_TRUE(world.names.empty());
  EXPECT_EQ(sockets.AddressFromText(std::string(255, 'a')), 1);
  EXPECT_EQ(sockets.AddressFromText("127.0.0.1"), Address(127, 0, 0, 1));
  EXPECT_EQ(world.names.size(), 1u) << "an address is not looked up";
}

TEST_F(cls_WinSockTest, AnAddressHasTheNameThatTheNameServiceKnows) {
  Name(Address(192, 0, 2, 7), "printer-1.Example_net.org");
  EXPECT_EQ(sockets_.HostNameFromLong(Address(192, 0, 2, 7)), "printer-1.Example_net.org");
  EXPECT_EQ(sockets_.HostNameFromAddress("192.0.2.7"), "printer-1.Example_net.org");
  world_.addresses["alias"] = static_cast<std::uint32_t>(Address(192, 0, 2, 7));
  EXPECT_EQ(sockets_.HostNameFromAddress("alias"), "printer-1.Example_net.org");
}

TEST_F(cls_WinSockTest, WhatHasNoNameIsUnknown) {
  EXPECT_EQ(sockets_.HostNameFromAddress("192.0.2.8"), "Unknown");
  EXPECT_EQ(sockets_.HostNameFromLong(Address(192, 0, 2, 8)), "Unknown");
  EXPECT_EQ(sockets_.HostNameFromAddress("no.such.host"), "Unknown");
  EXPECT_EQ(sockets_.HostNameFromAddress(""), "Unknown");
}

TEST_F(cls_WinSockTest, ATextWithoutAnAddressIsNotLookedUpByNumber) {
  AskedWorld world;
  const cls_WinSock sockets(world);
  EXPECT_EQ(sockets.HostNameFromAddress("255.255.255.255"), "Unknown");
  EXPECT_EQ(sockets.HostNameFromAddress("a b"), "Unknown");
  EXPECT_TRUE(world.numbers.empty());
  EXPECT_EQ(sockets.HostNameFromLong(-1), "name") << "the number itself may be asked for";
}

TEST_F(cls_WinSockTest, ANameWithAnyOtherByteIsUnknown) {
  const std::int32_t address = Address(192, 0, 2, 7);
  const std::string_view allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
  for (int i = 1; i < 256; ++i) {
    const std::string name = std::string("host") + static_cast<char>(i) + "x";
    Name(address, name);
    const bool isAllowed = allowed.find(static_cast<char>(i)) != std::string_view::npos;
    EXPECT_EQ(sockets_.HostNameFromLong(address), isAllowed ? name : "Unknown") << i;
  }
  Name(address, "<script>alert(1)</script>");
  EXPECT_EQ(sockets_.HostNameFromLong(address), "Unknown");
}

TEST_F(cls_WinSockTest, ANameIsCutAtItsLimitAndItsFirstNul) {
  const std::int32_t address = Address(192, 0, 2, 7);
  Name(address, std::string(256, 'a'));
  EXPECT_EQ(sockets_.HostNameFromLong(address), std::string(256, 'a'));
  Name(address, std::string(256, 'a') + "<b>");
  EXPECT_EQ(sockets_.HostNameFromLong(address), std::string(256, 'a'));
  Name(address, std::string("host\0<b>", 8));
  EXPECT_EQ(sockets_.HostNameFromLong(address), "host");
  Name(address, std::string("\0host", 5));
  EXPECT_EQ(sockets_.HostNameFromLong(address), "Unknown");
  Name(address, "");
  EXPECT_EQ(sockets_.HostNameFromLong(address), "Unknown");
}

TEST_F(cls_WinSockTest, AnAddressIsWrittenDotted) {
  EXPECT_EQ(cls_WinSock::AddressText(Address(192, 0, 2, 7)), "192.0.2.7");
  EXPECT_EQ(cls_WinSock::AddressText(0), "0.0.0.0");
  EXPECT_EQ(cls_WinSock::AddressText(-1), "255.255.255.255");
  EXPECT_EQ(cls_WinSock::AddressText(sockets_.AddressFromText("10.66051")), "10.1.2.3");
}

TEST_F(cls_WinSockTest, DottedTextsNeedNoNameServer) {
  const AskedWorld world;
  const cls_WinSock sockets(world);
  EXPECT_EQ(cls_WinSock::AddressFromDottedText("127.1"), Address(127, 0, 0, 1));
  for (const std::string_view text : {"localhost", "", "255.255.255.255", "1.2.3.256"}) {
    EXPECT_EQ(sockets.AddressFromDottedText(text), -1) << text;
  }
  EXPECT_TRUE(world.names.empty());
}

TEST_F(cls_WinSockTest, AnAddressInTheMachinesOrderIsWrittenDotted) {
  struct {
    std::int64_t number;
    std::string_view text;
    const char* why;
  } const cases[] = {
      {2130706433, "127.0.0.1", "positive"},
      {0, "0.0.0.0", "nothing"},
      {1, "0.0.0.1", "the last number is the lowest byte"},
      {3221225991, "192.0.2.7", "without a sign"},
      {-1073741305, "192.0.2.7", "the same with a sign"},
      {-1, "255.255.255.255", "all bits, with a sign"},
      {4294967295, "255.255.255.255", "and without"},
      {-2147483648, "128.0.0.0", "the least"},
      {4294967296, "0.0.0.0", "too large"},
      {-2147483649, "0.0.0.0", "too small"},
      {std::numeric_limits<std::int64_t>::max(), "0.0.0.0", "much too large"},
      {std::numeric_limits<std::int64_t>::min(), "0.0.0.0", "much too small"},
  };
  for (const auto& c : cases) EXPECT_EQ(cls_WinSock::HostOrderAddressText(c.number), c.text) << c.why;
}

TEST_F(cls_WinSockTest, ThisMachineHasANameOrIsUnknown) {
  world_.localHostName = "testhost";
  EXPECT_EQ(sockets_.LocalHostName(), "testhost");
  world_.localHostName = "";
  EXPECT_EQ(sockets_.LocalHostName(), "Unknown");
}

TEST_F(cls_WinSockTest, ProtocolsAndServicesHaveNumbers) {
  struct {
    std::string_view name;
    std::int32_t protocol, service;
    const char* why;
  } const cases[] = {
      {"tcp", 6, -1, "a protocol"},
      {"http", -1, 80, "a service"},
      {"0", 0, 0, "digits stand for themselves"},
      {"255", 255, 255, "the largest protocol"},
      {"256", -1, 256, "no protocol any more"},
      {"65535", -1, 65535, "the largest port"},
      {"65536", -1, -1, "no port any more"},
      {"0080", 80, 80, "leading zeros mean nothing"},
      {"4294967376", -1, -1, "does not wrap"},
      {"99999999999999999999", -1, -1, "more than any number"},
      {"", -1, -1, "nothing"},
      {"-1", -1, -1, "a sign"},
      {"+80", -1, -1, "a sign"},
      {" 80", -1, -1, "a blank"},
      {"80x", -1, -1, "a letter"},
      {"0x50", -1, -1, "no decimal number"},
      {"no-such-name", -1, -1, "no name"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(cls_WinSock::ProtocolNumber(c.name), c.protocol) << c.name << ": " << c.why;
    EXPECT_EQ(cls_WinSock::ServicePort(c.name), c.service) << c.name << ": " << c.why;
  }
}

TEST_F(cls_WinSockTest, AServiceIsLookedForOverItsProtocol) {
  EXPECT_EQ(cls_WinSock::ServicePort("domain", "udp"), 53);
  EXPECT_EQ(cls_WinSock::ServicePort("http", ""), 80);
  EXPECT_EQ(cls_WinSock::ServicePort("8080", "udp"), 8080);
  EXPECT_EQ(cls_WinSock::ServicePort("http", "icmp"), -1);
  EXPECT_EQ(cls_WinSock::ServicePort("8080", "icmp"), -1);
}

TEST_F(cls_WinSockTest, TwoWordsMakeOneNumber) {
  EXPECT_EQ(cls_WinSock::LongFromWords(0x5678, 0x1234), 0x12345678);
  EXPECT_EQ(cls_WinSock::LongFromWords(1, 0), 1);
  EXPECT_EQ(cls_WinSock::LongFromWords(0, 1), 65536);
  EXPECT_EQ(cls_WinSock::LongFromWords(0xFFFF, 0xFFFF), -1);
  EXPECT_EQ(cls_WinSock::LongFromWords(0, 0x8000), std::numeric_limits<std::int32_t>::min());
}

// The texts themselves are compared where their table stands.
TEST_F(cls_WinSockTest, SocketErrorsHaveThePlatformsTexts) {
  for (std::int32_t number = 9900; number < 11100; ++number) {
    EXPECT_EQ(cls_WinSock::SocketErrorText(number), SocketErrorText(number)) << number;
  }
  EXPECT_EQ(cls_WinSock::SocketErrorText(10054), "Connection reset by peer.");
  EXPECT_EQ(cls_WinSock::SocketErrorText(10000), "");
  EXPECT_EQ(cls_WinSock::SocketErrorText(10072), "");
}

// ---- Sockets.

class cls_WinSockSocketTest : public cls_WinSockTest {
 protected:
  cls_WinSockSocketTest() {
    SocketHandlers listening;
    listening.Accepted = [this](NotifyingSocket connection) { accepted_.push_back(std::move(connection)); };
    listener_.Handlers(std::move(listening));
    SocketHandlers connecting;
    connecting.Connected = [this] { heard_ += "connected "; };
    connecting.Data = [this](std::string_view bytes) { heard_ += bytes; };
    connecting.Closed = [this] { heard_ += " closed"; };
    connecting.Failed = [this](std::int32_t number, const std::string&) {
      heard_ += "failed " + std::to_string(number);
    };
    client_.Handlers(std::move(connecting));
    world_.addresses["here"] = static_cast<std::uint32_t>(Address(127, 0, 0, 1));
  }

  std::uint16_t Listen() {
    EXPECT_TRUE(sockets_.ListenOnSocket(listener_, 0, "127.0.0.1"));
    return cls_WinSock::OwnAddress(listener_).port;
  }

  EventLoop loop_;
  NotifyingSocket listener_{loop_};
  NotifyingSocket client_{loop_};
  std::vector<NotifyingSocket> accepted_;
  std::string heard_;
};

TEST_F(cls_WinSockSocketTest, AConnectionIsMadeByNameAndTalks) {
  EXPECT_TRUE(sockets_.ConnectSocket(client_, "here", Listen()));
  EXPECT_EQ(heard_, "") << "never inside the call";
  ASSERT_TRUE(Kit::RunUntil(loop_, [this] { return !accepted_.empty() && !heard_.empty(); }));
  EXPECT_TRUE(cls_WinSock::SendBytes(accepted_.front(), "hello"));
  ASSERT_TRUE(Kit::RunUntil(loop_, [this] { return heard_ == "connected hello"; }));
  EXPECT_EQ(cls_WinSock::PeerAddress(client_), cls_WinSock::OwnAddress(listener_));
  EXPECT_EQ(cls_WinSock::OwnAddress(client_), cls_WinSock::PeerAddress(accepted_.front()));
  accepted_.clear();
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return heard_ == "connected hello closed"; }));
}

TEST_F(cls_WinSockSocketTest, ARefusedConnectionIsAnEvent) {
  const std::uint16_t port = Listen();
  listener_.Close();
  EXPECT_TRUE(sockets_.ConnectSocket(client_, "127.0.0.1", port));
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return heard_ == "failed 10061"; })) << heard_;
}

TEST_F(cls_WinSockSocketTest, WithoutAnAddressOrAPortNothingIsOpened) {
  struct {
    const char* host;
    std::int32_t port;
  } const cases[] = {{"no.such.host", 80}, {"", 80},   {"255.255.255.255", 80}, {"here", 0}, {"here", -1},
                     {"here", 65536},      {"a b", 80}};
  for (const auto& c : cases) {
    EXPECT_TRUE(sockets_.ConnectSocket(client_, "127.0.0.1", Listen()));
    EXPECT_FALSE(sockets_.ConnectSocket(client_, c.host, c.port)) << c.host << " " << c.port;
    EXPECT_EQ(client_.Status(), NotifyingSocket::State::kClosed) << "and what was there is closed";
  }
  Kit::Settle(loop_);
  EXPECT_EQ(heard_, "");
  EXPECT_FALSE(sockets_.ListenOnSocket(client_, -1));
  EXPECT_FALSE(sockets_.ListenOnSocket(client_, 65536));
  EXPECT_FALSE(sockets_.ListenOnSocket(client_, 0, "no.such.host"));
  EXPECT_FALSE(sockets_.ListenOnSocket(client_, Listen(), "127.0.0.1")) << "in use";
  EXPECT_EQ(client_.LastError(), 10048);
}

TEST_F(cls_WinSockSocketTest, AListenerAcceptsOnAllAddressesOrOnOne) {
  EXPECT_TRUE(sockets_.ListenOnSocket(listener_, 0));
  EXPECT_EQ(cls_WinSock::OwnAddress(listener_).address, 0u);
  EXPECT_TRUE(sockets_.ConnectSocket(client_, "127.9.9.9", cls_WinSock::OwnAddress(listener_).port));
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return !accepted_.empty(); }));
  EXPECT_TRUE(sockets_.ListenOnSocket(listener_, 0, "127.9.9.9"));
  EXPECT_EQ(cls_WinSock::SocketAddressText(cls_WinSock::OwnAddress(listener_)).substr(0, 10), "127.9.9.9:");
}

TEST_F(cls_WinSockSocketTest, AnAddressWithAPortIsText) {
  EXPECT_EQ(cls_WinSock::SocketAddressText({static_cast<std::uint32_t>(Address(192, 0, 2, 7)), 80}), "192.0.2.7:80");
  EXPECT_EQ(cls_WinSock::SocketAddressText({0, 65535}), "0.0.0.0:65535");
  EXPECT_EQ(cls_WinSock::SocketAddressText({}), "255.255.255.255:0");
}

TEST_F(cls_WinSockSocketTest, AClosedSocketHasItsFallbacks) {
  EXPECT_EQ(cls_WinSock::SocketAddressText(cls_WinSock::PeerAddress(client_)), "255.255.255.255:0");
  EXPECT_EQ(static_cast<std::int32_t>(cls_WinSock::OwnAddress(client_).address), cls_WinSock::kNoAddress);
  EXPECT_FALSE(cls_WinSock::SendBytes(client_, "x"));
  EXPECT_EQ(cls_WinSock::SocketErrorText(client_.LastError()), "Socket is not connected.");
  EXPECT_EQ(cls_WinSock::GetSocketOption(client_, SocketOption::kKeepAlive), std::nullopt);
  EXPECT_FALSE(cls_WinSock::SetSocketOption(client_, SocketOption::kKeepAlive, 1));
}

TEST_F(cls_WinSockSocketTest, OptionsOfAnOpenSocketAreReadAndSet) {
  Listen();
  EXPECT_EQ(cls_WinSock::GetSocketOption(listener_, SocketOption::kKeepAlive), 0);
  EXPECT_TRUE(cls_WinSock::SetSocketOption(listener_, SocketOption::kKeepAlive, 1));
  EXPECT_EQ(cls_WinSock::GetSocketOption(listener_, SocketOption::kKeepAlive), 1);
}

}  // namespace
}  // namespace TesselServer
