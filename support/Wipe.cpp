#include "support/Wipe.h"

namespace TesselServer {

void Wipe(std::string& text) {
  text.resize(text.capacity());  // what was there before it became shorter is overwritten as well
  volatile char* bytes = text.data();
  for (std::size_t i = 0; i < text.size(); ++i) bytes[i] = 0;
  text.clear();
}

}  // namespace TesselServer
