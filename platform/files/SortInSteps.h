// Sorts many values in small steps, so that other work may be done in between: short runs first, then ever longer ones
// merged from two. Equal values keep their order.
//
//   SortInSteps<int> sort({3, 1, 2});
//   while (!sort.Step(std::less<>())) DoOtherWork();
//   sort.Take();   // 1, 2, 3
//
// Each step takes some microseconds, and all of them together what std::sort does. Twice the memory of the values.
//
// Thread:    one.
// Ownership: keeps the values until they are taken.
// Errors:    the constructor throws std::bad_alloc.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace TesselServer {

template <typename Value>
class SortInSteps {
 public:
  static constexpr std::size_t kRun = 64;     // values that are sorted in one step
  static constexpr std::size_t kMerge = 256;  // values that are merged in one step

  explicit SortInSteps(std::vector<Value> values) : values_(std::move(values)) {
    merged_.reserve(values_.size() <= kRun ? 0 : values_.size());
  }

  // Does one step with `isLess`, which is the same each time. Whether the values are sorted.
  template <typename Less>
  bool Step(const Less& isLess) {
    if (done_ < values_.size() && width_ == 0) {
      SortRun(isLess);
    } else if (width_ < values_.size()) {
      Merge(isLess);
    }
    return width_ >= values_.size();
  }

  std::vector<Value> Take() { return std::move(values_); }

 private:
  template <typename Less>
  void SortRun(const Less& isLess) {
    const std::size_t end = std::min(done_ + kRun, values_.size());
    std::stable_sort(At(done_), At(end), isLess);
    done_ = end;
    if (done_ == values_.size()) BeginMerging(kRun);
  }

  template <typename Less>
  void Merge(const Less& isLess) {
    for (std::size_t i = 0; i < kMerge && merged_.size() < values_.size(); ++i) {
      if (merged_.size() == pairEnd_) NextPair();
      const bool isSecond = first_ == firstEnd_ || (second_ < pairEnd_ && isLess(values_[second_], values_[first_]));
      merged_.push_back(values_[isSecond ? second_++ : first_++]);
    }
    if (merged_.size() < values_.size()) return;
    values_.swap(merged_);
    BeginMerging(2 * width_);
  }

  void BeginMerging(std::size_t width) {
    width_ = width;
    pairEnd_ = 0;
    merged_.clear();
  }

  // The next two runs: the second one may be shorter, or none.
  void NextPair() {
    first_ = pairEnd_;
    second_ = firstEnd_ = std::min(first_ + width_, values_.size());
    pairEnd_ = std::min(firstEnd_ + width_, values_.size());
  }

  auto At(std::size_t place) { return values_.begin() + static_cast<std::ptrdiff_t>(place); }

  std::vector<Value> values_;
  std::vector<Value> merged_;
  std::size_t done_ = 0;   // values that lie in sorted runs, until all of them do
  std::size_t width_ = 0;  // of the sorted runs, then
  std::size_t first_ = 0, firstEnd_ = 0, second_ = 0, pairEnd_ = 0;
};

}  // namespace TesselServer
