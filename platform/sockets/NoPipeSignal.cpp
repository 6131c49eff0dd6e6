#include "platform/sockets/NoPipeSignal.h"

#include <cerrno>
#include <ctime>

namespace TesselServer {

NoPipeSignal::NoPipeSignal() {
  sigemptyset(&pipe_);
  sigaddset(&pipe_, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  if (sigismember(&before_, SIGPIPE) != 1) return;  // one that is not blocked is never pending
  sigset_t pending;
  sigemptyset(&pending);
  sigpending(&pending);
  wasPending_ = sigismember(&pending, SIGPIPE) == 1;
}

NoPipeSignal::~NoPipeSignal() {
  const int kept = errno;
  if (!wasPending_) {
    const timespec atOnce{};
    while (sigtimedwait(&pipe_, nullptr, &atOnce) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  errno = kept;
}

}  // namespace TesselServer
