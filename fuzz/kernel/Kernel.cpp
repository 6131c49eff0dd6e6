#include "fuzz/kernel/Kernel.h"

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "fuzz/Require.h"

namespace TesselServer::Pretended {
namespace {

int Failure(int error) {
  errno = error;
  return -1;
}

}  // namespace

Kernel& Kernel::The() {
  static Kernel kernel;
  return kernel;
}

// ---- The script's side.

void Kernel::Reset(std::function<std::int64_t()> now) {
  *this = Kernel();
  now_ = std::move(now);
}

Object* Kernel::Listener() {
  for (auto& [descriptor, object] : objects_) {
    if (object->listens) return object.get();
  }
  return nullptr;
}

bool Kernel::Connect(const ClientPointer& client) {
  Object* const listener = Listener();
  if (listener == nullptr) {
    client->wasRefused = true;
    return false;
  }
  listener->pending.push_back(client);
  return true;
}

std::size_t Kernel::OpenConnections() const {
  return static_cast<std::size_t>(std::count_if(objects_.begin(), objects_.end(), [](const auto& each) {
    return each.second->kind == Object::Kind::kConnection;
  }));
}

void Kernel::Print(Child& child, std::string_view text) {
  if (!child.output->isHeldByChild) return;
  child.output->bytes += text;
  child.printed += text;
}

void Kernel::End(Child& child, int code, int status) {
  if (child.hasEnded) return;
  child.hasEnded = true;
  child.code = code;
  child.status = status;
}

bool Kernel::IsReadable(int descriptor) { return (Ready(At(descriptor)) & EPOLLIN) != 0; }

// ---- Descriptors.

Object& Kernel::At(int descriptor) {
  const auto found = objects_.find(descriptor);
  Require(found != objects_.end(), "a descriptor is used as long as it is open");
  return *found->second;
}

// As the system does, the lowest free number, so that a stale one soon means another thing.
int Kernel::Add(std::shared_ptr<Object> object) {
  int number = kFirstDescriptor;
  while (objects_.contains(number)) ++number;
  objects_.emplace(number, std::move(object));
  return number;
}

int Kernel::Close(int descriptor) {
  Object& object = At(descriptor);
  if (object.client) {
    object.client->serverHasEnded = object.client->serverHasClosed = true;
    object.client->lostUnread = !object.client->unread.empty();
  }
  for (const ClientPointer& each : object.pending) each->wasRefused = true;
  if (object.kind == Object::Kind::kWriteEnd) object.pipe->isHeldByParent = false;
  objects_.erase(descriptor);
  for (auto& [number, other] : objects_) other->watched.erase(descriptor);
  return 0;
}

// ---- Events.

std::uint32_t Kernel::ReadyOfConnection(const Client& client) const {
  std::uint32_t ready = 0;
  if (client.isGone) return EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLHUP | (client.resetIsKnown ? 0u : EPOLLERR);
  if (!client.unread.empty() || client.hasEnded) ready |= EPOLLIN;
  if (client.hasEnded) ready |= EPOLLRDHUP;
  if (client.window > 0) ready |= EPOLLOUT;
  if (client.hasEnded && client.serverHasEnded) ready |= EPOLLHUP;
  return ready;
}

std::uint32_t Kernel::Ready(const Object& object) const {
  using Kind = Object::Kind;
  switch (object.kind) {
    case Kind::kEpoll:
      return std::any_of(object.watched.begin(), object.watched.end(),
                         [&](const auto& each) {
                           const auto found = objects_.find(each.first);
                           const auto wanted = each.second.events | EPOLLERR | EPOLLHUP;
                           return found != objects_.end() && (Ready(*found->second) & wanted) != 0;
                         })
                 ? std::uint32_t{EPOLLIN}
                 : 0u;
    case Kind::kEvent:
      return object.count > 0 ? EPOLLIN | EPOLLOUT : std::uint32_t{EPOLLOUT};
    case Kind::kTimer:
      return object.due >= 0 && now_() >= object.due ? std::uint32_t{EPOLLIN} : 0u;
    case Kind::kSocket:
      return !object.pending.empty() ? std::uint32_t{EPOLLIN} : 0u;
    case Kind::kConnection:
      return ReadyOfConnection(*object.client);
    case Kind::kReadEnd:
      return (object.pipe->bytes.empty() ? 0u : std::uint32_t{EPOLLIN}) |
             (object.pipe->isHeldByParent || object.pipe->isHeldByChild ? 0u : std::uint32_t{EPOLLHUP});
    case Kind::kChild:
      return object.child->hasEnded ? std::uint32_t{EPOLLIN} : 0u;
    case Kind::kWriteEnd:
      break;
  }
  return 0;
}

int Kernel::EpollControl(int epoll, int operation, int descriptor, epoll_event* event) {
  auto& watched = At(epoll).watched;
  At(descriptor);
  Require(watched.contains(descriptor) == (operation != EPOLL_CTL_ADD), "watches are put, changed and taken in order");
  if (operation == EPOLL_CTL_DEL) {
    watched.erase(descriptor);
  } else {
    watched[descriptor] = {event->events, event->data};
  }
  return 0;
}

int Kernel::EpollWait(int epoll, epoll_event* events, int most) {
  std::vector<epoll_event> due;
  for (const auto& [descriptor, interest] : At(epoll).watched) {
    const std::uint32_t ready = Ready(At(descriptor)) & (interest.events | EPOLLERR | EPOLLHUP);
    if (ready == 0) continue;
    epoll_event event{};
    event.events = ready;
    event.data = interest.data;
    due.push_back(event);
  }
  if (due.empty()) return 0;
  std::rotate(due.begin(), due.begin() + static_cast<std::ptrdiff_t>(order % due.size()), due.end());
  const std::size_t count = std::min(due.size(), static_cast<std::size_t>(most));
  std::copy_n(due.begin(), count, events);
  return static_cast<int>(count);
}

void Kernel::SetTimer(int descriptor, std::int64_t inMilliseconds) {
  At(descriptor).due = inMilliseconds < 0 ? -1 : now_() + inMilliseconds;
}

// ---- Bytes of events and programs.

ssize_t Kernel::Read(int descriptor, void* bytes, std::size_t size) {
  Object& object = At(descriptor);
  if (object.kind == Object::Kind::kEvent) {
    if (object.count == 0) return Failure(EAGAIN);
    std::memcpy(bytes, &object.count, sizeof object.count);
    object.count = 0;
    return sizeof object.count;
  }
  Require(object.kind == Object::Kind::kReadEnd, "what is read can be read");
  Pipe& pipe = *object.pipe;
  if (!pipe.bytes.empty()) {
    const std::size_t count = pipe.bytes.copy(static_cast<char*>(bytes), size);
    pipe.bytes.erase(0, count);
    return static_cast<ssize_t>(count);
  }
  if (!pipe.isHeldByParent && !pipe.isHeldByChild) return 0;
  Require(!object.mayWait, "no read waits for a program");
  return Failure(EAGAIN);
}

ssize_t Kernel::Write(int descriptor, const void* bytes, std::size_t size) {
  Object& object = At(descriptor);
  Require(object.kind == Object::Kind::kEvent && size == sizeof object.count, "what is written can be written");
  std::uint64_t added = 0;
  std::memcpy(&added, bytes, sizeof added);
  object.count += added;
  return static_cast<ssize_t>(size);
}

// ---- Sockets.

int Kernel::Bind(int descriptor, std::uint32_t address, std::uint16_t port) {
  if (port == 0) port = nextPort_++;
  for (const auto& [number, other] : objects_) {
    if (number != descriptor && other->listens && other->port == port) return Failure(EADDRINUSE);
  }
  At(descriptor).address = address;
  At(descriptor).port = port;
  return 0;
}

int Kernel::Listen(int descriptor) {
  At(descriptor).listens = true;
  return 0;
}

int Kernel::Accept(int descriptor) {
  Object& listener = At(descriptor);
  Require(listener.listens, "a socket accepts that listens");
  if (listener.pending.empty()) return Failure(EAGAIN);
  auto connection = std::make_shared<Object>(Object::Kind::kConnection);
  connection->client = listener.pending.front();
  connection->client->wasAccepted = true;
  listener.pending.pop_front();
  return Add(std::move(connection));
}

ssize_t Kernel::Receive(int descriptor, void* bytes, std::size_t size, bool drop) {
  Object& object = At(descriptor);
  Require(object.kind == Object::Kind::kConnection, "a connection is received from");
  Client& client = *object.client;
  if (client.isGone) return std::exchange(client.resetIsKnown, true) ? 0 : Failure(ECONNRESET);
  if (client.unread.empty()) return client.hasEnded ? 0 : Failure(EAGAIN);
  Require(size > 0, "what is received has room");
  const std::size_t count = std::min({client.readPiece, size, client.unread.size()});
  if (!drop) {
    std::memcpy(bytes, client.unread.data(), count);
    client.read += count;
  }
  client.unread.erase(0, count);
  return static_cast<ssize_t>(count);
}

std::size_t Kernel::Room(int descriptor) {
  const Client& client = *At(descriptor).client;
  return std::min(client.window, client.sendPiece);
}

ssize_t Kernel::Send(int descriptor, std::string_view bytes) {
  Object& object = At(descriptor);
  Require(object.kind == Object::Kind::kConnection, "a connection is sent to");
  Client& client = *object.client;
  Require(!client.serverHasEnded, "nothing is sent after the end");
  if (client.isGone) return Failure(std::exchange(client.resetIsKnown, true) ? EPIPE : ECONNRESET);
  if (client.window == 0) return Failure(EAGAIN);
  const std::size_t count = std::min(Room(descriptor), bytes.size());
  client.got += bytes.substr(0, count);
  if (client.window != kUnlimited) client.window -= count;
  return static_cast<ssize_t>(count);
}

int Kernel::ShutDown(int descriptor) {
  Object& object = At(descriptor);
  Require(object.kind == Object::Kind::kConnection, "a connection is shut down");
  object.client->serverHasEnded = true;
  return object.client->isGone ? Failure(ENOTCONN) : 0;
}

// ---- Programs.

int Kernel::MakePipe(int* ends) {
  lastPipe_ = std::make_shared<Pipe>();
  for (const auto kind : {Object::Kind::kReadEnd, Object::Kind::kWriteEnd}) {
    auto end = std::make_shared<Object>(kind);
    end->pipe = lastPipe_;
    *ends++ = Add(std::move(end));
  }
  return 0;
}

pid_t Kernel::Start() {
  auto child = std::make_shared<Child>();
  child->number = kFirstChild + static_cast<pid_t>(children_.size());
  child->output = lastPipe_;
  child->output->isHeldByChild = true;
  children_.push_back(child);
  return child->number;
}

ChildPointer Kernel::Find(pid_t number) const {
  const auto place = static_cast<std::size_t>(number - kFirstChild);
  Require(number >= kFirstChild && place < children_.size(), "no other children are asked for");
  Require(!children_[place]->isCollected, "a child is collected once, and its number never used again");
  return children_[place];
}

int Kernel::OpenChild(pid_t number) {
  auto object = std::make_shared<Object>(Object::Kind::kChild);
  object->child = Find(number);
  return Add(std::move(object));
}

}  // namespace TesselServer::Pretended
