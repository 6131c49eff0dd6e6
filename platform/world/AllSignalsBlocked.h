// Blocks every signal for this thread, and for the threads and children that it starts, for as long as it lives: no
// handler of the host runs in what is started. Platform only.
//
// Thread:    any; it is destroyed on the thread that made it.
// Errors:    none.
#pragma once

#include <csignal>

namespace TesselServer {

class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace TesselServer
