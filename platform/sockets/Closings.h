// Connections that are to be closed, a few together: one question to the system for all of them, whether a client has
// sent more than was read, and one call for all descriptors that follow one another. What their last bytes waited for
// goes out with the close (Outgoing), so their clients hear of them in one burst.
//
// Thread:    the loop's thread.
// Ownership: owns the descriptors given to it until they are closed or linger; closes them when it dies.
// Errors:    none.
#pragma once

#include <array>
#include <cstddef>

#include "platform/sockets/Lingering.h"

namespace TesselServer {

class Closings {
 public:
  // So many are closed together at most; one more is closed with those before it.
  static constexpr std::size_t kMost = 32;

  // Those of which bytes lie unread go on in `lingering`.
  explicit Closings(Lingering& lingering) : lingering_(lingering) {}
  Closings(const Closings&) = delete;
  Closings& operator=(const Closings&) = delete;
  ~Closings() { CloseAll(); }

  bool IsEmpty() const { return count_ == 0; }

  // Takes the connected socket over.
  void Add(int descriptor) noexcept;

  void CloseAll() noexcept;

 private:
  void LetUnreadLinger() noexcept;

  Lingering& lingering_;
  std::array<int, kMost> descriptors_;
  std::size_t count_ = 0;
};

}  // namespace TesselServer
