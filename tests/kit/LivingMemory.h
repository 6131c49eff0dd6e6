// Counts the memory that this thread gets by `new` and has not given back, in a program that links FailNthMemory.cpp.
//
//   const LivingMemory memory;
//   ...
//   memory.Bytes();  // of what was asked for since then and is still there, as glibc rounds it
#pragma once

#include <cstddef>

namespace TesselServer::Kit {

class LivingMemory {
 public:
  // One at a time.
  LivingMemory();
  LivingMemory(const LivingMemory&) = delete;
  LivingMemory& operator=(const LivingMemory&) = delete;
  ~LivingMemory();

  std::size_t Bytes() const;
};

}  // namespace TesselServer::Kit
