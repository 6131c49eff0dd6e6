// The connections of an owner that have ended on our side and linger until their peer ends too, or a short time has
// passed: what the peer still sends is read and dropped. A plain close would answer it with a reset, and a reset
// destroys the answer on its way to the peer.
//
// Thread:    the loop's thread.
// Ownership: owns the connections given to it.
// Errors:    none.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <utility>

#include "platform/loop/Timer.h"
#include "platform/sockets/TcpConnection.h"

namespace TesselServer {

class Lingering final : private TcpConnection::LingerClient {
 public:
  // How long a peer's end is waited for.
  static constexpr std::int64_t kMilliseconds = 2000;
  // How many may linger at once; one more closes the one that has lingered longest.
  static constexpr std::size_t kMaxCount = 256;

  explicit Lingering(EventLoop& loop);

  // Ends the connection. Taken over is one that lingers, and `connection` is then empty; any other is closed, as one is
  // for want of memory.
  void End(std::shared_ptr<TcpConnection>& connection) noexcept;

  std::size_t Count() const { return entries_.size(); }

 private:
  struct Entry {
    std::shared_ptr<TcpConnection> connection;
    std::int64_t due;
  };

  void OnLingered(TcpConnection& connection) override;
  void Take(std::shared_ptr<TcpConnection>& connection);
  void CloseOverdue();
  void Remove(std::list<Entry>::iterator entry);

  EventLoop& loop_;
  Timer timer_;               // runs while there are any
  std::list<Entry> entries_;  // the oldest first
};

}  // namespace TesselServer
