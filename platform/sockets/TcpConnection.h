// One TCP connection on an event loop, from connecting or being accepted to its orderly end. It is always in one state;
// what the loop waits for follows from it (WantedEvents), and so does what an event means (OnEvents).
//
// A connection that was accepted is not watched at first: its bytes are read at once (ReadNow), and the loop is asked
// only when a read or a write would have to wait.
//
// Thread:    the loop's thread.
// Ownership: owns its descriptor; closes it when destroyed. The client outlives it, or is replaced (Linger). Inside a
//            report it may be closed and used anew, but is destroyed by DeleteLater only.
// Errors:    errno(3) values, returned or reported by OnFailed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/loop/LoopCore.h"
#include "platform/sockets/Endpoint.h"
#include "platform/sockets/Outgoing.h"
#include "platform/tasks/Task.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class EventLoop;

class TcpConnection final : private LoopClient {
 public:
  enum class State {
    kClosed,
    kConnecting,
    kReceiving,  // input may come, and nothing is being sent
    kAnswering,  // the same, while an answer is being made
    kSending,    // an answer is on its way
    kFetching,   // the same, and the next bytes of its file are waited for
    kSent,       // the kernel has taken its last byte, and OnSent is due
    kLingering,  // our side has ended; what arrives is dropped until the peer ends too
  };

  class Client {
   public:
    // Where the next bytes are read to.
    virtual std::span<char> ReadBuffer() = 0;
    virtual void OnConnected(TcpConnection&) {}
    // Bytes have arrived; they are valid until the next report.
    virtual void OnData(TcpConnection& connection, std::string_view bytes) = 0;
    // The peer sends nothing more. It may still be sent to.
    virtual void OnPeerEnded(TcpConnection& connection) = 0;
    // The kernel has taken the last byte of what Send was given. Never raised inside Send.
    virtual void OnSent(TcpConnection& connection) = 0;
    // The connection has failed and is closed.
    virtual void OnFailed(TcpConnection& connection, int error) = 0;

   protected:
    ~Client() = default;
  };
  // What a lingering connection reports.
  class LingerClient {
   public:
    // The peer has ended, or was lost; the connection is closed.
    virtual void OnLingered(TcpConnection& connection) = 0;

   protected:
    ~LingerClient() = default;
  };

  // What a lingering connection may read and drop in a turn.
  static constexpr std::size_t kDroppedPerTurn = 64 * 1024;

  // `cookie` is the client's own: which of its connections this is. With `disk`, which outlives what is sent, no file
  // that is sent keeps the loop waiting; with none, it is read in the call.
  TcpConnection(EventLoop& loop, Client& client, std::uint64_t cookie = 0, DiskAccess* disk = nullptr);
  TcpConnection(const TcpConnection&) = delete;
  TcpConnection& operator=(const TcpConnection&) = delete;
  ~TcpConnection();

  State Status() const { return state_; }
  std::uint64_t Cookie() const { return cookie_; }
  // Changes whenever the connection is opened or closed.
  std::uint64_t Life() const { return life_; }
  bool HasPeerEnded() const { return peerEnded_; }
  const Endpoint& Peer() const { return peer_; }
  int Descriptor() const { return socket_.Get(); }

  // ---- Opening. What it carried is closed.

  // OnConnected or OnFailed follows. 0, or the error when it cannot even begin.
  int Connect(const Endpoint& peer);
  // Takes over a connection that was accepted.
  void Adopt(UniqueDescriptor socket, const Endpoint& peer);

  // ---- Receiving.

  // Reads what has arrived and reports it, then has the loop wait for more. For a connection that was just adopted.
  void ReadNow();
  // Has the loop wait for what this state waits for. False when the kernel refuses.
  bool Watch();
  // The bytes of the next request, which were read with this one: they are reported again before any others. Fetch them
  // with ReadNow.
  void PutBack(std::string_view bytes) { putBack_.insert(0, bytes); }
  // While an answer is made or sent nothing is read: the bytes of the next request stay where they are until it is
  // their turn. Default: false, and then all is reported as it arrives.
  void OneAtATime(bool value) { oneAtATime_ = value; }
  // An answer is being made, or no longer.
  void AnswerPending(bool pending);
  // Whether the peer may still send something that belongs to its request. While set, and whenever bytes are left
  // unread, the end is orderly: the kernel would otherwise discard the answer together with them. Default: true.
  void InputMayCome(bool mayCome) { inputMayCome_ = mayCome; }

  // ---- Sending.

  // Hands over a whole answer. With `closeFollows` the last bytes wait for the end that OnSent will bring. 0, or the
  // error: ENOTCONN when it is not open, or an answer is on its way.
  int Send(Answer answer, bool closeFollows);

  // How much of the answer that is on its way the kernel has taken, 0 when there is none.
  std::int64_t SentBytes() const { return outgoing_ ? outgoing_->SentBytes() : 0; }

  // ---- The end.

  // Ends the connection. True when that is not over yet: our side is shut down, and the connection lingers until the
  // peer ends too, which is reported to `client`. False: it is closed.
  bool Linger(LingerClient& client);
  // Closes at once.
  void Close();

 private:
  void OnEvents(std::uint32_t events) override;
  std::uint32_t WantedEvents() const;
  void FinishConnecting();
  void Serve(std::uint32_t events);
  void Read();
  bool Write();
  int StartFetching();
  Task<> GoOnAfter(Task<> given);
  void FinishSend();
  bool MayRead() const { return !peerEnded_ && (state_ == State::kReceiving || !oneAtATime_); }
  void ReadPutBackSoon();
  void Drop();
  void Fail(int error);
  bool HasUnread() const;

  LoopCore& loop_;
  Client& client_;
  LingerClient* lingerClient_ = nullptr;
  const std::uint64_t cookie_;
  DiskAccess* const disk_;
  State state_ = State::kClosed;
  std::uint64_t life_ = 0;
  UniqueDescriptor socket_{-1};
  WatchId watch_ = 0;
  std::uint32_t watched_ = 0;  // the events it is watched for
  Endpoint peer_;
  bool peerEnded_ = false;
  bool inputMayCome_ = true;
  bool oneAtATime_ = false;
  bool drained_ = true;  // the last read took all there was
  std::string putBack_;
  std::unique_ptr<Outgoing> outgoing_;  // while kSending or kFetching
  RunningTask fetching_;                // of outgoing_'s file; destroyed before it
};

}  // namespace TesselServer
