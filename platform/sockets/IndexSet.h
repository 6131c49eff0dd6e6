// A set of small numbers that knows its lowest member without walking: which socket elements are free.
//
// Thread:    any one at a time.
// Errors:    none; a number never added is simply not in the set.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace TesselServer {

// Two levels of bits: a word of `summary_` tells which of 64 words of `words_` are not empty, so a look-up among
// 10,000 elements reads a handful of words.
class IndexSet {
 public:
  void Add(std::size_t index) {
    const std::size_t word = index / 64;
    if (word >= words_.size()) {
      words_.resize(word + 1);
      summary_.resize(word / 64 + 1);
    }
    words_[word] |= Bit(index);
    summary_[word / 64] |= Bit(word);
  }

  void Remove(std::size_t index) {
    const std::size_t word = index / 64;
    if (word >= words_.size()) return;
    words_[word] &= ~Bit(index);
    if (words_[word] == 0) summary_[word / 64] &= ~Bit(word);
  }

  bool Contains(std::size_t index) const {
    const std::size_t word = index / 64;
    return word < words_.size() && (words_[word] & Bit(index)) != 0;
  }

  // The lowest member of at least `from`, or `none` when there is none.
  std::size_t LowestFrom(std::size_t from, std::size_t none) const {
    const std::size_t word = from / 64;
    if (word >= words_.size()) return none;
    if (const std::uint64_t rest = words_[word] & (~std::uint64_t{0} << (from % 64))) return word * 64 + Lowest(rest);
    for (std::size_t group = (word + 1) / 64; group < summary_.size(); ++group) {
      std::uint64_t candidates = summary_[group];
      if (group == (word + 1) / 64) candidates &= ~std::uint64_t{0} << ((word + 1) % 64);
      if (candidates == 0) continue;
      const std::size_t found = group * 64 + Lowest(candidates);
      return found * 64 + Lowest(words_[found]);
    }
    return none;
  }

 private:
  static std::uint64_t Bit(std::size_t index) { return std::uint64_t{1} << (index % 64); }
  static std::size_t Lowest(std::uint64_t bits) { return static_cast<std::size_t>(std::countr_zero(bits)); }

  std::vector<std::uint64_t> words_;
  std::vector<std::uint64_t> summary_;
};

}  // namespace TesselServer
