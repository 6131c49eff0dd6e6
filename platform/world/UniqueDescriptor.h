// A descriptor that is closed at the end of its scope.
//
// Thread:    any.
// Ownership: owns the descriptor it was made with.
// Errors:    none; a negative number is no descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace TesselServer {

class UniqueDescriptor {
 public:
  explicit UniqueDescriptor(int descriptor) : descriptor_(descriptor) {}
  UniqueDescriptor(UniqueDescriptor&& other) noexcept : descriptor_(other.Release()) {}
  UniqueDescriptor& operator=(UniqueDescriptor&& other) noexcept {
    UniqueDescriptor old(std::exchange(descriptor_, other.Release()));
    return *this;
  }
  ~UniqueDescriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  int Get() const { return descriptor_; }
  bool IsOpen() const { return descriptor_ >= 0; }

  // Hands the descriptor over to the caller.
  int Release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_;
};

}  // namespace TesselServer
