// Takes secrets out of memory.
#pragma once

#include <string>

namespace TesselServer {

// Overwrites the bytes of `text`, also where an optimising compiler would omit it, and empties it.
void Wipe(std::string& text);

}  // namespace TesselServer
