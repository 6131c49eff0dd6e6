// Counts the signals of one kind that reach the process, for as long as an object lives.
#pragma once

#include <csignal>

namespace TesselServer::Kit {

class SignalCounter {
 public:
  explicit SignalCounter(int signal) : signal_(signal) {
    count_ = 0;
    struct sigaction count {};
    count.sa_handler = [](int) { count_ = count_ + 1; };
    sigaction(signal_, &count, &before_);
  }
  SignalCounter(const SignalCounter&) = delete;
  SignalCounter& operator=(const SignalCounter&) = delete;
  ~SignalCounter() { sigaction(signal_, &before_, nullptr); }

  int Count() const { return count_; }

 private:
  static inline volatile std::sig_atomic_t count_ = 0;
  int signal_;
  struct sigaction before_ {};
};

}  // namespace TesselServer::Kit
