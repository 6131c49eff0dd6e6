// Takes secrets out of memory.
#pragma once

#include <string>

namespace TesselServer {

// Overwrites the bytes of `text`, which the compiler may not leave out though nobody reads them again, and empties it.
void Wipe(std::string& text);

}  // namespace TesselServer
