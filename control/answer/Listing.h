// Makes the page of a folder that a request leads to.
//
// Thread:    the loop's thread.
// Ownership: the state and the slot outlive the task, which takes the open folder over from the slot. It shares the
//            root and the secret files as they were when it began, for the host may change the settings meanwhile.
// Errors:    those of memory running out, and the socket errors 10024 and 10055 where the process has run out of
//            descriptors when it begins.
#pragma once

#include <optional>
#include <string>

#include "control/life/ControlState.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

// The page for the folder that is the slot's target. Password files and links that a request would not be served are
// not listed. It counts as a page on its way from the first row on (Slot::PageMemory): nothing when all those pages
// together would become too large, and the client is then answered that the server is too busy.
Task<std::optional<std::string>> ListingOf(ControlState& state, Slot& slot);

}  // namespace TesselServer
