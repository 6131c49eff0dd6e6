// What the path of a request leads to, by exact names: a file, a folder, or the index page of a folder.
//
// Thread:    the host's thread.
// Ownership: the slot owns what was found.
// Errors:    the socket errors 10024 and 10055 where the process has run out of descriptors or memory.
#pragma once

#include <string_view>

#include "control/connection/Slot.h"
#include "control/life/ControlState.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

// Finds the target of `path`, which begins with "/" and is without dot segments, by the settings of this moment. In a
// folder that the path names with a final slash the first index page that is a file wins over the folder. A file that
// no client may have counts as missing. The slot outlives the task.
Task<void> FindModernTarget(ControlState& state, Slot& slot, std::string path);

// The same for a target that is found at once. False, and the slot is as before, where FindModernTarget has to look for
// it.
bool FindModernTargetAtOnce(ControlState& state, Slot& slot, std::string_view path);

}  // namespace TesselServer
