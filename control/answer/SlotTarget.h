// What the request of a slot leads to: a file or folder below the root, or a program in CGIDirectory.
//
// Thread:    the host's thread.
// Ownership: the slot owns what was found.
// Errors:    the socket errors 10024 and 10055 where the process has run out of descriptors or memory.
#pragma once

#include <string>

#include "control/connection/Slot.h"
#include "control/life/ControlState.h"

namespace TesselServer {

// Finds the target of the slot's request by the settings of this moment. Below the root first; a program that is not
// there is looked for in CGIDirectory, by its name alone and only with CGIEnable. Nothing is looked for when the
// request has no path. The slot outlives the task.
Task<void> FindTarget(ControlState& state, Slot& slot);

// The same for a target that is found at once. False, and the slot is as before, where FindTarget has to look for it.
bool FindTargetAtOnce(ControlState& state, Slot& slot);

// The local file that the slot's request leads to, as the system writes it; of one that leads nowhere, the path asked
// for.
std::string MappedFileOf(const ControlState& state, const Slot& slot);

}  // namespace TesselServer
