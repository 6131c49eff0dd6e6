// One TCP socket on an event loop that notifies its owner of what happens to it. It connects to a host, or it listens
// and hands over the connections it accepts.
//
// A notification is never raised inside the call that caused it, but by the event loop. It is for the socket as it is
// now: after a close or a reuse no earlier notification is raised. A handler may close, reuse, move or destroy the
// socket, and connect others. An exception that leaves a handler is reported by EventLoop::HandlerFailed.
//
//   NotifyingSocket socket(loop);
//   SocketHandlers handlers;
//   handlers.Connected = [&] { socket.Send("GET / HTTP/1.0\r\n\r\n"); };
//   handlers.Data = [&](std::string_view bytes) { page += bytes; };
//   handlers.Closed = [&] { socket.Close(); };
//   socket.Handlers(std::move(handlers));
//   socket.Connect(address);
//
// Thread:    the loop's thread.
// Ownership: owns its descriptor and its handlers; closes the one and drops the others when it is destroyed. The loop
//            outlives it. It can be moved and not copied; one that was moved from can be destroyed and assigned to,
//            nothing else.
// Errors:    no exception but those of memory running out. A call that fails returns False or nothing, and LastError
//            has the reason as a socket error (10004 to 11004).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace TesselServer {

class EventLoop;
class NotifyingSocket;

// An IPv4 address and a port.
struct SocketAddress {
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  std::uint32_t address = kNone;  // network byte order
  std::uint16_t port = 0;

  bool operator==(const SocketAddress&) const = default;
};

// What may be asked of an open socket and set on it (socket(7), tcp(7)). Switches are 0 or 1.
enum class SocketOption {
  kReuseAddress,        // a port may be bound while old connections of it end; a listener has it
  kKeepAlive,           // silent connections are probed
  kNoDelay,             // small pieces go out at once
  kSendBufferBytes,     // what the kernel keeps for the peer; it reports twice what was set
  kReceiveBufferBytes,  // what it keeps for us; the same
  kLingerSeconds,       // how long a close waits for the peer to take what is left, -1 for not at all
};

// What is reported to the owner. What an empty handler would have been given is dropped.
struct SocketHandlers {
  // The connection that Connect asked for is established.
  std::function<void()> Connected;
  // The listener has accepted a connection: keep it, or it closes when the handler returns. It has no handlers yet, and
  // nothing is raised for it before this returns.
  std::function<void(NotifyingSocket connection)> Accepted;
  // Bytes arrived; they are valid until the handler returns.
  std::function<void(std::string_view bytes)> Data;
  // The kernel has taken everything that was given to Send.
  std::function<void()> Sent;
  // The peer sends nothing more. It may still be sent to, until Close.
  std::function<void()> Closed;
  // The socket failed and is closed, with the number and its text.
  std::function<void(std::int32_t number, const std::string& description)> Failed;
};

class NotifyingSocket {
 public:
  // One notification of data carries at most this many bytes; it is also what a socket may read in a turn.
  static constexpr std::size_t kChunkBytes = 16 * 1024;
  // While so many bytes, or so many texts, wait for the kernel to take them, Send refuses more.
  static constexpr std::size_t kMaxWaitingBytes = 1024 * 1024;
  static constexpr std::size_t kMaxWaitingTexts = 4096;
  // How many connections a listener accepts from its backlog before others have their turn.
  static constexpr int kAcceptsPerTurn = 32;
  // How long a listener rests when there are no descriptors for its connections; they stay in the backlog.
  static constexpr std::int32_t kRestMilliseconds = 250;  // TcpListener::kPauseMilliseconds

  enum class State {
    kClosed,
    kListening,
    kConnecting,
    kConnected,
    kEnded,   // connected, but the peer sends nothing more
    kFailed,  // closed by a failure
  };

  // A closed socket.
  explicit NotifyingSocket(EventLoop& loop);
  NotifyingSocket(NotifyingSocket&& other) noexcept = default;
  NotifyingSocket& operator=(NotifyingSocket&& other) noexcept;
  NotifyingSocket(const NotifyingSocket&) = delete;
  NotifyingSocket& operator=(const NotifyingSocket&) = delete;
  ~NotifyingSocket();

  // What happens on each notification. Replaces all handlers there were.
  void Handlers(SocketHandlers handlers);

  // kClosed by default.
  State Status() const;

  // The socket error of the last thing that failed since the socket was last opened, 0 for none. "Nothing failed" is
  // what every Connect and Listen begins with.
  std::int32_t LastError() const;

  // Closes what it carried and connects to `peer`. The outcome is reported by Connected or Failed; the kernel gives up
  // on a host that does not answer after about two minutes (tcp_syn_retries, tcp(7)).
  void Connect(const SocketAddress& peer);

  // Closes what it carried and listens on `own`, address 0 for all and port 0 for a free one (SO_REUSEADDR). False when
  // it cannot, the socket is then closed.
  bool Listen(const SocketAddress& own);

  // Hands over bytes, all of them or none. What the kernel does not take now follows by itself; Sent is raised when
  // nothing is left. False for a socket that is not connected (10057), while the most that may wait is waiting
  // (10035: try again after Sent), and when the connection turns out to be broken, which Failed reports too.
  bool Send(std::string bytes);

  // How many bytes wait for the kernel, counting a text that has begun to go as a whole.
  std::size_t WaitingBytes() const;

  // Closes at once. Bytes that wait are lost, and unread bytes of the peer make it a reset: close after
  // Sent, or when the peer has ended. Nothing happens to a closed socket.
  void Close();

  // The address of the other end and of this one (getpeername(2), getsockname(2)); nothing for a socket without it.
  std::optional<SocketAddress> PeerAddress() const;
  std::optional<SocketAddress> OwnAddress() const;

  // The value of an option, nothing when the socket is not open. Setting returns False then, and for a value that the
  // kernel refuses.
  std::optional<std::int32_t> Option(SocketOption option) const;
  bool Option(SocketOption option, std::int32_t value);

 private:
  struct Core;
  explicit NotifyingSocket(std::shared_ptr<Core> core);
  void Drop();

  std::shared_ptr<Core> core_;
};

}  // namespace TesselServer
