// Makes the page of a folder that a request leads to.
#pragma once

#include <string>

#include "control/life/ControlState.h"

namespace TesselServer {

// The page for the folder that is the slot's target. Password files and links that a request would not be served are
// not listed.
std::string ListingOf(ControlState& state, Slot& slot);

}  // namespace TesselServer
