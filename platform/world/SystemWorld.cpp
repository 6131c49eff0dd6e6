#include <arpa/nameser.h>
#include <errno.h>
#include <ifaddrs.h>
#include <limits.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/network/DottedText.h"
#include "platform/settings/RegistryStore.h"
#include "platform/sockets/NoPipeSignal.h"
#include "platform/world/World.h"

namespace TesselServer {
namespace {

constexpr std::size_t kMaxHostName = 255;  // nothing longer is a host name (RFC 1123)

// Makes this thread's resolver ask one server once, in one packet, and wait one second, as long as it lives: a look-up
// holds its thread. What the host has set comes back afterwards.
//
// Each thread has a resolver of its own (_res is the thread's, resolver(3)), made from resolv.conf(5) at its first use,
// so look-ups of several threads do not meet, and what the host has set in its own does not count in the others.
//
// TCP has no limit of time in the resolver, so an answer that does not fit into a packet counts as none.
//
// For a name that may be in one of our search domains the resolver has two questions, and it would ask the second when
// no server answers the first. They are asked separately, so that one without an answer is the last.
class ShortPatience {
 public:
  ShortPatience() {
    BringUpToDate();
    options_ = _res.options;
    retrans_ = _res.retrans;
    retry_ = _res.retry;
    servers_ = _res.nscount;
    _res.options = Brief(options_);
    _res.retrans = 1;
    _res.retry = 1;
    _res.nscount = std::min(servers_, 1);
  }
  ShortPatience(const ShortPatience&) = delete;
  ShortPatience& operator=(const ShortPatience&) = delete;
  ~ShortPatience() {
    _res.options = options_;
    _res.retrans = retrans_;
    _res.retry = retry_;
    _res.nscount = servers_;
  }

  // Asks for names as they are, or in our search domains.
  void AskAsItIs(bool asItIs) {
    constexpr auto kSearching = static_cast<unsigned long>(RES_DEFNAMES | RES_DNSRCH);
    _res.options = Brief(asItIs ? options_ & ~kSearching : options_ | RES_NOTLDQUERY);
  }

  // Whether the system asks for `name` as it is before it looks into our search domains.
  static bool IsAskedAsItIsFirst(std::string_view name) {
    return static_cast<std::size_t>(std::count(name.begin(), name.end(), '.')) >= _res.ndots;
  }

 private:
  // Whenever it is used the resolver looks whether its configuration has changed, and takes all of the new one. It has
  // to do so before it is made brief: here it makes a question that is not sent.
  static void BringUpToDate() {
    if ((_res.options & RES_INIT) == 0) res_init();
    std::array<unsigned char, NS_PACKETSZ> unsent;
    res_mkquery(ns_o_query, ".", ns_c_in, ns_t_a, nullptr, 0, nullptr, unsent.data(), unsent.size());
  }

  static unsigned long Brief(unsigned long options) {
    return (options & ~static_cast<unsigned long>(RES_USEVC)) | RES_IGNTC | RES_NORELOAD;
  }

  unsigned long options_;
  int retrans_;
  int retry_;
  int servers_;
};

timespec Read(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now;
}

bool IsLoopback(std::uint32_t address) { return ntohl(address) >> 24 == IN_LOOPBACKNET; }

std::uint32_t AddressIn(const sockaddr* address) {
  return reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr;
}

class RealWorld final : public World {
 public:
  std::int64_t MonotonicMilliseconds() const override {
    const timespec now = Read(CLOCK_MONOTONIC);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
  }

  std::int64_t MonotonicMicroseconds() const override {
    const timespec now = Read(CLOCK_MONOTONIC);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
  }

  std::int64_t UtcSeconds() const override { return Read(CLOCK_REALTIME).tv_sec; }

  std::int64_t FileClockNanoseconds() const override {
    const timespec now = Read(CLOCK_REALTIME_COARSE);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
  }

  std::int32_t BiasMinutes(std::int64_t utcSeconds) const override {
    FollowTheZone();
    const time_t moment = utcSeconds;
    tm local{};
    if (localtime_r(&moment, &local) == nullptr) return 0;
    return static_cast<std::int32_t>(-local.tm_gmtoff / 60);
  }

  std::string LocalHostName() const override {
    std::array<char, HOST_NAME_MAX + 2> name{};  // the last byte stays zero even for a name that was cut
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
  }

  std::string LocalAddress() const override {
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) first = nullptr;
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> all(first, &freeifaddrs);
    for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
      if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET) continue;
      if (!IsLoopback(AddressIn(each->ifa_addr))) return DottedText(AddressIn(each->ifa_addr));
    }
    return "127.0.0.1";
  }

  std::string ApplicationFolder() const override {
    std::array<char, PATH_MAX> program;
    const ssize_t length = readlink("/proc/self/exe", program.data(), program.size());
    if (length <= 0 || static_cast<std::size_t>(length) == program.size()) return {};
    const std::string_view path(program.data(), static_cast<std::size_t>(length));
    const std::size_t cut = path.rfind('/');
    if (cut == std::string_view::npos) return {};
    return std::string(path.substr(0, std::max<std::size_t>(cut, 1)));
  }

  std::optional<std::string> HostNameOf(std::uint32_t address) const override {
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_addr.s_addr = address;
    std::array<char, NI_MAXHOST> name{};
    const ShortPatience patience;
    if (getnameinfo(reinterpret_cast<const sockaddr*>(&peer), sizeof peer, name.data(), name.size(), nullptr, 0,
                    NI_NAMEREQD) != 0) {
      return std::nullopt;
    }
    return std::string(name.data());
  }

  std::optional<std::uint32_t> AddressOf(std::string_view name) const override {
    if (name.empty() || name.size() > kMaxHostName || name.find('\0') != std::string_view::npos) return std::nullopt;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    // Digits and dots are an address or a typing error; no name service is asked about them.
    if (name.find_first_not_of("0123456789.") == std::string_view::npos) hints.ai_flags = AI_NUMERICHOST;
    ShortPatience patience;
    const bool asItIsFirst = ShortPatience::IsAskedAsItIsFirst(name);
    for (const bool asItIs : {asItIsFirst, !asItIsFirst}) {
      patience.AskAsItIs(asItIs);
      addrinfo* first = nullptr;
      const int error = getaddrinfo(std::string(name).c_str(), nullptr, &hints, &first);
      const std::unique_ptr<addrinfo, void (*)(addrinfo*)> all(error == 0 ? first : nullptr, &freeaddrinfo);
      if (error == 0 && first != nullptr && first->ai_family == AF_INET) return AddressIn(first->ai_addr);
      if (error == EAI_AGAIN) break;  // no server answers
    }
    return std::nullopt;
  }

  RegistryStore& Registry() override { return registry_; }

  std::int64_t DescriptorLimit() const override {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return _POSIX_OPEN_MAX;
    constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
    return static_cast<std::int64_t>(std::min<rlim_t>(limit.rlim_cur, kMost));
  }

  void MessageBox(std::string_view text) override {
    std::string line(text);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
    line += '\n';
    const NoPipeSignal guard;
    std::string_view rest = line;
    while (!rest.empty()) {
      const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return;
      rest.remove_prefix(static_cast<std::size_t>(written));
    }
  }

 private:
  // tzset(3) looks whether TZ, or without it /etc/localtime, is another one than last time. A look costs a system call
  // and lines of a log come by the thousand, so there is one in each second.
  void FollowTheZone() const {
    const std::int64_t second = Read(CLOCK_MONOTONIC).tv_sec;
    if (lastZoneSecond_.exchange(second, std::memory_order_relaxed) != second) tzset();
  }

  RegistryStore registry_;
  mutable std::atomic<std::int64_t> lastZoneSecond_ = -1;  // of the last look; any thread's serves all
};

}  // namespace

World& SystemWorld() {
  // Never destroyed: a host may take its control down in a destructor that runs after main.
  static World* const world = new RealWorld;
  return *world;
}

}  // namespace TesselServer
