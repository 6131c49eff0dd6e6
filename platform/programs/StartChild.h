// Starts a program in a child process whose state is known whatever the host's is: standard input from and standard
// error to one descriptor, standard output to another, no further descriptor; every signal at its default and none
// blocked, but SIGPIPE ignored.
//
// The child shares this process's memory, on a stack of its own, and the calling thread waits until the program has
// taken over (clone(2) with CLONE_VM and CLONE_VFORK). So the cost does not grow with the host, the host's fork
// handlers do not run, and no child ever runs a program with the host's descriptors.
//
// Thread:    any. All signals are blocked for it meanwhile.
// Ownership: descriptors stay the caller's. The caller collects the child.
// Errors:    returned in the result; none is raised but those of memory running out, and then nothing was started.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/programs/ProgramRunner.h"

namespace TesselServer {

struct StartedChild {
  pid_t number = -1;  // of the process; -1 when there is none
  int error = 0;      // then errno(3) of what failed
};

// Starts start.file, with its name as the first word in front of start.arguments and the lines that ChildEnvironment
// has made of start.environment; this process's own is not looked at, for the host may change it meanwhile. Words are
// cut at their first NUL; a file name with NUL is ENOENT. A file that the kernel cannot execute is an error: no shell
// tries it. Of a failed start no process is left.
StartedChild StartChild(const ProgramStart& start, const std::vector<std::string>& environment, int nothing,
                        int output);

}  // namespace TesselServer
