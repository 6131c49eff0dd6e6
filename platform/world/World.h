// Everything the server reads from the world outside its files and sockets: clocks, time zone, names, the application
// folder, the registry store. One interface, so that a test can let 31 seconds or a change to summer time pass in no
// time at all.
//
// Thread:    SystemWorld() may be used by several threads at once; another world is for the thread of its loop, but for
//            HostNameOf, which threads of Workers call, several at once.
// Ownership: SystemWorld() lives as long as the process; an EventLoop and a control keep a reference to theirs.
// Errors:    none; what cannot be determined has the fallback value documented at each member.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace TesselServer {

class RegistryStore;

class World {
 public:
  virtual ~World() = default;

  // Milliseconds of a clock that never goes back (CLOCK_MONOTONIC, clock_gettime(2)). Its zero has no meaning.
  virtual std::int64_t MonotonicMilliseconds() const = 0;

  // The same clock in microseconds, for what must not take long. A world of whole milliseconds is one in which nothing
  // takes any time in between.
  virtual std::int64_t MonotonicMicroseconds() const { return MonotonicMilliseconds() * 1000; }

  // Whole seconds since 1 January 1970, 00:00 UTC.
  virtual std::int64_t UtcSeconds() const = 0;

  // Nanoseconds since then by the clock from which the system takes the times of files (CLOCK_REALTIME_COARSE,
  // clock_gettime(2)), as coarse as these are.
  virtual std::int64_t FileClockNanoseconds() const = 0;

  // Minutes to add to local time for UTC at the moment `utcSeconds`, daylight time included: -60 one hour east of
  // Greenwich. 0 when the time zone is unknown. tzset(3) says where the zone comes from. The system's world calls it
  // once in a second, so a new TZ and, where there is none, a new /etc/localtime count within a second. A file that TZ
  // names is read once, as for all programs.
  virtual std::int32_t BiasMinutes(std::int64_t utcSeconds) const = 0;

  // The host name of this machine (gethostname(2)), "" when it cannot be determined.
  virtual std::string LocalHostName() const = 0;

  // The first IPv4 address of this machine that is not a loopback address, "127.0.0.1" when there is none.
  virtual std::string LocalAddress() const = 0;

  // The folder of the program file, without a trailing separator unless it is "/". "" when it cannot be determined.
  virtual std::string ApplicationFolder() const = 0;

  // The name that the name service knows for the IPv4 address `address` (network byte order), as it was answered: it is
  // the peer's word. Nothing when there is none. Only the first DNS server is asked, once and in one UDP packet,
  // whatever resolv.conf(5) says; when it does not answer it is given up after about one second. An answer too long for
  // a packet counts as none. Other services that nsswitch.conf(5) names for hosts, and nscd(8), have a time limit of
  // their own, which the C library offers no way to shorten.
  virtual std::optional<std::string> HostNameOf(std::uint32_t address) const = 0;

  // The first IPv4 address (network byte order) of the host `name`. Nothing when there is none; same limit of time.
  // A name may be asked for as it is and in the system's search domains, but a question without an answer is the last
  // one. Digits and dots are read as an address and never asked about.
  virtual std::optional<std::uint32_t> AddressOf(std::string_view name) const = 0;

  // The store that answers registry look-ups.
  virtual RegistryStore& Registry() = 0;

  // How many descriptors this process may have open (soft RLIMIT_NOFILE, getrlimit(2)); what POSIX grants every process
  // when it cannot be determined.
  virtual std::int64_t DescriptorLimit() const = 0;

  // Shows `text` to the user. The system's world writes one line to standard error, with a blank for each control
  // character.
  virtual void MessageBox(std::string_view text) = 0;
};

// The real world, made on first use.
World& SystemWorld();

}  // namespace TesselServer
