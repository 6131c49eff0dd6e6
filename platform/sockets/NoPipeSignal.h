// While an object exists, a write to a closed connection or pipe raises no SIGPIPE in the host: the signal stays
// blocked for this thread, and one that was raised meanwhile is discarded; one that was pending before is not. For the
// calls that have no flag for it, write(2) and sendfile(2). The latter may raise it whatever it returns: the peer can
// close after the first bytes.
//
// Thread:    the one that makes it.
// Errors:    none; errno stays as the call inside left it.
#pragma once

#include <csignal>

namespace TesselServer {

class NoPipeSignal {
 public:
  NoPipeSignal();
  NoPipeSignal(const NoPipeSignal&) = delete;
  NoPipeSignal& operator=(const NoPipeSignal&) = delete;
  ~NoPipeSignal();

 private:
  sigset_t pipe_{};
  sigset_t before_{};
  bool wasPending_ = false;
};

}  // namespace TesselServer
