#include "tests/kit/FailNth.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <mutex>
#include <set>
#include <string_view>
#include <utility>

namespace TesselServer::Kit {
namespace {

struct Fault {
  std::string function;
  int left = 0;
  int error = 0;
  bool happened = false;
};
Fault fault;

// The calls that are held up.
struct Held {
  std::mutex mutex;
  std::condition_variable changed;
  std::string function;  // "": none is
  int calls = 0;         // that have come
  std::set<int> passes;  // the numbers of those that pass
};
Held held;
std::atomic<bool> anyIsHeld = false;

void HoldUp(std::string_view function) {
  if (!anyIsHeld) return;
  std::unique_lock lock(held.mutex);
  if (held.function != function) return;
  const int number = ++held.calls;
  held.changed.notify_all();
  held.changed.wait(lock, [number] { return held.function.empty() || held.passes.contains(number); });
}

// Whether this call of `function` is the one that fails; errno is set then.
bool Fails(std::string_view function) {
  HoldUp(function);
  if (fault.left == 0 || fault.function != function || --fault.left > 0) return false;
  fault.happened = true;
  errno = fault.error;
  return true;
}

// The function behind the one of the same name in this file.
template <typename Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

FailNth::FailNth(std::string function, int nth, int error) { fault = {std::move(function), nth, error, false}; }
FailNth::~FailNth() { fault = {}; }
bool FailNth::Happened() const { return fault.happened; }

HeldCall::HeldCall(std::string function) {
  const std::scoped_lock lock(held.mutex);
  held.function = std::move(function);
  held.calls = 0;
  held.passes.clear();
  anyIsHeld = true;
}
HeldCall::~HeldCall() { LetGo(); }
bool HeldCall::Holds(int calls) const {
  std::unique_lock lock(held.mutex);
  return held.changed.wait_for(lock, std::chrono::seconds(10), [calls] { return held.calls >= calls; });
}
void HeldCall::LetPass(int number) {
  const std::scoped_lock lock(held.mutex);
  held.passes.insert(number);
  held.changed.notify_all();
}
void HeldCall::LetGo() {
  const std::scoped_lock lock(held.mutex);
  held.function.clear();
  anyIsHeld = false;
  held.changed.notify_all();
}

}  // namespace TesselServer::Kit

using TesselServer::Kit::Fails;
using TesselServer::Kit::Real;

extern "C" {

int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags) {
  static const auto real = Real<decltype(&accept4)>("accept4");
  return Fails("accept4") ? -1 : real(descriptor, address, size, flags);
}

int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
  static const auto real = Real<decltype(&bind)>("bind");
  return Fails("bind") ? -1 : real(descriptor, address, size);
}

// As the library calls it: without the pointers that some flags ask for.
int clone(int (*function)(void*), void* stack, int flags, void* argument, ...) noexcept {
  static const auto real = Real<decltype(&clone)>("clone");
  return Fails("clone") ? -1 : real(function, stack, flags, argument);
}

int epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event) noexcept {
  static const auto real = Real<decltype(&epoll_ctl)>("epoll_ctl");
  return Fails("epoll_ctl") ? -1 : real(epoll, operation, descriptor, event);
}

int epoll_wait(int epoll, epoll_event* events, int most, int milliseconds) {
  static const auto real = Real<decltype(&epoll_wait)>("epoll_wait");
  return Fails("epoll_wait") ? -1 : real(epoll, events, most, milliseconds);
}

int listen(int descriptor, int backlog) noexcept {
  static const auto real = Real<decltype(&listen)>("listen");
  return Fails("listen") ? -1 : real(descriptor, backlog);
}

int open(const char* path, int flags, ...) {
  static const auto real = Real<decltype(&open)>("open");
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  return Fails("open") ? -1 : real(path, flags, mode);
}

int pipe2(int* ends, int flags) noexcept {
  static const auto real = Real<decltype(&pipe2)>("pipe2");
  return Fails("pipe2") ? -1 : real(ends, flags);
}

int poll(pollfd* watched, nfds_t count, int milliseconds) {
  static const auto real = Real<decltype(&poll)>("poll");
  return Fails("poll") ? -1 : real(watched, count, milliseconds);
}

ssize_t pread(int descriptor, void* bytes, std::size_t size, off_t offset) {
  static const auto real = Real<decltype(&pread)>("pread");
  return Fails("pread") ? -1 : real(descriptor, bytes, size, offset);
}

ssize_t preadv2(int descriptor, const iovec* rooms, int count, off_t offset, int flags) {
  static const auto real = Real<decltype(&preadv2)>("preadv2");
  return Fails("preadv2") ? -1 : real(descriptor, rooms, count, offset, flags);
}

ssize_t read(int descriptor, void* bytes, std::size_t size) {
  static const auto real = Real<decltype(&read)>("read");
  return Fails("read") ? -1 : real(descriptor, bytes, size);
}

ssize_t recv(int descriptor, void* bytes, std::size_t size, int flags) {
  static const auto real = Real<decltype(&recv)>("recv");
  return Fails("recv") ? -1 : real(descriptor, bytes, size, flags);
}

ssize_t sendfile(int out, int in, off_t* offset, std::size_t count) noexcept {
  static const auto real = Real<decltype(&sendfile)>("sendfile");
  return Fails("sendfile") ? -1 : real(out, in, offset, count);
}

ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
  static const auto real = Real<decltype(&sendmsg)>("sendmsg");
  return Fails("sendmsg") ? -1 : real(descriptor, message, flags);
}

int socket(int domain, int type, int protocol) noexcept {
  static const auto real = Real<decltype(&socket)>("socket");
  return Fails("socket") ? -1 : real(domain, type, protocol);
}

}  // extern "C"
