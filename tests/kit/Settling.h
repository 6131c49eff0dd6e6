// Files that may be remembered: what changed just now is not, so a test writes its files and waits until they count.
#pragma once

#include <chrono>
#include <thread>

#include "platform/files/FileStamp.h"

namespace TesselServer::Kit {

// Waits until everything written so far is settled.
inline void LetFilesSettle() {
  constexpr std::chrono::milliseconds kCoarseClock(50);
  std::this_thread::sleep_for(std::chrono::nanoseconds(kSettledNanoseconds) + kCoarseClock);
}

}  // namespace TesselServer::Kit
