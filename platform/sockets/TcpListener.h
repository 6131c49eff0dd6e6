// A listening TCP socket on an event loop. It reports that a connection is pending; its client accepts it, or pauses
// the listener while it cannot.
//
// Thread:    the loop's thread.
// Ownership: owns its descriptor. May be closed and destroyed by its client, inside a report by DeleteLater.
// Errors:    reported by errno(3) values.
#pragma once

#include <cstdint>

#include "platform/loop/LoopCore.h"
#include "platform/loop/Timer.h"
#include "platform/sockets/Endpoint.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class EventLoop;

class TcpListener final : private LoopClient {
 public:
  // How long a paused listener rests unless it is resumed.
  static constexpr std::int32_t kPauseMilliseconds = 250;
  // A connection that sends nothing is kept by the kernel alone for about so long (TCP_DEFER_ACCEPT, tcp(7)).
  static constexpr int kDeferAcceptSeconds = 30;
  // When a silent connection is probed, so that dead peers are detected (SO_KEEPALIVE, tcp(7)).
  static constexpr int kKeepAliveIdleSeconds = 60;
  static constexpr int kKeepAliveIntervalSeconds = 10;
  static constexpr int kKeepAliveProbes = 6;
  // What the kernel keeps of an answer beyond what is on its way (TCP_NOTSENT_LOWAT, tcp(7)); it asks for more when
  // half of it is left. Less waits in its memory for clients that are slow, and what waits is still in the processor's
  // cache. Half of it is no less than a segment can be: the kernel may hold back so much until more comes (MSG_MORE).
  static constexpr int kUnsentBytes = 128 * 1024;

  // kServer: for connections whose peer speaks first and gets an answer; the options above are theirs.
  // kPersistentServer: the same, for connections that carry several answers: what does not fill a segment leaves at
  // once (TCP_NODELAY, tcp(7)); an IPv6 address "::" has all IPv4 ones in it. kPlain: none.
  enum class Manner { kServer, kPersistentServer, kPlain };

  class Client {
   public:
    // A connection is pending: accept it, or pause the listener. It is reported again until one of these is done.
    virtual void OnConnectionWaiting(TcpListener& listener) = 0;
    // The socket does not listen any more, by no call of its client: nothing more is reported. `error` is its SO_ERROR,
    // or EINVAL where it has none, as accept(2) says.
    virtual void OnListenerFailed(TcpListener& listener, int error) = 0;

   protected:
    ~Client() = default;
  };

  // `cookie` is the client's own: which of its listeners this is.
  TcpListener(EventLoop& loop, Client& client, std::uint64_t cookie = 0);
  TcpListener(const TcpListener&) = delete;
  TcpListener& operator=(const TcpListener&) = delete;
  ~TcpListener() { Close(); }

  // Opens a socket, binds it (SO_REUSEADDR), listens and watches. 0, or the error of what failed.
  int Open(const Endpoint& own, Manner manner);
  // Closes the socket; connections not accepted yet are reset by the kernel.
  void Close();

  std::uint64_t Cookie() const { return cookie_; }
  bool IsOpen() const { return socket_.IsOpen(); }
  // Whether it listens on this address and port and its socket has no error.
  bool ListensOn(const Endpoint& own) const;
  // In which manner it was opened.
  Manner OpenedAs() const { return manner_; }
  std::optional<Endpoint> Own() const { return Endpoint::OwnOf(socket_.Get()); }
  int Descriptor() const { return socket_.Get(); }

  // Whether a connection is pending. One that has sent nothing is not, with Manner::kServer.
  bool IsConnectionWaiting() const;
  // Accepts one connection. Without one the descriptor is not open and `error` says why, EAGAIN when none is pending.
  UniqueDescriptor Accept(Endpoint& peer, int& error) const;

  // Reports nothing until it is resumed or kPauseMilliseconds have passed.
  void Pause();
  void Resume();
  bool IsPaused() const { return pause_.Enabled(); }

 private:
  void OnEvents(std::uint32_t events) override;

  LoopCore& loop_;
  Client& client_;
  const std::uint64_t cookie_;
  Manner manner_ = Manner::kPlain;
  UniqueDescriptor socket_{-1};
  WatchId watch_ = 0;
  Timer pause_;  // runs while the listener is paused
};

}  // namespace TesselServer
