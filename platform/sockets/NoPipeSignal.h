// Keeps the SIGPIPE of a write that nobody reads away from the host, as long as it lives: the signal stays blocked for
// this thread, and one that came meanwhile is taken back; one that was pending before is not. For the calls that have
// no flag for it, write(2) and sendfile(2). The latter may raise it whatever it answers: the peer can go after the
// first bytes.
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
