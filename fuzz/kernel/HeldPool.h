// Threads of workers that are none: pieces of work wait until a script has them done, in any order.
//
// Thread:    one.
// Ownership: keeps the pieces; those that are never done are destroyed with it.
#pragma once

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "fuzz/kernel/Faults.h"
#include "platform/tasks/WorkerThreads.h"

namespace TesselServer::Pretended {

class HeldPool final : public WorkerThreads {
 public:
  bool Add(Workers::Kind, const void* owner, std::function<void()> work, std::int32_t) override {
    if (Faults::The().Fails(Call::kThread)) return false;
    pieces_.push_back({owner, std::move(work)});
    return true;
  }

  void Withdraw(const void* owner) noexcept override {
    std::erase_if(pieces_, [owner](const Piece& piece) { return piece.owner == owner; });
  }

  std::size_t Count() const { return pieces_.size(); }

  // Does one of the pieces, if there are any.
  void Do(std::size_t which) {
    if (pieces_.empty()) return;
    const auto place = pieces_.begin() + static_cast<std::ptrdiff_t>(which % pieces_.size());
    const auto piece = std::move(*place);
    pieces_.erase(place);
    piece.work();
  }

 private:
  struct Piece {
    const void* owner;
    std::function<void()> work;
  };

  std::vector<Piece> pieces_;
};

}  // namespace TesselServer::Pretended
