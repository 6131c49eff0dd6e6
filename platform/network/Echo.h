// One ICMP echo ("ping"): a packet that asks a host to send it back.
//
// It goes through the kernel's ping socket where this user may have one (net.ipv4.ping_group_range, icmp(7)), else
// through a raw socket where this process has the right to one (CAP_NET_RAW).
//
// Thread:    any; it waits for the answer.
// Ownership: nothing stays open.
// Errors:    returned in the result; none is raised but those of memory running out.
#pragma once

#include <cstdint>
#include <string_view>

namespace TesselServer {

enum class EchoOutcome {
  kAnswered,  // the packet came back
  kTimedOut,  // nothing came in time
  kNotSent,   // neither kind of socket may be opened, or the network says that nothing gets there
};

struct EchoReply {
  EchoOutcome outcome = EchoOutcome::kNotSent;
  double milliseconds = 0;  // from the sending of an answered packet to its return, by a monotonic clock
};

// Sends `payload` to `address` (network byte order) and waits up to `milliseconds` for its return from there. Whatever
// else comes meanwhile is skipped and does not make the wait longer.
EchoReply SendEcho(std::uint32_t address, std::string_view payload, std::int32_t milliseconds);

}  // namespace TesselServer
