// What runs another program and takes its output.
//
// Thread:    the host's thread only.
// Ownership: results are values.
// Errors:    in the result; none is raised but those of memory running out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/tasks/Task.h"

namespace TesselServer {

struct ProgramStart {
  std::string file;                         // its path; nothing is searched for, and none has a NUL in it
  std::vector<std::string> arguments = {};  // after its name, one word each: no shell splits them

  // Name and value, in addition to the environment of this process; a name that exists already gets the new value.
  // Values, as arguments, are cut at their first NUL; a name that no environment can hold is left out.
  std::vector<std::pair<std::string, std::string>> environment = {};

  std::int64_t waitMilliseconds = 0;  // how long its end is waited for, from the call on; 0: not at all
  std::size_t outputLimit = 0;        // how many bytes of its standard output count; what follows is read and dropped

  // Makes the environment; empty: it is there already. Many that wait for their turn need no memory for it. What it
  // works with outlives the runner's task.
  std::function<std::vector<std::pair<std::string, std::string>>()> makeEnvironment = {};

  // To be called by the runner when nothing has to be waited for any more before the start.
  void Complete() {
    if (makeEnvironment) environment = std::exchange(makeEnvironment, nullptr)();
  }
};

struct ProgramResult {
  enum class Failure : std::uint8_t { kNone, kPipe, kStart, kRead };

  Failure failure = Failure::kNone;  // what could not be done
  bool outputWasCut = false;         // it has written more than outputLimit
  bool ended = false;                // False: it was not started, or still ran when the time was over, and runs on
  std::int32_t error = 0;            // the system's number for what could not be done (errno(3))
  std::string output = {};           // the beginning of its standard output

  // How it ended: what it returned (0 to 255), or the signal that ended it (signal(7)). Neither is known of one that
  // has not ended, or whose end the host has collected before it could be looked at.
  std::optional<std::int32_t> exitCode = {};
  std::optional<std::int32_t> signal = {};
  std::int64_t milliseconds = 0;  // from the call until it had ended or was waited for no longer
};

class ProgramRunner {
 public:
  virtual ~ProgramRunner() = default;

  // Starts the program; done when it has ended or the time is over, and `result`, a new one that outlives the task, is
  // what came of it. An empty task: that is known already. Destroying the task lets go of the program.
  virtual Task<void> Run(ProgramStart start, ProgramResult& result) = 0;
};

}  // namespace TesselServer
