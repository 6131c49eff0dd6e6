#include "platform/sockets/SocketArray.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <limits>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/world/Error.h"
#include "platform/world/SystemErrors.h"

namespace TesselServer {

namespace {

// Of IPv6, and with it of IPv4 (ipv6(7), IPV6_V6ONLY).
constexpr const char* kAllAddresses = "::";

// Lack of descriptors or memory on our side, as opposed to a client that has gone.
bool IsShortage(int error) { return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM; }

}  // namespace

SocketArray::SocketArray(EventLoop& loop, SocketNotifications& owner, Turns* turns)
    : loop_(loop), owner_(owner), lingering_(loop) {
  if (turns != nullptr) disk_.emplace(*turns, loop.TheWorld());
}

SocketArray::~SocketArray() { loop_.Core().Withdraw(this); }

// ---- Elements.

SocketArray::Element* SocketArray::Find(std::int32_t index) {
  if (index < 0 || static_cast<std::size_t>(index) >= elements_.size()) return nullptr;
  Element& element = elements_[static_cast<std::size_t>(index)];
  return element.loaded ? &element : nullptr;
}

const SocketArray::Element* SocketArray::Find(std::int32_t index) const {
  return const_cast<SocketArray*>(this)->Find(index);  // Find changes nothing
}

SocketArray::Element* SocketArray::FindConnected(std::int32_t index) {
  Element* element = Find(index);
  return element != nullptr && element->state == SocketState::kConnected ? element : nullptr;
}

void SocketArray::Load(std::int32_t index) {
  if (index < 0 || index > kMaxIndex) throw SubscriptError();
  if (IsLoaded(index)) throw Error(ErrorNumber::kAlreadyLoaded, "Object already loaded");
  const auto place = static_cast<std::size_t>(index);
  if (place >= elements_.size()) elements_.resize(place + 1);
  Element& element = elements_[place];
  element.index = index;
  element.loaded = true;
  element.local = {};
  element.localPort = 0;
  element.generation = ++lastGeneration_;
  SetState(element, SocketState::kClosed);
}

void SocketArray::Unload(std::int32_t index) {
  Element* element = Find(index);
  if (element == nullptr) return;
  Shut(*element);
  element->loaded = false;
  closed_.Remove(static_cast<std::size_t>(index));
  free_.Remove(static_cast<std::size_t>(index));
}

void SocketArray::Reload(std::int32_t index) {
  Unload(index);
  Load(index);
}

SocketState SocketArray::State(std::int32_t index) const {
  const Element* element = Find(index);
  return element != nullptr ? element->state : SocketState::kConnected;
}

std::uint64_t SocketArray::Generation(std::int32_t index) const {
  const Element* element = Find(index);
  return element != nullptr ? element->generation : 0;
}

std::int32_t SocketArray::Lowest(const IndexSet& set, std::int32_t from, std::int32_t to) const {
  constexpr std::size_t kNone = kMaxIndex + 1;
  const std::size_t found = set.LowestFrom(static_cast<std::size_t>(from), kNone);
  return found == kNone || static_cast<std::int32_t>(found) > to ? -1 : static_cast<std::int32_t>(found);
}

std::int32_t SocketArray::LowestClosed(std::int32_t from, std::int32_t to) const { return Lowest(closed_, from, to); }

std::int32_t SocketArray::LowestFree(std::int32_t from, std::int32_t to) const { return Lowest(free_, from, to); }

void SocketArray::SetState(Element& element, SocketState state) {
  element.state = state;
  const auto place = static_cast<std::size_t>(element.index);
  const bool free = state == SocketState::kClosed || state == SocketState::kClosing || state == SocketState::kError;
  free ? free_.Add(place) : free_.Remove(place);
  state == SocketState::kClosed ? closed_.Add(place) : closed_.Remove(place);
  if (!free) return;
  if (offer_ != nullptr) offer_->elementCameFree = true;
  ResumePausedSoon();
}

// Closes what the element carries and resets it to a fresh one.
void SocketArray::Shut(Element& element) {
  if (element.listener) {
    element.listener->Close();
    loop_.DeleteLater(std::exchange(element.listener, nullptr));
  }
  if (element.connection) lingering_.End(element.connection);
  element.generation = ++lastGeneration_;
  SetState(element, SocketState::kClosed);
}

void SocketArray::Close(std::int32_t index) {
  if (Element* element = Find(index)) Shut(*element);
}

// ---- Listening.

void SocketArray::LocalPort(std::int32_t index, std::int32_t port) { Bind(index, port, "0.0.0.0"); }

void SocketArray::Bind(std::int32_t index, std::int32_t port, const std::string& ip) {
  Element* element = Find(index);
  if (element == nullptr) return;
  const auto local = Endpoint::Parse(ip, static_cast<std::uint16_t>(port));
  if (!local || !local->IsIPv4()) throw SystemError(EADDRNOTAVAIL);
  element->local = *local;
  element->localPort = port;
  element->manner = TcpListener::Manner::kServer;
}

void SocketArray::BindPersistent(std::int32_t index, std::int32_t port, const std::string& ip) {
  Element* element = Find(index);
  if (element == nullptr) return;
  const auto local = Endpoint::Parse(ip.empty() ? kAllAddresses : ip, static_cast<std::uint16_t>(port));
  if (!local) throw SystemError(EADDRNOTAVAIL);
  element->local = *local;
  element->localPort = port;
  element->manner = TcpListener::Manner::kPersistentServer;
}

// 0, or the error of what failed.
int SocketArray::Open(Element& element, TcpListener& listener) {
  const int error = listener.Open(element.local, element.manner);
  const bool hasNoIPv6 = error == EAFNOSUPPORT || error == EADDRNOTAVAIL;
  if (!hasNoIPv6 || element.local.Text() != kAllAddresses) return error;
  element.local = Endpoint(0, element.local.Port());
  return listener.Open(element.local, element.manner);
}

std::shared_ptr<TcpListener> SocketArray::Keep(std::int32_t index) {
  Element* element = Find(index);
  if (element == nullptr || element->state != SocketState::kListening) return nullptr;
  auto kept = std::exchange(element->listener, nullptr);
  Shut(*element);
  return kept;
}

void SocketArray::Listen(std::int32_t index, std::shared_ptr<TcpListener> kept) {
  Element* element = Find(index);
  if (element == nullptr) return;
  if (element->localPort < 0 || element->localPort > 65535) throw SystemError(EADDRNOTAVAIL);
  if (element->state != SocketState::kClosed) throw SystemError(EINVAL);
  const auto cookie = static_cast<std::uint64_t>(index);
  const bool isSame = kept && kept->Cookie() == cookie && kept->OpenedAs() == element->manner;
  if (isSame && kept->ListensOn(element->local)) {
    element->listener = std::move(kept);
  } else {
    auto listener = std::make_shared<TcpListener>(loop_, static_cast<TcpListener::Client&>(*this), cookie);
    int error = Open(*element, *listener);
    if (kept && error != 0 && error != EADDRINUSE) {  // the old one is not in its way, and better than none
      element->listener = std::move(kept);
      SetState(*element, SocketState::kListening);
      throw SystemError(error);
    }
    if (kept) kept->Close();
    if (kept && error == EADDRINUSE) error = Open(*element, *listener);
    loop_.DeleteLater(std::move(kept));
    if (error != 0) throw SystemError(error);
    element->listener = std::move(listener);
  }
  SetState(*element, SocketState::kListening);
}

std::int32_t SocketArray::BoundPort(std::int32_t index) const {
  const Element* element = Find(index);
  if (element == nullptr || element->state != SocketState::kListening) return 0;
  const auto own = element->listener->Own();
  return own ? own->Port() : 0;
}

void SocketArray::OfferWaiting(std::int32_t index) {
  Element* element = Find(index);
  if (element == nullptr || element->state != SocketState::kListening) return;
  const auto listener = element->listener;
  // asked first, so that the owner never looks for a free element for no connection
  if (listener->IsConnectionWaiting()) OnConnectionWaiting(*listener);
}

// Offers the pending connection. Its bytes have arrived already (deferred accept), so they are read before the loop is
// asked to watch it.
void SocketArray::OnConnectionWaiting(TcpListener& listener) {
  if (offer_ != nullptr) {  // a connection request is not raised inside another
    Pause(listener);
    offer_->othersWait = true;
    return;
  }
  lastRequest_ = lastRequest_ < std::numeric_limits<std::int32_t>::max() ? lastRequest_ + 1 : 1;
  Offer offer{listener, lastRequest_};
  offer_ = &offer;
  std::exception_ptr thrown;
  try {
    owner_.ConnectionRequest(static_cast<std::int32_t>(listener.Cookie()), offer.request);
  } catch (...) {
    thrown = std::current_exception();
  }
  offer_ = nullptr;
  const bool refused = offer.takenBy < 0 && !offer.isGone;
  if (refused && listener.IsOpen()) Pause(listener);
  // where the owner yielded, an element may have become free unseen, and another connection may be pending
  if (refused ? offer.elementCameFree : offer.othersWait) ResumePausedSoon();
  Element* element = FindConnected(offer.takenBy);
  if (element != nullptr && !thrown) return ReadFirst(*element);
  if (element != nullptr) Shut(*element);  // the loop does not watch it yet: no event would ever close it
  if (thrown) std::rethrow_exception(thrown);
}

void SocketArray::OnListenerFailed(TcpListener& listener, int error) {
  Element& element = ElementOf(listener.Cookie());
  Shut(element);
  Fail(element, error);
}

void SocketArray::ReadFirst(Element& element) {
  const std::uint64_t generation = element.generation;
  try {
    element.connection->ReadNow();
  } catch (...) {  // the loop does not watch the connection yet: no event would ever close it
    if (element.generation == generation) Shut(element);
    throw;
  }
}

void SocketArray::Pause(TcpListener& listener) {
  listener.Pause();
  const auto index = static_cast<std::int32_t>(listener.Cookie());
  if (std::find(paused_.begin(), paused_.end(), index) == paused_.end()) paused_.push_back(index);
}

// Has the paused listeners report again, as soon as no connection is being offered.
void SocketArray::ResumePausedSoon() {
  if (paused_.empty() || resumePosted_) return;
  loop_.Core().Post(this, [this] { ResumePaused(); });
  resumePosted_ = true;  // not where Post has thrown
}

void SocketArray::ResumePaused() {
  resumePosted_ = false;
  if (offer_ != nullptr) {
    offer_->elementCameFree = offer_->othersWait = true;
    return;
  }
  for (const std::int32_t index : std::exchange(paused_, {})) {
    Element* element = Find(index);
    if (element != nullptr && element->listener) element->listener->Resume();
  }
}

SocketArray::AcceptResult SocketArray::Accept(std::int32_t index, std::int32_t requestID) {
  Element* element = Find(index);
  if (offer_ == nullptr || requestID != offer_->request || offer_->takenBy >= 0) return AcceptResult::kGone;
  if (element == nullptr || element->state != SocketState::kClosed) return AcceptResult::kFailed;
  if (!element->connection) {
    element->connection = std::make_shared<TcpConnection>(loop_, static_cast<TcpConnection::Client&>(*this),
                                                          static_cast<std::uint64_t>(index), disk_ ? &*disk_ : nullptr);
  }
  Endpoint peer;
  int error = 0;
  UniqueDescriptor socket = offer_->listener.Accept(peer, error);
  if (!socket.IsOpen()) {
    offer_->isGone = !IsShortage(error);
    return offer_->isGone ? AcceptResult::kGone : AcceptResult::kFailed;
  }
  element->connection->Adopt(std::move(socket), peer);
  element->generation = ++lastGeneration_;
  SetState(*element, SocketState::kConnected);
  offer_->takenBy = index;
  return AcceptResult::kAccepted;
}

// ---- Connections.

void SocketArray::OnData(TcpConnection& connection, std::string_view bytes) {
  arrived_ = bytes;
  arrivedIndex_ = static_cast<std::int32_t>(connection.Cookie());
  owner_.DataArrival(arrivedIndex_, static_cast<std::int64_t>(bytes.size()));
}

std::string_view SocketArray::GetData(std::int32_t index) {
  return index == arrivedIndex_ ? arrived_ : std::string_view();
}

void SocketArray::OnPeerEnded(TcpConnection& connection) {
  Element& element = ElementOf(connection.Cookie());
  const std::uint64_t generation = element.generation;
  owner_.Close(element.index);  // the owner may still answer what has come
  if (element.generation == generation) FollowPeer(element);
}

// The state follows a peer that closed its side as soon as no answer is under way: nothing more can come or go.
void SocketArray::FollowPeer(Element& element) {
  TcpConnection& connection = *element.connection;
  if (!connection.HasPeerEnded() || connection.Status() != TcpConnection::State::kReceiving) return;
  connection.Close();
  SetState(element, SocketState::kClosing);
}

void SocketArray::AnswerPending(std::int32_t index, bool pending) {
  Element* element = FindConnected(index);
  if (element == nullptr) return;
  element->connection->AnswerPending(pending);
  FollowPeer(*element);
}

void SocketArray::OneAtATime(std::int32_t index) {
  if (Element* element = FindConnected(index)) element->connection->OneAtATime(true);
}

void SocketArray::PutBack(std::int32_t index, std::string_view bytes) {
  if (Element* element = FindConnected(index)) element->connection->PutBack(bytes);
}

void SocketArray::NextRequest(std::int32_t index) {
  if (Element* element = FindConnected(index)) element->generation = ++lastGeneration_;
}

bool SocketArray::HasPeerEnded(std::int32_t index) const {
  const Element* element = Find(index);
  return element == nullptr || element->state != SocketState::kConnected || element->connection->HasPeerEnded();
}

std::int64_t SocketArray::SentBytes(std::int32_t index) const {
  const Element* element = Find(index);
  return element != nullptr && element->state == SocketState::kConnected ? element->connection->SentBytes() : 0;
}

void SocketArray::InputMayCome(std::int32_t index, bool mayCome) {
  if (Element* element = FindConnected(index)) element->connection->InputMayCome(mayCome);
}

void SocketArray::SendData(std::int32_t index, Answer answer, AfterSend after) {
  Element* element = FindConnected(index);
  // kept: one answer at a time, until its end has been reported to the owner
  const bool isFree = element != nullptr && element->connection->Status() != TcpConnection::State::kSent;
  if (!isFree) throw SystemError(ENOTCONN);
  if (const int error = element->connection->Send(std::move(answer), after == AfterSend::kCloses)) {
    throw SystemError(error);
  }
}

void SocketArray::OnSent(TcpConnection& connection) {
  Element& element = ElementOf(connection.Cookie());
  const std::uint64_t generation = element.generation;
  owner_.SendComplete(element.index);
  if (element.generation == generation) FollowPeer(element);
}

void SocketArray::OnFailed(TcpConnection& connection, int error) { Fail(ElementOf(connection.Cookie()), error); }

void SocketArray::Fail(Element& element, int error) {
  SetState(element, SocketState::kError);
  const std::int32_t number = SocketErrorOf(error);
  owner_.SocketError(element.index, number, std::string(SocketErrorText(number)));
}

std::string SocketArray::RemoteHostIP(std::int32_t index) const {
  const Element* element = Find(index);
  if (element == nullptr || element->state != SocketState::kConnected) return {};
  return element->connection->Peer().Text();
}

}  // namespace TesselServer
