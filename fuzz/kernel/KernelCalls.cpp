// The system calls of the library, in a program that is linked with -Wl,--wrap for each of kWrapped (CMakeLists.txt):
// those of sockets, events, pipes and children go to the pretended kernel, those of files to the real one, and those
// of either may fail as Faults says.
#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Require.h"
#include "fuzz/kernel/Faults.h"
#include "fuzz/kernel/Kernel.h"

namespace TesselServer::Pretended {
namespace {

Kernel& TheKernel() { return Kernel::The(); }
bool Fails(Call call) { return Faults::The().Fails(call); }

std::size_t FilePiece(std::size_t size) {
  const std::size_t piece = Faults::The().filePiece;
  return piece > 0 ? std::min(piece, size) : size;
}

constexpr std::uint16_t kClientPort = 50000;

// `host` as the network has it.
void Name(std::uint32_t host, std::uint16_t port, sockaddr* address, socklen_t* size) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr.s_addr = host;
  std::memcpy(address, &name, std::min<std::size_t>(*size, sizeof name));
  *size = sizeof name;
}

}  // namespace
}  // namespace TesselServer::Pretended

using namespace TesselServer::Pretended;

extern "C" {

int __real_close(int);
long __real_syscall(long, long, long, long, long, long, long);
int __real_open(const char*, int, ...);
int __real_openat(int, const char*, int, ...);
int __real_fcntl(int, int, ...);
int __real_ioctl(int, unsigned long, ...);
int __real_fstat(int, struct stat*);
int __real_fstatat(int, const char*, struct stat*, int);
int __real_stat(const char*, struct stat*);
ssize_t __real_pread(int, void*, std::size_t, off_t);
ssize_t __real_preadv2(int, const iovec*, int, off_t, int);
ssize_t __real_getdents64(int, void*, std::size_t);
ssize_t __real_read(int, void*, std::size_t);
ssize_t __real_write(int, const void*, std::size_t);
int __real_poll(pollfd*, nfds_t, int);

// ---- Descriptors of all kinds.

int __wrap_close(int descriptor) {
  return Kernel::IsPretended(descriptor) ? TheKernel().Close(descriptor) : __real_close(descriptor);
}

ssize_t __wrap_read(int descriptor, void* bytes, std::size_t size) {
  if (!Kernel::IsPretended(descriptor)) return __real_read(descriptor, bytes, size);
  if (TheKernel().At(descriptor).kind == Object::Kind::kReadEnd && Fails(Call::kReadOutput)) return -1;
  return TheKernel().Read(descriptor, bytes, size);
}

ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t size) {
  return Kernel::IsPretended(descriptor) ? TheKernel().Write(descriptor, bytes, size)
                                         : __real_write(descriptor, bytes, size);
}

int __wrap_fcntl(int descriptor, int what, ...) {
  va_list more;
  va_start(more, what);
  const long value = va_arg(more, long);
  va_end(more);
  if (Kernel::IsPretended(descriptor)) {
    TesselServer::Require(what == F_SETFL, "of a pretended descriptor only the flags are set");
    TheKernel().At(descriptor).mayWait = (value & O_NONBLOCK) == 0;
    return 0;
  }
  if (what == F_DUPFD_CLOEXEC && Fails(Call::kDuplicate)) return -1;
  return __real_fcntl(descriptor, what, value);
}

int __wrap_ioctl(int descriptor, unsigned long what, ...) {
  va_list more;
  va_start(more, what);
  void* const value = va_arg(more, void*);
  va_end(more);
  if (!Kernel::IsPretended(descriptor)) return __real_ioctl(descriptor, what, value);
  TesselServer::Require(what == FIONREAD, "of a connection only the unread bytes are asked for");
  *static_cast<int*>(value) = static_cast<int>(TheKernel().At(descriptor).client->unread.size());
  return 0;
}

int __wrap_poll(pollfd* watched, nfds_t count, int milliseconds) {
  if (count != 1 || !Kernel::IsPretended(watched->fd)) return __real_poll(watched, count, milliseconds);
  watched->revents = TheKernel().IsReadable(watched->fd) ? POLLIN : short{0};
  return watched->revents != 0 ? 1 : 0;
}

// ---- Events.

int __wrap_epoll_create1(int) { return TheKernel().Open(Object::Kind::kEpoll); }
int __wrap_eventfd(unsigned, int) { return TheKernel().Open(Object::Kind::kEvent); }
int __wrap_timerfd_create(int, int) { return TheKernel().Open(Object::Kind::kTimer); }

int __wrap_timerfd_settime(int descriptor, int, const itimerspec* value, itimerspec*) {
  const bool isOn = value->it_value.tv_sec != 0 || value->it_value.tv_nsec != 0;
  const std::int64_t milliseconds =
      std::int64_t{value->it_value.tv_sec} * 1000 + (std::int64_t{value->it_value.tv_nsec} + 999'999) / 1'000'000;
  TheKernel().SetTimer(descriptor, isOn ? milliseconds : -1);
  return 0;
}

int __wrap_epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event) {
  if (operation == EPOLL_CTL_ADD && Fails(Call::kWatch)) return -1;
  return TheKernel().EpollControl(epoll, operation, descriptor, event);
}

int __wrap_epoll_wait(int epoll, epoll_event* events, int most, int milliseconds) {
  if (Fails(Call::kEvents)) return -1;
  const int count = TheKernel().EpollWait(epoll, events, most);
  TesselServer::Require(count > 0 || milliseconds == 0, "no turn waits");
  return count;
}

// ---- Sockets.

int __wrap_socket(int, int, int) { return Fails(Call::kSocket) ? -1 : TheKernel().Open(Object::Kind::kSocket); }

int __wrap_bind(int descriptor, const sockaddr* address, socklen_t) {
  if (Fails(Call::kBind)) return -1;
  sockaddr_in name{};
  std::memcpy(&name, address, sizeof name);
  return TheKernel().Bind(descriptor, name.sin_addr.s_addr, ntohs(name.sin_port));
}

int __wrap_listen(int descriptor, int) { return Fails(Call::kListen) ? -1 : TheKernel().Listen(descriptor); }

int __wrap_accept4(int descriptor, sockaddr* address, socklen_t* size, int) {
  if (Fails(Call::kAccept)) return -1;
  const int accepted = TheKernel().Accept(descriptor);
  if (accepted >= 0) Name(htonl(INADDR_LOOPBACK), kClientPort, address, size);
  return accepted;
}

int __wrap_getsockname(int descriptor, sockaddr* address, socklen_t* size) {
  const Object& socket = TheKernel().At(descriptor);
  Name(socket.address, socket.port, address, size);
  return 0;
}

int __wrap_getpeername(int descriptor, sockaddr* address, socklen_t* size) {
  TheKernel().At(descriptor);
  Name(htonl(INADDR_LOOPBACK), kClientPort, address, size);
  return 0;
}

int __wrap_setsockopt(int descriptor, int, int, const void*, socklen_t) {
  TheKernel().At(descriptor);
  return 0;
}

int __wrap_getsockopt(int descriptor, int, int name, void* value, socklen_t*) {
  const int answer = name == SO_ACCEPTCONN && TheKernel().At(descriptor).listens ? 1 : 0;
  std::memcpy(value, &answer, sizeof answer);
  return 0;
}

ssize_t __wrap_recv(int descriptor, void* bytes, std::size_t size, int flags) {
  return Fails(Call::kReceive) ? -1 : TheKernel().Receive(descriptor, bytes, size, (flags & MSG_TRUNC) != 0);
}

ssize_t __wrap_sendmsg(int descriptor, const msghdr* message, int) {
  if (Fails(Call::kSend)) return -1;
  std::string bytes;
  for (std::size_t i = 0; i < message->msg_iovlen; ++i) {
    bytes.append(static_cast<const char*>(message->msg_iov[i].iov_base), message->msg_iov[i].iov_len);
  }
  return TheKernel().Send(descriptor, bytes);
}

ssize_t __wrap_sendfile(int descriptor, int file, off_t* offset, std::size_t count) {
  if (Fails(Call::kSendFile)) return -1;
  std::vector<char> bytes(
      std::min({count, std::max<std::size_t>(TheKernel().Room(descriptor), 1), std::size_t{65536}}));
  const ssize_t got = __real_pread(file, bytes.data(), FilePiece(bytes.size()), *offset);
  if (got <= 0) return got;
  const ssize_t sent = TheKernel().Send(descriptor, {bytes.data(), static_cast<std::size_t>(got)});
  if (sent > 0) *offset += sent;
  return sent;
}

int __wrap_shutdown(int descriptor, int) { return TheKernel().ShutDown(descriptor); }

// ---- Programs.

int __wrap_pipe2(int* ends, int) { return Fails(Call::kPipe) ? -1 : TheKernel().MakePipe(ends); }

int __wrap_clone(int (*)(void*), void*, int, void*, ...) { return Fails(Call::kClone) ? -1 : TheKernel().Start(); }

int __wrap_waitid(idtype_t, id_t number, siginfo_t* state, int options) {
  if (Fails(Call::kLookAtChild)) return -1;
  TesselServer::Require((options & WNOHANG) != 0, "no turn waits for a child");
  const ChildPointer child = TheKernel().Find(static_cast<pid_t>(number));
  state->si_pid = child->hasEnded ? child->number : 0;
  state->si_code = child->code;
  state->si_status = child->status;
  return 0;
}

pid_t __wrap_waitpid(pid_t number, int*, int options) {
  TesselServer::Require((options & WNOHANG) != 0, "no turn waits for a child");
  const ChildPointer child = TheKernel().Find(number);
  if (!child->hasEnded) return 0;
  child->isCollected = true;
  return number;
}

// ---- Files.

long __wrap_syscall(long number, long first, long second, long third, long fourth, long fifth, long sixth) {
  if (number == SYS_pidfd_open) {
    return Fails(Call::kChildHandle) ? -1 : TheKernel().OpenChild(static_cast<pid_t>(first));
  }
  if (number == SYS_openat2 && Fails(Call::kOpenFile)) return -1;
  return __real_syscall(number, first, second, third, fourth, fifth, sixth);
}

int __wrap_open(const char* path, int flags, mode_t mode) {
  if (std::string_view(path) == "/dev/null" && Fails(Call::kOpenNothing)) return -1;
  return __real_open(path, flags, mode);
}

int __wrap_openat(int folder, const char* path, int flags, mode_t mode) {
  return Fails(Call::kOpenFile) ? -1 : __real_openat(folder, path, flags, mode);
}

int __wrap_fstat(int descriptor, struct stat* status) {
  return Fails(Call::kAskFile) ? -1 : __real_fstat(descriptor, status);
}

int __wrap_fstatat(int folder, const char* path, struct stat* status, int flags) {
  return Fails(Call::kAskFile) ? -1 : __real_fstatat(folder, path, status, flags);
}

int __wrap_stat(const char* path, struct stat* status) {
  return Fails(Call::kAskFile) ? -1 : __real_stat(path, status);
}

ssize_t __wrap_pread(int descriptor, void* bytes, std::size_t size, off_t offset) {
  return Fails(Call::kReadFile) ? -1 : __real_pread(descriptor, bytes, FilePiece(size), offset);
}

ssize_t __wrap_preadv2(int descriptor, const iovec* parts, int count, off_t offset, int flags) {
  if (Fails(Call::kReadFileAtOnce)) return -1;
  iovec first = parts[0];
  first.iov_len = FilePiece(first.iov_len);
  return count == 1 ? __real_preadv2(descriptor, &first, 1, offset, flags)
                    : __real_preadv2(descriptor, parts, count, offset, flags);
}

ssize_t __wrap_getdents64(int descriptor, void* entries, std::size_t size) {
  return Fails(Call::kListFolder) ? -1 : __real_getdents64(descriptor, entries, size);
}

}  // extern "C"
