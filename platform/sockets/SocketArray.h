// An array of socket elements, each with a number, a state and notifications, on an event loop: one element listens,
// the others carry connections.
//
// A notification is raised for an element as it is now: an element that was closed or reloaded meanwhile hears nothing
// of its past. A handler may close, unload and reload any element, its own included.
//
// Thread:    the loop's thread.
// Ownership: owns its descriptors. Must not die inside one of its notifications: its owner is buried in the loop
//            (LoopCore::Bury) instead.
// Errors:    Error 360 from Load; socket errors (10004 to 11004) from Bind, Listen and SendData. An element that does
//            not exist counts as not free, and what is asked of it does nothing.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/loop/LoopCore.h"
#include "platform/loop/Timer.h"
#include "platform/sockets/Answer.h"
#include "platform/sockets/Closings.h"
#include "platform/sockets/IndexSet.h"
#include "platform/sockets/Lingering.h"
#include "platform/sockets/Outgoing.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class EventLoop;

enum class SocketState : std::int32_t {
  kClosed = 0,     // free
  kListening = 2,  // hears connection requests
  kConnected = 7,  // carries a connection
  kClosing = 8,    // the peer closed its side and no answer is under way
  kError = 9,      // failed
};

// What the owner of the array hears.
class SocketNotifications {
 public:
  // A connection waits on the listening element `Index`: take it with Accept(requestID) before returning. When no
  // element takes it, it stays in the kernel's queue, and is offered again as soon as an element becomes free, and at
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

// The kernel's listening socket of an element, kept while the element is renewed: clients that have connected and not
// sent anything are known to that socket alone. Closed when it dies.
class KeptListener {
 public:
  KeptListener() = default;

 private:
  friend class SocketArray;
  UniqueDescriptor socket_{-1};
};

class SocketArray : private LoopClient {
 public:
  // A notification of data carries at most this many bytes; it is also what one connection may read in a turn.
  static constexpr std::size_t kChunkBytes = 64 * 1024;
  // So many connections are taken from the listener's queue in one go before others have their turn. They are taken and
  // read together and then served one after the other.
  static constexpr int kAcceptsPerTurn = 16;
  // No further connection is taken together with others when there is less room for its bytes.
  static constexpr std::size_t kLeastRoom = 8 * 1024;
  // How soon a connection that found no element is offered again, and how long a lack of descriptors is waited out.
  static constexpr std::int32_t kOfferAgainMilliseconds = 250;
  // A connection that sends nothing is kept by the kernel alone for about so long (TCP_DEFER_ACCEPT, tcp(7)).
  static constexpr int kDeferAcceptSeconds = 30;
  // When a silent connection is probed, so that dead peers come to light (SO_KEEPALIVE, tcp(7)).
  static constexpr int kKeepAliveIdleSeconds = 60;
  static constexpr int kKeepAliveIntervalSeconds = 10;
  static constexpr int kKeepAliveProbes = 6;
  // What the kernel keeps of an answer beyond what is on its way (TCP_NOTSENT_LOWAT, tcp(7)); it asks for more when
  // half of it is left. Less waits in its memory for clients that are slow, and what waits is still in the processor's
  // cache. Half of it is no less than a segment can be: the kernel may hold back so much until more comes (MSG_MORE).
  static constexpr int kUnsentBytes = 128 * 1024;
  static constexpr std::int32_t kMaxIndex = 10000;

  SocketArray(EventLoop& loop, SocketNotifications& owner);
  SocketArray(const SocketArray&) = delete;
  SocketArray& operator=(const SocketArray&) = delete;
  ~SocketArray();

  // ---- Elements.

  // Makes the element, closed. Raises Error 360 when it exists, 9 for a number outside 0 to kMaxIndex.
  void Load(std::int32_t index);
  // Closes and removes the element; nothing happens when there is none.
  void Unload(std::int32_t index);
  // A fresh element in place of this one: closed, and deaf to everything that was under way.
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
  // Takes the listening socket off the element, which is closed then; nothing when it does not listen.
  KeptListener Keep(std::int32_t index);
  // Opens the socket, binds it (SO_REUSEADDR) and listens. Raises the socket error of what failed, 10049 for a port
  // outside 0 to 65535; the element is then closed as before. A socket that was kept is used again when it listens on
  // this address and is in order; otherwise it is closed as soon as the new one is open.
  void Listen(std::int32_t index, KeptListener kept = {});
  // The port that the element listens on, 0 when it does not.
  std::int32_t BoundPort(std::int32_t index) const;
  // Raises ConnectionRequest now if a connection is waiting in the listener's queue.
  void OfferWaiting(std::int32_t index);

  enum class AcceptResult {
    kAccepted,  // the element carries the connection
    kGone,      // nobody waits any more
    kFailed,    // no descriptors or memory: tried again after kOfferAgainMilliseconds
  };
  // Takes the connection that ConnectionRequest told of on the closed element `index`.
  AcceptResult Accept(std::int32_t index, std::int32_t requestID);

  // ---- Connections.

  // The bytes that DataArrival told of; valid until the next notification.
  std::string_view GetData(std::int32_t index);

  // What the owner does when SendComplete is raised: with kCloses the last bytes wait for that, and they and the end of
  // the connection leave in one segment, which spares both sides a packet.
  enum class AfterSend { kStaysOpen, kCloses };
  // Hands over the whole answer; SendComplete follows when it has gone, or SocketError. Raises Error 10057 when the
  // element carries no connection or is sending already, and the socket error when the peer is known to have gone.
  void SendData(std::int32_t index, Answer answer, AfterSend after = AfterSend::kStaysOpen);

  // While set, an answer is being produced: an element whose peer closes its side stays connected, for a client may
  // send its request and close its side before it reads. Cleared: the state follows.
  void AnswerPending(std::int32_t index, bool pending);

  // Whether the client may still send something that belongs to its request. While set, and whenever bytes are left
  // unread, Close is orderly: the kernel would otherwise discard the answer together with the unread bytes. Default:
  // True.
  void InputMayCome(std::int32_t index, bool mayCome);

  // Closes the connection or the listener; the element is free at once. An orderly close goes on in the background.
  // Inside a turn of the loop a connection of which nothing more is to come is closed with others, at the end of the
  // turn.
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
    int descriptor = -1;
    WatchId watch = 0;
    std::uint32_t watched = 0;  // the events it is watched for
    // listening
    std::uint32_t localAddress = 0;  // network byte order, 0 = all
    std::int32_t localPort = 0;
    bool paused = false;  // a connection found no element: not heard until one is free
    // connected
    std::uint32_t peerAddress = 0;
    bool peerEnded = false;
    bool answerPending = false;
    bool inputMayCome = true;
    bool drained = true;        // the last read took all there was
    bool sendFinished = false;  // SendComplete is due
    std::unique_ptr<Outgoing> outgoing;
  };
  enum class OfferResult { kTaken, kRefused, kGone, kFailed };
  // Bytes that were read as their connection was taken, and of which the owner has not heard yet.
  struct Arrival {
    std::int32_t index = 0;
    std::uint64_t generation = 0;
    std::size_t begin = 0;  // within chunk_
    std::size_t size = 0;
  };

  void OnEvents(std::uint64_t cookie, std::uint32_t events) override;
  void OnNotice(std::uint64_t cookie) override;
  void OnTurnEnd() noexcept override;

  Element* Find(std::int32_t index);
  const Element* Find(std::int32_t index) const;
  Element* FindConnected(std::int32_t index);
  void SetState(Element& element, SocketState state);
  void Shut(Element& element);
  std::uint32_t WantedEvents(const Element& element) const;
  bool UpdateWatch(Element& element);
  void ResumeListeners();

  void ServeListener(Element& listener, bool known);
  bool MayTakeAnother(const Element& listener);
  void FirstBytes(Element& element);
  void ReadOn(Element& element, std::size_t begin, std::size_t size);
  bool AnnounceArrivals() noexcept;
  void TellArrivals();
  void DeliverArrivals(bool all);
  template <typename Action>
  void OrClose(const Element& element, const Action& action);
  void Hear(Element& element, std::size_t begin, std::size_t size);
  OfferResult Offer(Element& listener);
  void Pause(Element& listener);
  void ServeConnection(Element& element, bool readable, bool writable);
  void AfterNotifications(Element& element, std::uint64_t generation);
  std::int64_t Receive(Element& element, std::size_t begin);
  void Read(Element& element);
  void EndOfReading(Element& element, std::int64_t count);
  void PeerEnded(Element& element);
  void FollowPeer(Element& element);
  bool Write(Element& element);
  void FinishSend(Element& element);
  void Fail(Element& element, int error);

  LoopCore& loop_;
  SocketNotifications& owner_;
  Lingering lingering_;
  Closings closings_;
  Timer offerAgain_;                  // runs while a listener is paused
  std::vector<std::int32_t> paused_;  // the listeners that are
  std::deque<Element> elements_;      // by number; a deque, so that a reference holds while others are loaded
  IndexSet closed_;
  IndexSet free_;
  std::uint64_t lastGeneration_ = 0;
  std::int32_t lastRequest_ = 0;

  Element* offered_ = nullptr;    // the listener whose connection is being offered
  std::int32_t acceptedOn_ = -1;  // the element that took it
  bool acceptGone_ = false;
  bool acceptFailed_ = false;
  bool freedMeanwhile_ = false;  // an element came free while the connection was being offered

  std::array<char, kChunkBytes> chunk_;  // what the latest reads have brought
  std::array<Arrival, kAcceptsPerTurn> arrivals_;
  std::size_t arrivalsBegin_ = 0;
  std::size_t arrivalsEnd_ = 0;
  bool arrivalsAnnounced_ = false;  // a notice for them is under way
  std::uint64_t arrivalsTold_ = 0;  // of so many the owner has heard, ever
  std::uint64_t toldInPass_ = 0;    // the pass of the loop in which it heard of the latest
  std::string_view heard_;          // the part of chunk_ that is told of
  std::int32_t heardIndex_ = -1;
};

}  // namespace TesselServer
