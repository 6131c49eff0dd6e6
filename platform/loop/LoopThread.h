// Which thread a loop, and everything made for it, belongs to: the one that runs it. Before the first turn the loop may
// be made on one thread and handed to another; once a control has been started, it is the first thread that uses it.
//
// Thread:    any.
// Errors:    none; the public classes assert MayUse in debug builds.
#pragma once

#include <atomic>
#include <thread>

namespace TesselServer {

class LoopThread {
 public:
  // This thread runs a turn. False when another one ran the turn before.
  bool Run() {
    const std::thread::id own = std::this_thread::get_id();
    const std::thread::id before = owner_.exchange(own);
    turning_ = own;
    return !ran_.exchange(true) || before == own || before == std::thread::id();
  }
  void EndTurn() { turning_ = std::thread::id(); }
  // No thread runs the loop any more: it belongs to the next one that uses it.
  void Leave() { owner_ = std::thread::id(); }
  // Something on the loop has been started: from here on it belongs to the first thread that uses it.
  void Start() { started_ = true; }

  // Whether a turn runs on this thread now. To own the loop is not enough: another thread may be about to run it.
  bool RunsTurn() const { return turning_.load() == std::this_thread::get_id(); }

  // Whether this thread may use the loop and everything made for it.
  bool MayUse() {
    const std::thread::id own = std::this_thread::get_id();
    std::thread::id owner{};
    if (!started_ && !ran_) return owner_.load() == owner || owner_.load() == own;
    return owner_.compare_exchange_strong(owner, own) || owner == own;
  }

 private:
  std::atomic<std::thread::id> owner_{};
  std::atomic<std::thread::id> turning_{};
  std::atomic<bool> ran_ = false;
  std::atomic<bool> started_ = false;
};

}  // namespace TesselServer
