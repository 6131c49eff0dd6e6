#include "platform/network/Echo.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <optional>

#include "platform/network/EchoPacket.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

namespace {

using Clock = std::chrono::steady_clock;

// Room for the longest header of an IPv4 packet and more than any payload of ours: a longer packet is not the answer.
constexpr std::size_t kPacketBytes = 2048;

// A socket for ICMP that is connected to one host, so that the kernel keeps the packets of others away.
class IcmpSocket {
 public:
  explicit IcmpSocket(std::uint32_t address) : descriptor_(Open(SOCK_DGRAM)) {
    if (!descriptor_.IsOpen()) {
      descriptor_ = UniqueDescriptor(Open(SOCK_RAW));
      isRaw_ = true;
    }
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_addr.s_addr = address;
    const bool isConnected = connect(descriptor_.Get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0;
    if (!isConnected) descriptor_ = UniqueDescriptor(-1);
  }

  bool IsConnected() const { return descriptor_.IsOpen(); }

  // The identifier that a request bears: of a ping socket the kernel's choice, in the field where other sockets have a
  // port.
  std::uint16_t Identifier() const {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    if (isRaw_ || getsockname(descriptor_.Get(), reinterpret_cast<sockaddr*>(&own), &size) != 0) {
      return static_cast<std::uint16_t>(getpid());
    }
    return ntohs(own.sin_port);
  }

  bool Send(std::string_view packet) const {
    ssize_t count = 0;
    do {
      count = send(descriptor_.Get(), packet.data(), packet.size(), MSG_NOSIGNAL);
    } while (count < 0 && errno == EINTR);
    return count == static_cast<ssize_t>(packet.size());
  }

  // The next ICMP message received, "" for a packet without one. Nothing, with errno, when there is no packet. The
  // text is valid until the next call.
  std::optional<std::string_view> Receive() {
    const ssize_t count = recv(descriptor_.Get(), packet_.data(), packet_.size(), MSG_DONTWAIT);
    if (count < 0) return std::nullopt;
    const std::string_view packet(packet_.data(), static_cast<std::size_t>(count));
    return isRaw_ ? WithoutInternetHeader(packet) : packet;
  }

  // Waits until there may be something to receive; a signal ends the wait too.
  void Wait(Clock::duration limit) const {
    pollfd waiting{descriptor_.Get(), POLLIN, 0};
    poll(&waiting, 1, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(limit).count()));
  }

 private:
  static int Open(int type) { return socket(AF_INET, type | SOCK_CLOEXEC, IPPROTO_ICMP); }

  UniqueDescriptor descriptor_;
  bool isRaw_ = false;
  std::array<char, kPacketBytes> packet_;
};

// No two echoes of this process shortly after one another have the same number, so that a late answer matches none.
std::uint16_t NextSequence() {
  static std::atomic<std::uint16_t> last = 0;
  return ++last;
}

EchoReply AwaitReply(IcmpSocket& socket, const EchoMessage& message, Clock::time_point sent, Clock::duration limit) {
  while (true) {
    const auto packet = socket.Receive();
    const int error = packet ? 0 : errno;
    const Clock::duration passed = Clock::now() - sent;
    if (packet && IsEchoReply(*packet, message)) {
      return {EchoOutcome::kAnswered, std::chrono::duration<double, std::milli>(passed).count()};
    }
    if (!packet && error != EAGAIN && error != EINTR) return {EchoOutcome::kNotSent};
    if (passed >= limit) return {EchoOutcome::kTimedOut};
    if (!packet) socket.Wait(limit - passed);
  }
}

}  // namespace

EchoReply SendEcho(std::uint32_t address, std::string_view payload, std::int32_t milliseconds) {
  IcmpSocket socket(address);
  if (!socket.IsConnected()) return {EchoOutcome::kNotSent};
  const EchoMessage message{socket.Identifier(), NextSequence(), payload};
  const std::string request = EchoRequest(message);
  const Clock::time_point sent = Clock::now();
  if (!socket.Send(request)) return {EchoOutcome::kNotSent};
  return AwaitReply(socket, message, sent, std::chrono::milliseconds(milliseconds));
}

}  // namespace TesselServer
