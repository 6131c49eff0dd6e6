// A bound on the bytes that several holders keep in memory at once, and one holder's share of it.
//
// Thread:    any one at a time.
// Ownership: a share remembers the budget it last took from, which outlives it, and gives its bytes back when it dies.
// Errors:    none; what does not fit is refused.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

namespace TesselServer {

class MemoryBudget {
 public:
  explicit MemoryBudget(std::int64_t limit) : limit_(limit) {}
  MemoryBudget(const MemoryBudget&) = delete;
  MemoryBudget& operator=(const MemoryBudget&) = delete;

  // Property Limit (read/write): the bytes that all shares may have together; a negative value becomes 0. Shares that
  // are beyond a lowered limit keep what they have, and get no more.
  std::int64_t Limit() const { return limit_; }
  void Limit(std::int64_t value) { limit_ = std::max<std::int64_t>(value, 0); }

  // What all shares have together.
  std::int64_t Used() const { return used_; }

 private:
  friend class MemoryShare;
  std::int64_t limit_;
  std::int64_t used_ = 0;
};

//   MemoryBudget budget(100);
//   MemoryShare a, b;
//   a.Resize(budget, 80);  // true
//   b.Resize(budget, 30);  // false: b has nothing
//   a.Resize(budget, 70);
//   b.Resize(budget, 30);  // true
class MemoryShare {
 public:
  MemoryShare() = default;
  MemoryShare(MemoryShare&& other) noexcept
      : budget_(std::exchange(other.budget_, nullptr)), bytes_(std::exchange(other.bytes_, 0)) {}
  MemoryShare& operator=(MemoryShare&&) = delete;
  ~MemoryShare() { Release(); }

  // Whether Resize would succeed. `bytes` is not negative.
  bool Fits(const MemoryBudget& budget, std::int64_t bytes) const {
    return bytes <= bytes_ || budget.used_ - bytes_ <= budget.limit_ - bytes;
  }

  // Makes the share `bytes` large in all. False, and it stays as it is, when there is no room for a larger one.
  bool Resize(MemoryBudget& budget, std::int64_t bytes) {
    if (!Fits(budget, bytes)) return false;
    Release();
    budget_ = &budget;
    bytes_ = bytes;
    budget.used_ += bytes;
    return true;
  }

  // Makes it so much larger.
  bool Grow(MemoryBudget& budget, std::int64_t bytes) { return Resize(budget, bytes_ + bytes); }

  // Gives everything back.
  void Release() {
    if (budget_ != nullptr) budget_->used_ -= bytes_;
    budget_ = nullptr;
    bytes_ = 0;
  }

 private:
  MemoryBudget* budget_ = nullptr;
  std::int64_t bytes_ = 0;
};

}  // namespace TesselServer
