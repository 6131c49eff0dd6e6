// Looks for a file beside another one: in the folder in which that one really lies, whatever name or link led to it.
// Names are the system's own here: "\" is a byte like others, and nothing that was found is turned into a path again.
//
// Thread:    the host's thread only.
// Ownership: the result owns its open file.
// Errors:    the socket errors 10024 and 10055 when the process has run out of descriptors or memory.
#pragma once

#include <string>

#include "platform/files/FileSystem.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class FoldersWithout;
class Turns;

struct NeighbourFile {
  enum class State {
    kMissing,  // nothing of that name exists, or a folder has it
    kFound,    // it exists; `file` is open when it is a regular file that may be read
    kUnknown,  // it cannot be determined; a protection check must refuse
  };
  State state = State::kMissing;
  OpenFile file;
};

// Looks for `name` (no separator in it) in the folder `entry`, or in the one that the file `entry` lies in: in the
// spelling given, then as the first name in byte order that is equal without regard to ASCII case. A link whose target
// does not exist is found. Of an entry that is not open the folder cannot be determined: kUnknown.
NeighbourFile FindBeside(const OpenFile& entry, const std::string& name);

// The same, reading the folder's names in turns, and beside the loop where its disk, or another one that `name` leads
// to, may have to be waited for.
Task<NeighbourFile> FindBesideInTurns(const OpenFile& entry, std::string name, Turns* turns);

// Looks for `name` as FindBeside does, and where it is missing in the folder above, up to the folder `top`: the nearest
// one is found. kUnknown where the way up from `entry` does not lead to `top`. Each folder is the real one above, which
// no name or link has a say in.
// `known`, if any, is for this name alone, and outlives the task.
Task<NeighbourFile> FindAboveInTurns(const OpenFile& entry, std::string name, FileIdentity top, Turns* turns,
                                     FoldersWithout* known = nullptr);

// Whether `name`, in the spelling given, is in the folder of `entry` or in one above it, up to `top`, as far as that is
// known at once. False says nothing.
bool IsAboveAtOnce(const OpenFile& entry, const std::string& name, FileIdentity top);

}  // namespace TesselServer
