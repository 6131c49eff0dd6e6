// Waits for the end of a child and reads its output meanwhile.
//
// Thread:    any. Sleeps in poll(2) until something happens or the time is over.
// Ownership: the child and the descriptor stay the caller's. The child is watched only: the caller collects it.
// Errors:    in the result; none is raised but those of memory running out.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace TesselServer {

struct WaitedChild {
  bool ended = false;  // False: it was still running when the time was over, or when reading failed
  int error = 0;       // errno(3) of a failed read or wait
  std::string output;  // the beginning of what it has written
  std::optional<std::int32_t> exitCode = {};  // what it returned, where that is how it ended
  std::optional<std::int32_t> signal = {};    // that ended it
  std::int64_t milliseconds = 0;              // how long it was waited for
  bool outputWasCut = false;                  // it has written more than what was kept
};

// Waits until `child` has ended, at most `milliseconds` by a monotonic clock (0 and less: does not wait, but
// reads what is there). `output` is the read end of its pipe and does not block; it is read as bytes come, and the
// first `outputLimit` of them are kept. Neither is the child waited for once other code has collected it (a host that
// waits for every child), nor the end of the output once the child has ended.
WaitedChild WaitForChild(pid_t child, int output, std::int64_t milliseconds, std::size_t outputLimit);

}  // namespace TesselServer
