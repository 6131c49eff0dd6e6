#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <resolv.h>
#include <signal.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/settings/CRegSettings.h"
#include "platform/world/World.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/LoopTools.h"
#include "tests/kit/NameServer.h"
#include "tests/kit/NetworkNamespace.h"
#include "tests/kit/Programs.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

std::uint32_t Address(const char* dotted) { return inet_addr(dotted); }

TEST(SystemWorldTest, IsOneAndTheSame) { EXPECT_EQ(&SystemWorld(), &SystemWorld()); }

TEST(SystemWorldTest, ClocksRun) {
  const std::int64_t before = SystemWorld().MonotonicMilliseconds();
  Kit::PassTime(std::chrono::milliseconds(20));
  const std::int64_t passed = SystemWorld().MonotonicMilliseconds() - before;
  EXPECT_GE(passed, 19);
  EXPECT_LT(passed, 10'000);
  EXPECT_NEAR(static_cast<double>(SystemWorld().UtcSeconds()), static_cast<double>(time(nullptr)), 1);
}

TEST(SystemWorldTest, BiasIsTheOneOfTheProcessesZone) {
  for (const std::int64_t moment : {0LL, 1'000'000'000LL, 1'784'000'000LL, 1'794'766'805LL, 4'102'444'800LL}) {
    const time_t seconds = moment;
    const tm local = *localtime(&seconds);
    tm asUtc = local;
    const std::int64_t offset = timegm(&asUtc) - seconds;
    EXPECT_EQ(SystemWorld().BiasMinutes(moment), -offset / 60) << moment;
  }
  EXPECT_EQ(SystemWorld().BiasMinutes(std::numeric_limits<std::int64_t>::max()), 0) << "no such year";
}

// A file as tzfile(5) describes it, of a zone so many minutes east of Greenwich the whole year round.
std::string ZoneFile(std::int32_t minutesEast) {
  std::string file = "TZif" + std::string(16, '\0');
  for (const char count : {'\0', '\0', '\0', '\0', '\1', '\4'})
    file += std::string(3, '\0') + count;  // one kind of time, four letters
  const std::int32_t seconds = minutesEast * 60;
  for (const int shift : {24, 16, 8, 0}) file += static_cast<char>(seconds >> shift & 0xFF);
  return file + std::string(2, '\0') + std::string("OWN\0", 4);
}

TEST(SystemWorldTest, AnotherZoneOfTheMachineIsSeenWithinASecond) {
  const Kit::TemporaryTree tree;
  const std::string file = tree.Write("localtime", ZoneFile(60));
  const int status = Kit::InChild([&] {
    unsetenv("TZ");
    if (!Kit::EnterOwn(CLONE_NEWNS) || !Kit::KeepMountsToOneself() || !Kit::PutInPlaceOf("/etc/localtime", file)) {
      return Kit::kNoNamespace;
    }
    const auto bias = [](std::int32_t minutes) { return SystemWorld().BiasMinutes(1'794'766'805) == minutes; };
    if (!Kit::Eventually([&] { return bias(-60); })) return 1;
    if (!Kit::PutInPlaceOf("/etc/localtime", tree.Write("other", ZoneFile(-210)))) return 2;
    return Kit::Eventually([&] { return bias(210); }) ? 0 : 3;
  });
  if (status == Kit::kNoNamespace) GTEST_SKIP() << "this machine gives no mounts of its own";
  EXPECT_EQ(status, 0);
}

TEST(SystemWorldTest, AnotherZoneOfTheHostIsSeenWithinASecond) {
  const int status = Kit::InChild([] {
    for (const auto& [zone, minutes] : {std::pair("EST5", 300), std::pair("IST-5:30", -330)}) {
      setenv("TZ", zone, 1);
      const std::int32_t wanted = minutes;
      if (!Kit::Eventually([&] { return SystemWorld().BiasMinutes(1'794'766'805) == wanted; })) return 1;
    }
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(SystemWorldTest, TellsTheHostsOwnName) {
  std::array<char, 256> name{};
  ASSERT_EQ(gethostname(name.data(), name.size() - 1), 0);
  EXPECT_EQ(SystemWorld().LocalHostName(), name.data());
}

TEST(SystemWorldTest, TheLocalAddressIsAnIPv4Text) {
  const std::string address = SystemWorld().LocalAddress();
  in_addr parsed{};
  ASSERT_EQ(inet_pton(AF_INET, address.c_str(), &parsed), 1) << address;
  EXPECT_TRUE(address == "127.0.0.1" || address.substr(0, 4) != "127.") << address;
}

TEST(SystemWorldTest, TheApplicationFolderHoldsThisProgram) {
  const auto program = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(SystemWorld().ApplicationFolder(), program.parent_path());
}

TEST(SystemWorldTest, TheRegistryHoldsTheUsualTypes) {
  EXPECT_EQ(CRegSettings(SystemWorld().Registry()).GetValue("HKEY_CLASSES_ROOT", ".png", "Content Type", ""),
            "image/png");
}

TEST(SystemWorldTest, TellsTheSoftLimitOfDescriptors) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(SystemWorld().DescriptorLimit(), static_cast<std::int64_t>(limit.rlim_cur));
}

TEST(SystemWorldTest, AddressesInDigitsNeedNoNameService) {
  EXPECT_EQ(SystemWorld().AddressOf("192.0.2.7"), Address("192.0.2.7"));
  EXPECT_EQ(SystemWorld().AddressOf("0.0.0.0"), Address("0.0.0.0"));
  using namespace std::string_literals;
  for (const std::string& name : {""s, "."s, "1.2.3.999"s, "1.2.3.4.5"s, "192.0.2.7\0"s, std::string(256, 'a')}) {
    EXPECT_FALSE(SystemWorld().AddressOf(name)) << name;
  }
}

TEST(SystemWorldTest, FindsTheLocalHostByName) {
  EXPECT_EQ(SystemWorld().AddressOf("localhost"), Address("127.0.0.1"));
}

TEST(SystemWorldTest, FindsTheNameOfAnAddress) {
  const int status = Kit::InChild([] {
    const Kit::NameServer server;
    if (!server.IsReady()) return 1;
    std::thread answering([&server] { server.AnswerWithName("client-7"); });
    const auto name = SystemWorld().HostNameOf(Address("192.0.2.7"));
    answering.join();
    return name == "client-7.example" ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
}

TEST(SystemWorldTest, ANameServerThatKeepsSilentIsGivenUpAndTheResolverIsAsBefore) {
  const auto start = std::chrono::steady_clock::now();
  const int status = Kit::InChild([] {
    const Kit::NameServer server;
    if (!server.IsReady()) return 1;
    if (SystemWorld().HostNameOf(Address("192.0.2.8"))) return 2;
    if (server.CountQuestions() != 1) return 3;
    return _res.retrans == 7 && _res.retry == 3 && _res.nscount == 2 ? 0 : 4;
  });
  EXPECT_EQ(status, 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

// What the resolver would wait for without end: a child that does it dies of the alarm.
constexpr unsigned kMostSeconds = 8;

TEST(SystemWorldTest, ATruncatedAnswerIsNotAskedForAgainOverTcp) {
  const auto start = std::chrono::steady_clock::now();
  const int status = Kit::InChild([] {
    alarm(kMostSeconds);
    const Kit::NameServer server;
    if (!server.IsReady()) return 1;
    for (const bool byName : {false, true}) {
      std::thread answering([&server] { server.AnswerTruncated(); });
      const bool found = byName ? SystemWorld().AddressOf("long.example").has_value()
                                : SystemWorld().HostNameOf(Address("192.0.2.8")).has_value();
      answering.join();
      if (found) return 2;
      if (server.WasAskedOverTcp()) return 3;
    }
    return 0;
  });
  EXPECT_EQ(status, 0) << "1014 is the end by the alarm";
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4)) << "two look-ups of a second each";
}

TEST(SystemWorldTest, AResolverThatIsToUseTcpUsesUdpForUs) {
  const int status = Kit::InChild([] {
    alarm(kMostSeconds);
    const Kit::NameServer server;
    if (!server.IsReady()) return 1;
    _res.options |= RES_USEVC;
    const auto options = _res.options;
    std::thread answering([&server] { server.AnswerWithName("client-7"); });
    const auto name = SystemWorld().HostNameOf(Address("192.0.2.7"));
    answering.join();
    if (name != "client-7.example") return 2;
    if (server.WasAskedOverTcp()) return 3;
    return _res.options == options ? 0 : 4;
  });
  EXPECT_EQ(status, 0) << "1014 is the end by the alarm";
}

// The resolver reads a resolv.conf that has changed when it is next used.
TEST(SystemWorldTest, ANewConfigurationOfTheResolverDoesNotMakeItMorePatient) {
  const Kit::TemporaryTree tree;
  const std::string file = tree.Write("resolv.conf", "nameserver 127.0.0.1\n");
  const int status = Kit::InChild([&] {
    alarm(kMostSeconds);
    if (!Kit::EnterOwn(CLONE_NEWNET | CLONE_NEWNS) || !Kit::RaiseLoopback() || !Kit::KeepMountsToOneself() ||
        !Kit::PutInPlaceOf("/etc/resolv.conf", file)) {
      return Kit::kNoNamespace;
    }
    const Kit::NameServer server(Kit::NameServer::kDomainPort);
    if (!server.IsReady()) return 1;
    if (SystemWorld().HostNameOf(Address("192.0.2.8")) || server.CountQuestions() != 1) return 2;
    tree.Write("resolv.conf", "nameserver 127.0.0.1\noptions use-vc timeout:20 attempts:5\n");
    if (SystemWorld().HostNameOf(Address("192.0.2.8"))) return 3;
    if (server.CountQuestions() != 1 || server.WasAskedOverTcp()) return 4;
    return _res.retrans == 20 && _res.retry == 5 && (_res.options & RES_USEVC) != 0 ? 0 : 5;
  });
  if (status == Kit::kNoNamespace) GTEST_SKIP() << "this machine gives no network of its own";
  EXPECT_EQ(status, 0) << "1014 is the end by the alarm";
}

TEST(SystemWorldTest, AnUnansweredNameIsAskedForOnce) {
  for (const char* name : {"silent", "silent.example"}) {
    const auto start = std::chrono::steady_clock::now();
    const int status = Kit::InChild([name] {
      const Kit::NameServer server;
      if (!server.IsReady()) return 1;
      char domains[2][16] = {"one.example", "two.example"};
      _res.dnsrch[0] = domains[0];
      _res.dnsrch[1] = domains[1];
      _res.dnsrch[2] = nullptr;
      const auto options = _res.options;
      if (SystemWorld().AddressOf(name)) return 2;
      if (server.CountQuestions() != 1) return 3;
      return _res.options == options ? 0 : 4;
    });
    EXPECT_EQ(status, 0) << name;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900)) << name;
  }
}

TEST(SystemWorldTest, ANameIsLookedForAsItIsAndInTheSearchDomains) {
  struct {
    const char* name;
    std::vector<std::string> asked;
    const char* why;
  } const cases[] = {
      {"far", {"far.one.example", "far"}, "without a dot: a machine of ours is meant"},
      {"far.example", {"far.example", "far.example", "far.example.one.example"}, "with a dot: it is meant as it is"},
      {"near", {"near.one.example"}, "found in our domain"},
      {"near.one.example", {"near.one.example"}, "found as it is"},
      {"near.one", {"near.one", "near.one", "near.one.one.example"}, "found nowhere"},
  };
  for (const auto& c : cases) {
    const int status = Kit::InChild([&c] {
      const Kit::NameServer server;
      if (!server.IsReady()) return 1;
      char domain[] = "one.example";
      _res.dnsrch[0] = domain;
      _res.dnsrch[1] = nullptr;
      std::vector<std::string> asked;
      std::thread answering([&] {
        for (std::size_t i = 0; i < c.asked.size(); ++i) asked.push_back(server.AnswerWhetherItIs("near.one.example"));
      });
      const auto address = SystemWorld().AddressOf(c.name);
      answering.join();
      if (asked != c.asked || server.CountQuestions() != 0) return 2;
      return address.has_value() == (c.asked.back() == "near.one.example") ? 0 : 3;
    });
    EXPECT_EQ(status, 0) << c.name << ": " << c.why;
  }
}

TEST(SystemWorldTest, DigitsAndDotsAreNeverAskedAbout) {
  const int status = Kit::InChild([] {
    const Kit::NameServer server;
    if (!server.IsReady()) return 1;
    if (SystemWorld().AddressOf("1.2.3.999")) return 2;
    return server.CountQuestions() == 0 ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
}

TEST(SystemWorldTest, LookUpsLeaveNoDescriptorOpen) {
  const std::size_t before = Kit::CountDescriptors();
  for (int i = 0; i < 100; ++i) {
    SystemWorld().LocalAddress();
    SystemWorld().AddressOf("localhost");
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST(SystemWorldTest, AMessageIsOneLineOnStandardError) {
  testing::internal::CaptureStderr();
  SystemWorld().MessageBox("first\r\nsecond\x1B[31m \xC3\xA9");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "first  second [31m \xC3\xA9\n");
}

TEST(SystemWorldTest, AMessageWithoutAReaderDoesNoHarm) {
  const int status = Kit::InChild([] {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0 || dup2(ends[1], STDERR_FILENO) < 0) return 1;
    close(ends[0]);
    SystemWorld().MessageBox("to nobody");
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 0 ? 0 : 2;
  });
  EXPECT_EQ(status, 0) << "1013 is the end by SIGPIPE";
}

}  // namespace
}  // namespace TesselServer
