#include "platform/sockets/SocketArray.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/network/DottedText.h"
#include "platform/sockets/Listener.h"
#include "platform/sockets/SocketErrors.h"
#include "platform/world/Error.h"
#include "platform/world/SystemErrors.h"

namespace TesselServer {

namespace {

// The notice that the listeners may have a free element now. Every notice but these two is a generation and an
// element's number.
constexpr std::uint64_t kResumeNotice = ~std::uint64_t{0};
constexpr std::uint64_t kArrivalsNotice = kResumeNotice - 1;  // bytes that have arrived are still to be told of
constexpr int kIndexBits = 16;

Error SocketFailure(std::int32_t number) { return {number, std::string(SocketErrorText(number))}; }

// Lack of means on our side, as opposed to a client that has gone.
bool IsShortage(int error) { return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM; }

}  // namespace

SocketArray::SocketArray(EventLoop& loop, SocketNotifications& owner)
    : loop_(loop.Core()), owner_(owner), lingering_(loop), closings_(lingering_), offerAgain_(loop) {
  offerAgain_.Interval(kOfferAgainMilliseconds);
  offerAgain_.OnTick([this] { ResumeListeners(); });
}

SocketArray::~SocketArray() {
  for (Element& element : elements_) {
    if (element.loaded) Shut(element);
  }
  loop_.Forget(*this);
}

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
  element.localAddress = 0;
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

std::int32_t SocketArray::LowestClosed(std::int32_t from, std::int32_t to) const {
  constexpr std::size_t kNone = kMaxIndex + 1;
  const std::size_t found = closed_.LowestFrom(static_cast<std::size_t>(from), kNone);
  return found == kNone || static_cast<std::int32_t>(found) > to ? -1 : static_cast<std::int32_t>(found);
}

std::int32_t SocketArray::LowestFree(std::int32_t from, std::int32_t to) const {
  constexpr std::size_t kNone = kMaxIndex + 1;
  const std::size_t found = free_.LowestFrom(static_cast<std::size_t>(from), kNone);
  return found == kNone || static_cast<std::int32_t>(found) > to ? -1 : static_cast<std::int32_t>(found);
}

void SocketArray::SetState(Element& element, SocketState state) {
  element.state = state;
  const auto place = static_cast<std::size_t>(element.index);
  const bool free = state == SocketState::kClosed || state == SocketState::kClosing || state == SocketState::kError;
  free ? free_.Add(place) : free_.Remove(place);
  state == SocketState::kClosed ? closed_.Add(place) : closed_.Remove(place);
  if (free && offerAgain_.Enabled()) loop_.Post(*this, kResumeNotice);
  if (free && offered_ != nullptr) freedMeanwhile_ = true;
}

// Lets the descriptor go and makes the element one that never carried anything.
void SocketArray::Shut(Element& element) {
  loop_.Unwatch(std::exchange(element.watch, 0));
  const bool orderly = element.state == SocketState::kConnected && !element.peerEnded && element.outgoing == nullptr;
  const int descriptor = std::exchange(element.descriptor, -1);
  if (orderly && (element.inputMayCome || !element.drained)) {
    lingering_.Take(descriptor);
  } else if (orderly) {
    const bool mayWait = loop_.AtTurnEnd(*this);
    closings_.Add(descriptor);
    if (!mayWait) closings_.CloseAll();
  } else if (descriptor >= 0) {
    close(descriptor);
  }
  element.watched = 0;
  element.paused = false;
  element.peerAddress = 0;
  element.peerEnded = false;
  element.answerPending = false;
  element.inputMayCome = true;
  element.drained = true;
  element.sendFinished = false;
  element.outgoing.reset();
  element.generation = ++lastGeneration_;
  SetState(element, SocketState::kClosed);
}

void SocketArray::Close(std::int32_t index) {
  if (Element* element = Find(index)) Shut(*element);
}

// ---- What the loop waits for.

// The one place that says which events an element in its present state is watched for.
std::uint32_t SocketArray::WantedEvents(const Element& element) const {
  switch (element.state) {
    case SocketState::kListening:
      return element.paused ? 0u : std::uint32_t{EPOLLIN};
    case SocketState::kConnected:
      return (element.peerEnded ? 0u : std::uint32_t{EPOLLIN}) |
             (element.outgoing != nullptr ? std::uint32_t{EPOLLOUT} : 0u);
    default:
      return 0;
  }
}

// False when the kernel refuses to watch the element.
bool SocketArray::UpdateWatch(Element& element) {
  if (element.state != SocketState::kListening && element.state != SocketState::kConnected) {
    loop_.Unwatch(std::exchange(element.watch, 0));
    return true;
  }
  const std::uint32_t wanted = WantedEvents(element);
  if (element.watch == 0) {
    element.watch = loop_.Watch(element.descriptor, wanted, *this, static_cast<std::uint64_t>(element.index));
    element.watched = wanted;
  } else if (wanted != element.watched) {
    loop_.Change(element.watch, wanted);
    element.watched = wanted;
  }
  return element.watch != 0;
}

void SocketArray::OnEvents(std::uint64_t cookie, std::uint32_t events) {
  Element* element = Find(static_cast<std::int32_t>(cookie));
  if (element == nullptr) return;
  if (element->state == SocketState::kListening) {
    ServeListener(*element, true);
    return;
  }
  const bool broken = (events & (EPOLLERR | EPOLLHUP)) != 0;
  if (broken && element->peerEnded) {
    Fail(*element, ECONNRESET);
    return;
  }
  ServeConnection(*element, broken || (events & EPOLLIN) != 0, broken || (events & EPOLLOUT) != 0);
}

void SocketArray::OnNotice(std::uint64_t cookie) {
  if (cookie == kResumeNotice) return ResumeListeners();
  if (cookie == kArrivalsNotice) {
    arrivalsAnnounced_ = false;
    return TellArrivals();
  }
  Element* element = Find(static_cast<std::int32_t>(cookie & ((1u << kIndexBits) - 1)));
  if (element == nullptr || element->generation != cookie >> kIndexBits || !element->sendFinished) return;
  ServeConnection(*element, false, false);
}

void SocketArray::OnTurnEnd() noexcept { closings_.CloseAll(); }

// ---- Listening.

void SocketArray::LocalPort(std::int32_t index, std::int32_t port) {
  Element* element = Find(index);
  if (element == nullptr) return;
  element->localAddress = htonl(INADDR_ANY);
  element->localPort = port;
}

void SocketArray::Bind(std::int32_t index, std::int32_t port, const std::string& ip) {
  Element* element = Find(index);
  if (element == nullptr) return;
  in_addr address{};
  if (inet_pton(AF_INET, ip.c_str(), &address) != 1) throw SystemError(EADDRNOTAVAIL);
  element->localAddress = address.s_addr;
  element->localPort = port;
}

KeptListener SocketArray::Keep(std::int32_t index) {
  KeptListener kept;
  Element* element = Find(index);
  if (element == nullptr || element->state != SocketState::kListening) return kept;
  loop_.Unwatch(std::exchange(element->watch, 0));
  kept.socket_ = UniqueDescriptor(std::exchange(element->descriptor, -1));
  Shut(*element);
  return kept;
}

void SocketArray::Listen(std::int32_t index, KeptListener kept) {
  Element* element = Find(index);
  if (element == nullptr) return;
  if (element->localPort < 0 || element->localPort > 65535) throw SystemError(EADDRNOTAVAIL);
  if (element->state != SocketState::kClosed) throw SystemError(EINVAL);
  if (ListensOn(kept.socket_.Get(), element->localAddress, element->localPort)) {
    element->descriptor = kept.socket_.Release();
  } else {
    element->descriptor = OpenListener(element->localAddress, element->localPort);
  }
  SetState(*element, SocketState::kListening);
  if (UpdateWatch(*element)) return;
  Shut(*element);
  throw SystemError(ENOBUFS);
}

std::int32_t SocketArray::BoundPort(std::int32_t index) const {
  const Element* element = Find(index);
  if (element == nullptr || element->state != SocketState::kListening) return 0;
  sockaddr_in name{};
  socklen_t size = sizeof name;
  if (getsockname(element->descriptor, reinterpret_cast<sockaddr*>(&name), &size) != 0) return 0;
  return ntohs(name.sin_port);
}

void SocketArray::OfferWaiting(std::int32_t index) {
  Element* element = Find(index);
  if (element != nullptr && element->state == SocketState::kListening) ServeListener(*element, false);
}

// Offers what is in the listener's queue; `known` when the kernel has just told that something is. Otherwise it is
// asked, so that the owner never looks for a free element on behalf of nobody.
void SocketArray::ServeListener(Element& listener, bool known) {
  if (offered_ != nullptr) return;  // a connection request is not raised inside another; the event comes again
  const std::uint64_t generation = listener.generation;
  std::uint64_t heard = arrivalsTold_;
  int waiting = known || SomebodyWaits(listener.descriptor) ? 1 : 0;
  for (int taken = 0; taken < kAcceptsPerTurn; ++taken) {
    if (!MayTakeAnother(listener)) break;
    if (listener.generation != generation) return;
    // to take one that is not there is dear
    if (taken == 1 || arrivalsTold_ != heard) waiting = QueueLength(listener.descriptor);
    heard = arrivalsTold_;
    if (waiting-- <= 0) break;
    const OfferResult result = Offer(listener);
    if (listener.generation != generation) return;
    if (result == OfferResult::kRefused || result == OfferResult::kFailed) {
      Pause(listener);
      // one that came free behind the owner's back, as it yielded: not to be waited out
      if (result == OfferResult::kRefused && freedMeanwhile_) loop_.Post(*this, kResumeNotice);
      TellArrivals();
      return;
    }
    if (result == OfferResult::kGone) break;
  }
  listener.paused = false;
  UpdateWatch(listener);
  TellArrivals();
}

// Whether there is an element for one more connection, and room for its bytes, beside those that have arrived. Where
// there is not, these are served first.
bool SocketArray::MayTakeAnother(const Element& listener) {
  if (arrivalsBegin_ == arrivalsEnd_) return true;
  constexpr std::size_t kNone = kMaxIndex + 1;
  const Arrival& last = arrivals_[arrivalsEnd_ - 1];
  const bool hasRoom = arrivalsEnd_ < arrivals_.size() && last.begin + last.size + kLeastRoom <= chunk_.size();
  const bool hasElement = closed_.LowestFrom(static_cast<std::size_t>(listener.index) + 1, kNone) != kNone;
  if (loop_.TurnIsLong()) return false;
  if (hasRoom && hasElement) return true;
  DeliverArrivals(false);
  return arrivalsBegin_ == arrivalsEnd_;
}

SocketArray::OfferResult SocketArray::Offer(Element& listener) {
  offered_ = &listener;
  acceptedOn_ = -1;
  acceptGone_ = false;
  acceptFailed_ = false;
  freedMeanwhile_ = false;
  lastRequest_ = lastRequest_ < std::numeric_limits<std::int32_t>::max() ? lastRequest_ + 1 : 1;
  try {
    owner_.ConnectionRequest(listener.index, lastRequest_);
  } catch (...) {
    offered_ = nullptr;
    throw;
  }
  offered_ = nullptr;
  if (acceptFailed_) return OfferResult::kFailed;
  if (acceptGone_) return OfferResult::kGone;
  if (acceptedOn_ < 0) return OfferResult::kRefused;
  if (Element* accepted = FindConnected(acceptedOn_)) OrClose(*accepted, [&] { FirstBytes(*accepted); });
  return OfferResult::kTaken;
}

// Its bytes are there already (deferred accept), so they are read before the loop is asked to watch it.
void SocketArray::FirstBytes(Element& element) {
  if (element.outgoing != nullptr || element.sendFinished) {
    ServeConnection(element, true, false);
    return;
  }
  const bool alone = arrivalsBegin_ == arrivalsEnd_;
  const std::size_t begin = alone ? 0 : arrivals_[arrivalsEnd_ - 1].begin + arrivals_[arrivalsEnd_ - 1].size;
  const std::int64_t count = Receive(element, begin);
  if (count <= 0) {
    const std::uint64_t generation = element.generation;
    EndOfReading(element, count);
    AfterNotifications(element, generation);
    return;
  }
  if (!element.drained && !alone) {
    ReadOn(element, begin, static_cast<std::size_t>(count));
    return;
  }
  if (alone) arrivalsBegin_ = arrivalsEnd_ = 0;
  arrivals_[arrivalsEnd_++] = {element.index, element.generation, begin, static_cast<std::size_t>(count)};
  AnnounceArrivals();
}

// For bytes that have filled the rest of the chunk: more of them may be there, and the owner hears of as many as if
// their connection had been taken alone.
void SocketArray::ReadOn(Element& element, std::size_t begin, std::size_t size) {
  const std::uint64_t generation = element.generation;
  const std::string beginning(chunk_.data() + begin, size);
  DeliverArrivals(true);
  if (element.generation != generation || element.state != SocketState::kConnected) return;
  std::copy(beginning.begin(), beginning.end(), chunk_.begin());
  const std::int64_t more = Receive(element, size);
  if (more < 0 && errno == EAGAIN) element.drained = true;  // an end or an error is told of when the loop watches it
  Hear(element, 0, size + static_cast<std::size_t>(std::max<std::int64_t>(more, 0)));
  AfterNotifications(element, generation);
}

// A notice for those who yield before all that has arrived is told of, and in case the time runs out. False when there
// is no memory for one.
bool SocketArray::AnnounceArrivals() noexcept {
  if (arrivalsAnnounced_ || arrivalsBegin_ == arrivalsEnd_) return true;
  try {
    loop_.Post(*this, kArrivalsNotice);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return arrivalsAnnounced_ = true;
}

// Of one of those that have arrived the owner hears in any case; in a long turn that is enough.
void SocketArray::TellArrivals() {
  const bool mayWait = toldInPass_ == loop_.Passes() && loop_.TurnIsLong();
  if (!mayWait || !AnnounceArrivals()) DeliverArrivals(false);
}

// Tells of what has arrived: of the first in any case, of the rest until the turn has taken its time or, with `all`, to
// the end. As long as there is a rest a notice for it is under way.
void SocketArray::DeliverArrivals(bool all) {
  for (bool first = true; arrivalsBegin_ != arrivalsEnd_; first = false) {
    if (!first && loop_.TurnIsLong()) {
      if (!all) return;
      closings_.CloseAll();  // those that are answered need not wait for the rest
    }
    // whatever the owner does, the rest is not forgotten
    if (arrivalsEnd_ - arrivalsBegin_ > 1 && !AnnounceArrivals()) all = true;
    const Arrival next = arrivals_[arrivalsBegin_++];
    Element* element = Find(next.index);
    if (element == nullptr || element->generation != next.generation) continue;
    ++arrivalsTold_;
    toldInPass_ = loop_.Passes();
    OrClose(*element, [&] { Hear(*element, next.begin, next.size); });
    if (Element* same = Find(next.index)) AfterNotifications(*same, next.generation);
  }
}

// A connection whose owner failed to hear of it would be one that nobody watches.
template <typename Action>
void SocketArray::OrClose(const Element& element, const Action& action) {
  const std::int32_t index = element.index;
  const std::uint64_t generation = element.generation;
  try {
    action();
  } catch (...) {
    if (Generation(index) == generation) Close(index);
    throw;
  }
}

void SocketArray::Pause(Element& listener) {
  listener.paused = true;
  if (std::find(paused_.begin(), paused_.end(), listener.index) == paused_.end()) paused_.push_back(listener.index);
  UpdateWatch(listener);
  offerAgain_.Enabled(true);
}

void SocketArray::ResumeListeners() {
  if (offered_ != nullptr) return;
  offerAgain_.Enabled(false);
  for (const std::int32_t index : std::exchange(paused_, {})) {
    Element* listener = Find(index);
    if (listener != nullptr && listener->paused) ServeListener(*listener, false);
  }
}

SocketArray::AcceptResult SocketArray::Accept(std::int32_t index, std::int32_t requestID) {
  Element* element = Find(index);
  if (offered_ == nullptr || requestID != lastRequest_ || acceptedOn_ >= 0) return AcceptResult::kGone;
  if (element == nullptr || element->state != SocketState::kClosed) return AcceptResult::kFailed;
  std::uint32_t address = 0;
  int descriptor = AcceptFrom(offered_->descriptor, address);
  if (descriptor < 0 && IsShortage(errno) && !closings_.IsEmpty()) {
    closings_.CloseAll();
    descriptor = AcceptFrom(offered_->descriptor, address);
  }
  if (descriptor < 0) {
    (IsShortage(errno) ? acceptFailed_ : acceptGone_) = true;
    return acceptFailed_ ? AcceptResult::kFailed : AcceptResult::kGone;
  }
  element->descriptor = descriptor;
  element->peerAddress = address;
  element->generation = ++lastGeneration_;
  SetState(*element, SocketState::kConnected);
  acceptedOn_ = index;
  return AcceptResult::kAccepted;
}

// ---- Connections.

void SocketArray::ServeConnection(Element& element, bool readable, bool writable) {
  const std::uint64_t generation = element.generation;
  const auto same = [&] { return element.generation == generation; };
  if (writable && element.outgoing != nullptr && !Write(element)) return;
  if (same() && element.sendFinished) FinishSend(element);
  if (same() && readable && element.state == SocketState::kConnected && !element.peerEnded) Read(element);
  AfterNotifications(element, generation);
}

// What an element is due when its owner has heard of its bytes, or of their end.
void SocketArray::AfterNotifications(Element& element, std::uint64_t generation) {
  if (element.generation == generation && element.sendFinished) FinishSend(element);
  if (element.generation == generation && !UpdateWatch(element)) Fail(element, ENOBUFS);
}

// Reads into the chunk from `begin` on.
std::int64_t SocketArray::Receive(Element& element, std::size_t begin) {
  const std::size_t room = chunk_.size() - begin;
  const ssize_t count = recv(element.descriptor, chunk_.data() + begin, room, MSG_DONTWAIT);
  if (count > 0) element.drained = static_cast<std::size_t>(count) < room;
  return count;
}

void SocketArray::Read(Element& element) {
  const std::uint64_t generation = element.generation;
  DeliverArrivals(true);  // they lie in the chunk, and whoever sends on must not wait for those who come
  if (element.generation != generation || element.state != SocketState::kConnected) return;
  const std::int64_t count = Receive(element, 0);
  if (count > 0) {
    Hear(element, 0, static_cast<std::size_t>(count));
  } else {
    EndOfReading(element, count);
  }
}

void SocketArray::Hear(Element& element, std::size_t begin, std::size_t size) {
  heard_ = {chunk_.data() + begin, size};
  heardIndex_ = element.index;
  owner_.DataArrival(element.index, static_cast<std::int64_t>(size));
}

// After a read that brought nothing: `count` 0, or below 0 with errno.
void SocketArray::EndOfReading(Element& element, std::int64_t count) {
  if (count == 0) {
    PeerEnded(element);
  } else if (errno == EAGAIN || errno == EINTR) {
    element.drained = true;
  } else {
    Fail(element, errno);
  }
}

std::string_view SocketArray::GetData(std::int32_t index) {
  if (index != heardIndex_) return {};
  return heard_;
}

void SocketArray::PeerEnded(Element& element) {
  const std::uint64_t generation = element.generation;
  element.peerEnded = true;
  owner_.Close(element.index);  // the owner may still answer what has come
  if (element.generation == generation) FollowPeer(element);
}

// The state follows a peer that closed its side as soon as no answer is under way.
void SocketArray::FollowPeer(Element& element) {
  if (element.state != SocketState::kConnected || !element.peerEnded) return;
  if (element.answerPending || element.outgoing != nullptr || element.sendFinished) return;
  // nothing more can come or go: what is left is the state, until the element is reused
  loop_.Unwatch(std::exchange(element.watch, 0));
  close(std::exchange(element.descriptor, -1));
  SetState(element, SocketState::kClosing);
}

void SocketArray::AnswerPending(std::int32_t index, bool pending) {
  Element* element = FindConnected(index);
  if (element == nullptr) return;
  element->answerPending = pending;
  FollowPeer(*element);
}

void SocketArray::InputMayCome(std::int32_t index, bool mayCome) {
  if (Element* element = FindConnected(index)) element->inputMayCome = mayCome;
}

void SocketArray::SendData(std::int32_t index, Answer answer, AfterSend after) {
  Element* element = FindConnected(index);
  if (element == nullptr || element->outgoing != nullptr || element->sendFinished) {
    throw SocketFailure(SocketErrorNumber::kNotConnected);
  }
  Outgoing outgoing(std::move(answer), after == AfterSend::kCloses);
  const Outgoing::Result result = outgoing.Step(element->descriptor);
  if (result == Outgoing::Result::kFailed) throw SystemError(outgoing.Error());
  if (result == Outgoing::Result::kDone) {
    element->sendFinished = true;
    loop_.Post(*this, element->generation << kIndexBits | static_cast<std::uint64_t>(index));
    return;
  }
  element->outgoing = std::make_unique<Outgoing>(std::move(outgoing));
  if (UpdateWatch(*element)) return;
  element->outgoing.reset();
  throw SystemError(ENOBUFS);
}

// The next step of an answer that did not go out at once. False when the element failed.
bool SocketArray::Write(Element& element) {
  switch (element.outgoing->Step(element.descriptor)) {
    case Outgoing::Result::kDone:
      element.outgoing.reset();
      element.sendFinished = true;
      return true;
    case Outgoing::Result::kFailed:
      Fail(element, element.outgoing->Error());
      return false;
    default:
      return true;
  }
}

void SocketArray::FinishSend(Element& element) {
  const std::uint64_t generation = element.generation;
  element.sendFinished = false;
  owner_.SendComplete(element.index);
  if (element.generation == generation) FollowPeer(element);
}

void SocketArray::Fail(Element& element, int error) {
  loop_.Unwatch(std::exchange(element.watch, 0));
  close(std::exchange(element.descriptor, -1));
  element.outgoing.reset();
  element.sendFinished = false;
  SetState(element, SocketState::kError);
  const std::int32_t number = SocketErrorOf(error);
  owner_.SocketError(element.index, number, std::string(SocketErrorText(number)));
}

std::string SocketArray::RemoteHostIP(std::int32_t index) const {
  const Element* element = Find(index);
  if (element == nullptr || element->state != SocketState::kConnected) return {};
  return DottedText(element->peerAddress);
}

}  // namespace TesselServer
