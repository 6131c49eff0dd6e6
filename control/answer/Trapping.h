// Which requests are offered to the host through FileRequest, and the arguments of that event.
//
// Thread:    any.
// Ownership: values in, values out.
// Errors:    none.
#pragma once

#include <string>

#include "control/connection/RequestFields.h"
#include "control/connection/Slot.h"
#include "control/life/Settings.h"

namespace TesselServer {

// Whether the slot's request is one that the settings trap: by the extension of what was found for it, or of what was
// asked for where nothing was. A request for nothing never is.
// kept: an extension that is part of a listed one is trapped too.
bool IsTrapped(const Slot& slot, const Settings& settings);

// The path as FileRequest passes it, with "/" separators and none leading: what was found below the root, else what was
// asked for. "" for one with ".." that names nothing there, since a host that joins it to a folder of its own must not
// be led out of it.
std::string PathForHost(const Slot& slot);

// "user:password", or "" when the client sent neither.
std::string UserAuthentication(const RequestFields& request);

}  // namespace TesselServer
