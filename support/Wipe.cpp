#include "support/Wipe.h"

#include <cstring>

namespace TesselServer {

namespace {

// Called through a pointer that may have changed, so that no compiler can tell that the call has no use.
void* (*volatile overwrite)(void*, int, std::size_t) = std::memset;

}  // namespace

void Wipe(std::string& text) {
  text.resize(text.capacity());  // what was there before it became shorter is overwritten as well
  overwrite(text.data(), 0, text.size());
  text.clear();
}

}  // namespace TesselServer
