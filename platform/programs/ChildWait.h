// Waits for the end of a child and reads its output meanwhile.
//
// Thread:    any. Sleeps in poll(2) until something happens or the time is over.
// Ownership: the child and the descriptor stay the caller's. The child is watched only: the caller collects it.
// Errors:    in the result, as Failure::kRead; none is raised but those of memory running out.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "platform/programs/ProgramRunner.h"

namespace TesselServer {

// Waits until `child` has ended, at most `milliseconds` by a monotonic clock (0 and less: does not wait, but
// reads what is there). `output` is the read end of its pipe and does not block; it is read as bytes come, and the
// first `outputLimit` of them are kept. Neither is the child waited for once other code has collected it (a host that
// waits for every child), nor the end of the output once the child has ended.
ProgramResult WaitForChild(pid_t child, int output, std::int64_t milliseconds, std::size_t outputLimit);

}  // namespace TesselServer
