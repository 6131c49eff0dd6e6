// An array of socket elements, each with a number, a state and notifications, on an event loop: one element listens,
// the others carry connections.
//
// A notification is raised for an element as it is now: after a close or a reload none is raised for what happened
// before. A handler may close, unload and reload any element, its own included.
//
// Thread:    the loop's thread.
// Ownership: owns its descriptors. Must not be destroyed inside one of its notifications: its owner is given to
//            EventLoop::DeleteLater instead.
// Errors:    Error 360 from Load; socket errors (10004 to 11004) from Bind, Listen and SendData. An element that does
//            not exist counts as not free, and what is asked of it does nothing.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/sockets/Answer.h"
#include "platform/sockets/Endpoint.h"
#include "platform/sockets/IndexSet.h"
#include "platform/sockets/Lingering.h"
#include "platform/sockets/TcpConnection.h"
#include "platform/sockets/TcpListener.h"

namespace TesselServer {

class EventLoop;
class Turns;

enum class SocketState : std::int32_t {
  kClosed = 0,     // free
  kListening = 2,  // listens for connection requests
  kConnected = 7,  // carries a connection
  kClosing = 8,    // the peer closed its side and no answer is under way
  kError = 9,      // failed
};

// What the array reports to its owner.
class SocketNotifications {
 public:
  // A connection is pending on the listening element `Index`: accept it with Accept(requestID) before returning. When
  // no element accepts it, it stays in the backlog, and is offered again as soon as an element becomes free, and at
  // most kOfferAgainMilliseconds later.
  virtual void ConnectionRequest(std::int32_t Index, std::int32_t requestID) = 0;
  // Bytes arrived; fetch them with GetData at once.
  virtual void DataArrival(std::int32_t Index, std::int64_t bytesTotal) = 0;
  // The kernel has taken the last byte of what SendData was given.
  virtual void SendComplete(std::int32_t Index) = 0;
  // The peer sends nothing more. Inside it an answer may still be sent, or promised with AnswerPending; otherwise the
  // element is in state kClosing afterwards.
  virtual void Close(std::int32_t Index) = 0;
  // The element failed and is in state kError.
  virtual void SocketError(std::int32_t Index, std::int32_t Number, const std::string& Description) = 0;

 protected:
  ~SocketNotifications() = default;
};

class SocketArray : private TcpConnection::Client, private TcpListener::Client {
 public:
  // A notification of data carries at most this many bytes; it is also what one connection may read in a turn.
  static constexpr std::size_t kChunkBytes = 64 * 1024;
  // So many connections are accepted before others have their turn.
  static constexpr int kAcceptsPerTurn = 1;
  // How soon a connection that found no element is offered again, and how long a lack of descriptors is waited out.
  static constexpr std::int32_t kOfferAgainMilliseconds = TcpListener::kPauseMilliseconds;
  static constexpr std::int32_t kMaxIndex = 10000;

  // With `turns`, which outlive it, no file that is sent keeps the loop waiting for its disk; with none, files are read
  // in the call.
  SocketArray(EventLoop& loop, SocketNotifications& owner, Turns* turns = nullptr);
  SocketArray(const SocketArray&) = delete;
  SocketArray& operator=(const SocketArray&) = delete;
  ~SocketArray();

  // ---- Elements.

  // Makes the element, closed. Raises Error 360 when it exists, 9 for a number outside 0 to kMaxIndex.
  void Load(std::int32_t index);
  // Closes and removes the element; nothing happens when there is none.
  void Unload(std::int32_t index);
  // A fresh element in place of this one: closed, and without any event of what was under way.
  void Reload(std::int32_t index);
  bool IsLoaded(std::int32_t index) const { return Find(index) != nullptr; }
  // The highest number ever loaded, -1 for none.
  std::int32_t HighestIndex() const { return static_cast<std::int32_t>(elements_.size()) - 1; }

  // State of the element; kConnected for one that does not exist, since that is not free.
  SocketState State(std::int32_t index) const;
  // Changes whenever the element is loaded, accepted on or closed; 0 for one that does not exist.
  std::uint64_t Generation(std::int32_t index) const;

  // The lowest element among `from` to `to` that is closed, and that is closed, closing or failed; -1 for none.
  std::int32_t LowestClosed(std::int32_t from, std::int32_t to) const;
  std::int32_t LowestFree(std::int32_t from, std::int32_t to) const;

  // ---- Listening.

  // Sets the address that Listen takes: a port on all addresses, or a port and an IPv4 address. Bind raises Error 10049
  // for a text that is no IPv4 address.
  void LocalPort(std::int32_t index, std::int32_t port);
  void Bind(std::int32_t index, std::int32_t port, const std::string& ip);
  // The same for connections that carry several answers, and for addresses of either family; "" is all addresses of
  // both, or of IPv4 where the system has no other. Raises Error 10049 for another text that is no address.
  void BindPersistent(std::int32_t index, std::int32_t port, const std::string& ip);
  // Takes the kernel's listening socket off the element, which is closed then, so that it outlives the renewal of the
  // element: clients that have connected and not sent anything are in that socket's backlog alone. Nothing when the
  // element does not listen.
  std::shared_ptr<TcpListener> Keep(std::int32_t index);
  // Opens the socket, binds it (SO_REUSEADDR) and listens. Raises the socket error of what failed, 10049 for a port
  // outside 0 to 65535; the element is then closed as before. A socket that was kept is used again when it listens on
  // this address and has no error; otherwise it is closed as soon as the new one is open, or when the address is in
  // use. Where the new one fails for another reason, the element goes on with the kept one, and the error is raised.
  void Listen(std::int32_t index, std::shared_ptr<TcpListener> kept = nullptr);
  // The port that the element listens on, 0 when it does not.
  std::int32_t BoundPort(std::int32_t index) const;
  // Raises ConnectionRequest now if a connection is pending in the listener's backlog.
  void OfferWaiting(std::int32_t index);

  enum class AcceptResult {
    kAccepted,  // the element carries the connection
    kGone,      // no connection is pending any more
    kFailed,    // no descriptors or memory: tried again after kOfferAgainMilliseconds
  };
  // Accepts the connection that ConnectionRequest reported on the closed element `index`.
  AcceptResult Accept(std::int32_t index, std::int32_t requestID);

  // ---- Connections.

  // The bytes that DataArrival reported; valid until the next notification.
  std::string_view GetData(std::int32_t index);

  // What the owner does when SendComplete is raised: with kCloses the last bytes wait for that, and they and the end of
  // the connection leave in one segment, which spares both sides a packet.
  enum class AfterSend { kStaysOpen, kCloses };
  // Hands over the whole answer; SendComplete follows when it has gone, or SocketError. Raises Error 10057 when the
  // element carries no connection or is sending already, and the socket error when the peer is known to have gone.
  void SendData(std::int32_t index, Answer answer, AfterSend after = AfterSend::kStaysOpen);

  // The connection carries one request after the other: while an answer is made or sent nothing is read. Until it is
  // closed.
  void OneAtATime(std::int32_t index);
  // What has come of the next request: it is reported again, before anything else, when the answer has gone.
  void PutBack(std::int32_t index, std::string_view bytes);
  // The next request of the connection begins: the element gets a new generation.
  void NextRequest(std::int32_t index);
  bool HasPeerEnded(std::int32_t index) const;
  // How much of the answer that is on its way the kernel has taken, 0 when there is none.
  std::int64_t SentBytes(std::int32_t index) const;

  // While set, an answer is being produced: an element whose peer closes its side stays connected, for a client may
  // send its request and close its side before it reads. Cleared: the state follows.
  void AnswerPending(std::int32_t index, bool pending);

  // Whether the client may still send something that belongs to its request. While set, and whenever bytes are left
  // unread, Close is orderly: the kernel would otherwise discard the answer together with the unread bytes. Default:
  // True.
  void InputMayCome(std::int32_t index, bool mayCome);

  // Closes the connection or the listener; the element is free at once. An orderly close goes on in the background.
  void Close(std::int32_t index);

  // The peer's address as dotted text, "" when the element carries no connection.
  std::string RemoteHostIP(std::int32_t index) const;

  // How many closed connections are waiting for their peer in the background.
  std::size_t LingeringCount() const { return lingering_.Count(); }

 private:
  struct Element {
    std::int32_t index = 0;
    bool loaded = false;
    SocketState state = SocketState::kClosed;
    std::uint64_t generation = 0;
    Endpoint local;
    TcpListener::Manner manner = TcpListener::Manner::kServer;
    std::int32_t localPort = 0;                 // as it was given; one that is none is refused by Listen
    std::shared_ptr<TcpListener> listener;      // while kListening
    std::shared_ptr<TcpConnection> connection;  // open while kConnected; kept for the next one
  };
  // A connection that is being offered to the owner.
  struct Offer {
    TcpListener& listener;
    std::int32_t request;
    std::int32_t takenBy = -1;  // the element
    bool isGone = false;
    bool elementCameFree = false;
    bool othersWait = false;  // a listener has reported meanwhile, and is paused
  };

  std::span<char> ReadBuffer() override { return chunk_; }
  void OnData(TcpConnection& connection, std::string_view bytes) override;
  void OnPeerEnded(TcpConnection& connection) override;
  void OnSent(TcpConnection& connection) override;
  void OnFailed(TcpConnection& connection, int error) override;
  void OnConnectionWaiting(TcpListener& listener) override;
  void OnListenerFailed(TcpListener& listener, int error) override;
  void Fail(Element& element, int error);

  Element* Find(std::int32_t index);
  const Element* Find(std::int32_t index) const;
  Element* FindConnected(std::int32_t index);
  Element& ElementOf(std::uint64_t cookie) { return elements_[static_cast<std::size_t>(cookie)]; }
  std::int32_t Lowest(const IndexSet& set, std::int32_t from, std::int32_t to) const;
  void SetState(Element& element, SocketState state);
  void Shut(Element& element);
  static int Open(Element& element, TcpListener& listener);
  void FollowPeer(Element& element);
  void ReadFirst(Element& element);
  void Pause(TcpListener& listener);
  void ResumePausedSoon();
  void ResumePaused();

  EventLoop& loop_;
  SocketNotifications& owner_;
  std::optional<DiskAccess> disk_;
  Lingering lingering_;
  std::deque<Element> elements_;  // by number; a deque, so that a reference holds while others are loaded
  IndexSet closed_;
  IndexSet free_;
  std::uint64_t lastGeneration_ = 0;
  std::int32_t lastRequest_ = 0;
  Offer* offer_ = nullptr;
  std::vector<std::int32_t> paused_;  // listening elements that may be
  bool resumePosted_ = false;

  std::array<char, kChunkBytes> chunk_;  // what the latest read has brought
  std::string_view arrived_;             // the part of it that is reported to the owner
  std::int32_t arrivedIndex_ = -1;
};

}  // namespace TesselServer
