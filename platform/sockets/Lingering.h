// Connections that were closed while their client could still be sending: the write side is shut down, what arrives is
// read and dropped until the client closes its side or a short time passes, and only then is the descriptor closed. A
// plain close would answer the unread bytes with a reset, and a reset destroys the answer on its way to the client.
//
// Thread:    the loop's thread.
// Ownership: owns the descriptors given to it; closes them all when it dies.
// Errors:    none.
#pragma once

#include <cstdint>
#include <deque>
#include <unordered_map>

#include "platform/loop/LoopCore.h"
#include "platform/loop/Timer.h"

namespace TesselServer {

class Lingering : private LoopClient {
 public:
  // How long a client's last bytes are waited for.
  static constexpr std::int64_t kMilliseconds = 2000;
  // How many may wait at once; one more closes the one that waited longest.
  static constexpr std::size_t kMaxCount = 256;
  // What one connection may have read and dropped in a turn.
  static constexpr std::size_t kBytesPerTurn = 64 * 1024;

  explicit Lingering(EventLoop& loop);
  Lingering(const Lingering&) = delete;
  Lingering& operator=(const Lingering&) = delete;
  ~Lingering();

  // Takes the connected socket over. For want of memory or watches it is closed at once.
  void Take(int descriptor) noexcept;

  std::size_t Count() const { return open_.size(); }

 private:
  struct Entry {
    int descriptor = -1;
    WatchId watch = 0;
  };

  void OnEvents(std::uint64_t cookie, std::uint32_t events) override;
  void OnNotice(std::uint64_t cookie) override;
  void Await(int descriptor, std::uint64_t number);
  void CloseOverdue();
  void End(std::uint64_t number);

  LoopCore& loop_;
  Timer timer_;
  std::uint64_t lastNumber_ = 0;
  std::unordered_map<std::uint64_t, Entry> open_;
  std::deque<std::pair<std::uint64_t, std::int64_t>> deadlines_;  // number, due; the oldest first
};

}  // namespace TesselServer
