#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/network/Echo.h"
#include "platform/network/EchoPacket.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/NetworkNamespace.h"
#include "tests/kit/SystemCallFilter.h"

namespace TesselServer {
namespace {

constexpr std::string_view kPayload = "Echo This.";
constexpr std::int32_t kPatience = 200;
using Clock = std::chrono::steady_clock;

EchoReply Ask(const char* address) { return SendEcho(inet_addr(address), kPayload, kPatience); }

bool IsAnswered(const EchoReply& reply) {
  return reply.outcome == EchoOutcome::kAnswered && reply.milliseconds > 0 && reply.milliseconds < kPatience;
}

// Runs the function given in a child with a fresh network; the test is skipped where there is none to be had.
#define IN_OWN_NETWORK(loopbackUp, ...)                                                                    \
  do {                                                                                                     \
    const int status = Kit::InChild([&] {                                                                  \
      if (!Kit::EnterOwnNetwork(loopbackUp)) return Kit::kNoNamespace;                                     \
      return (__VA_ARGS__)();                                                                              \
    });                                                                                                    \
    if (status == Kit::kNoNamespace) GTEST_SKIP() << "this machine gives a process no network of its own"; \
    EXPECT_EQ(status, 0);                                                                                  \
  } while (false)

TEST(EchoTest, AHostAnswersThroughAPingSocket) {
  IN_OWN_NETWORK(true, [] {
    if (!Kit::AllowPingSockets() || !Kit::DropRights()) return 1;
    if (!IsAnswered(Ask("127.0.0.1"))) return 2;
    return IsAnswered(Ask("127.1.2.3")) ? 0 : 3;
  });
}

TEST(EchoTest, AHostAnswersThroughARawSocketWhereThereIsNoPingSocket) {
  IN_OWN_NETWORK(true, [] {
    if (!IsAnswered(Ask("127.0.0.1"))) return 2;
    return IsAnswered(Ask("127.1.2.3")) ? 0 : 3;
  });
}

TEST(EchoTest, WithoutARightToEitherSocketNothingIsSent) {
  IN_OWN_NETWORK(true, [] {
    if (!Kit::DropRights()) return 1;
    const EchoReply reply = Ask("127.0.0.1");
    return reply.outcome == EchoOutcome::kNotSent && reply.milliseconds == 0 ? 0 : 2;
  });
}

TEST(EchoTest, WhereNoRoadLeadsNothingIsSent) {
  IN_OWN_NETWORK(false, [] { return Ask("127.0.0.1").outcome == EchoOutcome::kNotSent ? 0 : 1; });
  IN_OWN_NETWORK(true, [] { return Ask("192.0.2.1").outcome == EchoOutcome::kNotSent ? 0 : 1; });
}

// 0 when the echo of a host that keeps silent was given up in its time.
int TimesOut() {
  const auto start = Clock::now();
  const EchoReply reply = Ask("127.0.0.1");
  const auto passed = Clock::now() - start;
  if (reply.outcome != EchoOutcome::kTimedOut || reply.milliseconds != 0) return 10;
  if (passed < std::chrono::milliseconds(kPatience)) return 11;
  return passed < std::chrono::seconds(2) ? 0 : 12;
}

TEST(EchoTest, AHostThatKeepsSilentIsGivenUp) {
  for (const bool ping : {true, false}) {
    IN_OWN_NETWORK(true, [ping] {
      if (!Kit::IgnoreEchoes() || (ping && !Kit::AllowPingSockets())) return 1;
      return TimesOut();
    });
  }
}

TEST(EchoTest, SignalsNeitherEndTheWaitNorMakeItLonger) {
  IN_OWN_NETWORK(true, [] {
    if (!Kit::IgnoreEchoes()) return 1;
    static volatile sig_atomic_t signals = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { signals = signals + 1; };
    if (sigaction(SIGALRM, &action, nullptr) != 0) return 2;
    const itimerval often{{0, 5000}, {0, 5000}};
    if (setitimer(ITIMER_REAL, &often, nullptr) != 0) return 3;
    const int result = TimesOut();
    return result == 0 && signals < 3 ? 4 : result;
  });
}

TEST(EchoTest, ASignalLateInTheWaitDoesNotMakeItLonger) {
  IN_OWN_NETWORK(true, [] {
    if (!Kit::IgnoreEchoes()) return 1;
    struct sigaction action {};
    action.sa_handler = [](int) {};
    if (sigaction(SIGALRM, &action, nullptr) != 0) return 2;
    const itimerval late{{0, 0}, {0, 500'000}};
    if (setitimer(ITIMER_REAL, &late, nullptr) != 0) return 3;
    const auto start = Clock::now();
    if (SendEcho(htonl(INADDR_LOOPBACK), kPayload, 600).outcome != EchoOutcome::kTimedOut) return 4;
    return Clock::now() - start < std::chrono::milliseconds(950) ? 0 : 5;  // 1100 if it began anew
  });
}

// The eight bytes of header and the payload of the next request that `listener`, a raw socket, hears.
std::string NextRequest(int listener) {
  std::array<char, 2048> packet;
  for (int left = 10; left > 0; --left) {
    const ssize_t count = recv(listener, packet.data(), packet.size(), MSG_DONTWAIT);
    if (count < 0) return {};
    const std::string_view message =
        WithoutInternetHeader(std::string_view(packet.data(), static_cast<std::size_t>(count)));
    if (message.starts_with('\x08')) return std::string(message);
  }
  return {};
}

TEST(EchoTest, EachRequestHasTheProcesssNumberAndOneOfItsOwn) {
  IN_OWN_NETWORK(true, [] {
    const UniqueDescriptor listener(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
    if (!IsAnswered(Ask("127.0.0.1"))) return 1;
    const std::string first = NextRequest(listener.Get());
    if (!IsAnswered(Ask("127.0.0.1"))) return 2;
    const std::string second = NextRequest(listener.Get());
    if (first.size() != 18 || second.size() != 18 || first.substr(8) != kPayload) return 3;
    const auto word = [](const std::string& text, std::size_t place) {
      return static_cast<unsigned char>(text[place]) * 256 + static_cast<unsigned char>(text[place + 1]);
    };
    if (word(first, 4) != (getpid() & 0xFFFF) || word(second, 4) != word(first, 4)) return 4;
    return word(second, 6) == word(first, 6) + 1 ? 0 : 5;
  });
}

// Sends answers to other echoes to 127.0.0.1, one after the other, until told to stop.
class Babble {
 public:
  Babble() : socket_(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP)), thread_([this] { Talk(); }) {}
  ~Babble() {
    stop_ = true;
    thread_.join();
  }
  bool IsTalking() const { return sent_ > 0; }

 private:
  void Talk() {
    sockaddr_in host{};
    host.sin_family = AF_INET;
    host.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string reply = EchoRequest({0xFFFF, 0xFFFF, kPayload});
    reply[0] = 0;
    while (!stop_) {
      if (sendto(socket_.Get(), reply.data(), reply.size(), 0, reinterpret_cast<const sockaddr*>(&host), sizeof host) >
          0) {
        ++sent_;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  }

  UniqueDescriptor socket_;
  std::atomic<bool> stop_ = false;
  std::atomic<int> sent_ = 0;
  std::thread thread_;
};

TEST(EchoTest, AnswersToOthersAreSkippedAndDoNotMakeTheWaitLonger) {
  IN_OWN_NETWORK(true, [] {
    const Babble babble;
    if (!IsAnswered(Ask("127.0.0.1"))) return 2;
    if (!Kit::IgnoreEchoes()) return 3;
    const int result = TimesOut();
    return babble.IsTalking() ? result : 4;
  });
}

TEST(EchoTest, TwoEchoesAtOnceKeepTheirAnswers) {
  IN_OWN_NETWORK(true, [] {
    std::atomic<int> answered = 0;
    std::vector<std::thread> asking;
    for (int i = 0; i < 4; ++i) {
      asking.emplace_back([&answered] {
        for (int each = 0; each < 25; ++each) answered += IsAnswered(Ask("127.0.0.1")) ? 1 : 0;
      });
    }
    for (std::thread& each : asking) each.join();
    return answered == 100 ? 0 : 2;
  });
}

TEST(EchoTest, AKernelThatRefusesToSendIsAnError) {
  IN_OWN_NETWORK(true, [] {
    if (!Kit::RefuseSystemCall(SYS_sendto, ENOBUFS)) return Kit::kNoNamespace;
    return Ask("127.0.0.1").outcome == EchoOutcome::kNotSent ? 0 : 1;
  });
}

TEST(EchoTest, NothingStaysOpen) {
  const std::size_t before = Kit::CountDescriptors();
  for (int i = 0; i < 20; ++i) SendEcho(htonl(INADDR_LOOPBACK), kPayload, 20);
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

}  // namespace
}  // namespace TesselServer
