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
#include <vector>

#include "platform/settings/CRegSettings.h"
#include "platform/world/World.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/NameServer.h"

namespace TesselServer {
namespace {

std::uint32_t Address(const char* dotted) { return inet_addr(dotted); }

TEST(SystemWorldTest, IsOneAndTheSame) { EXPECT_EQ(&SystemWorld(), &SystemWorld()); }

TEST(SystemWorldTest, ClocksRun) {
  const std::int64_t before = SystemWorld().MonotonicMilliseconds();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
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

TEST(SystemWorldTest, ANameThatNobodyAnswersForIsAskedForOnce) {
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

TEST(SystemWorldTest, LookUpsLeaveNoDescriptorBehind) {
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

TEST(SystemWorldTest, AMessageThatNobodyReadsHarmsNobody) {
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
