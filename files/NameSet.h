// A set of names, for what may have any number of them and must not keep its caller: it grows by a few KiB at a time,
// so no call takes longer than another, and goes in stretches.
//
// A name is kept as 63 bits of its hash. Of names with the same ones only the first is in the set: among a million
// names chance has that happen once in ten million times.
//
// Thread:    any one at a time.
// Ownership: keeps no names.
// Errors:    none but those of memory running out.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory_resource>
#include <string_view>
#include <vector>

#include "platform/loop/LongMemory.h"

namespace TesselServer {

class NameSet {
 public:
  // Adds the name. False when it was there.
  bool Add(std::string_view name);

  static constexpr std::size_t kBytesOfStep = 4096;  // how it grows

  // What the set takes of memory, some 40 bytes for each name.
  std::size_t Bytes() const { return blocks_.size() * sizeof(Block); }

 private:
  // A tree: the hash chooses the way four bits at a time. A place is 0, or a hash (odd), or twice the number of the
  // node where the way goes on (the first node, number 0, is never that).
  static constexpr unsigned kHashBits = 64;
  static constexpr unsigned kBitsOfStep = 4;
  static constexpr std::size_t kNodesOfBlock = 32;
  using Node = std::array<std::uint64_t, 1U << kBitsOfStep>;
  using Block = std::array<Node, kNodesOfBlock>;
  static_assert(sizeof(Block) == kBytesOfStep);

  static std::size_t StepOf(std::uint64_t hash, unsigned shift) { return (hash >> shift) % (1U << kBitsOfStep); }
  static std::uint64_t HashOf(std::string_view name) { return std::hash<std::string_view>()(name) | 1; }
  Node& At(std::uint64_t node) const { return (*blocks_[node / kNodesOfBlock])[node % kNodesOfBlock]; }
  std::uint64_t NewNode();

  // In pieces that double, so that a large set is given back in stretches.
  std::pmr::monotonic_buffer_resource memory_{kBytesOfStep, LongBlocks()};
  std::vector<Block*> blocks_;
  std::uint64_t nodes_ = 0;
};

}  // namespace TesselServer
