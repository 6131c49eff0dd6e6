// Connections that have sent half a request and then keep silent.
//
// Thread:    any.
// Ownership: closes them at its end.
// Errors:    std::system_error when one cannot be made.
#pragma once

#include <cstdint>
#include <vector>

#include "benchmarks/comparison/Sockets.h"

namespace Comparison {

class HeldConnections {
 public:
  HeldConnections(const Route& route, std::int64_t count);
  HeldConnections(const HeldConnections&) = delete;
  HeldConnections& operator=(const HeldConnections&) = delete;
  ~HeldConnections();

  // How many were made.
  std::size_t Count() const { return sockets_.size(); }

  // How many the server has neither closed nor answered.
  std::int64_t CountAlive() const;

 private:
  std::vector<int> sockets_;
};

}  // namespace Comparison
