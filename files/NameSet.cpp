#include "files/NameSet.h"

#include <new>

namespace TesselServer {

bool NameSet::Add(std::string_view name) {
  const std::uint64_t hash = HashOf(name);
  if (nodes_ == 0) NewNode();
  std::uint64_t node = 0;
  for (unsigned shift = kHashBits - kBitsOfStep;; shift -= kBitsOfStep) {
    std::uint64_t& place = At(node)[StepOf(hash, shift)];
    if (place == hash) return false;
    if (place == 0) {
      place = hash;
      return true;
    }
    if (place % 2 != 0) {  // another one, which moves on by one step
      const std::uint64_t other = place;
      const std::uint64_t below = NewNode();
      At(below)[StepOf(other, shift - kBitsOfStep)] = other;
      place = 2 * below;
    }
    node = place / 2;
  }
}

std::uint64_t NameSet::NewNode() {
  if (nodes_ == blocks_.size() * kNodesOfBlock) {
    blocks_.push_back(new (memory_.allocate(sizeof(Block), alignof(Block))) Block());
  }
  return nodes_++;
}

}  // namespace TesselServer
