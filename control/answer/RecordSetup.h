// Makes a slot's request record ready for use.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "control/life/ControlState.h"
#include "http/RequestInfo.h"
#include "http/cls_HTTP.h"

namespace TesselServer {

// Copies the control's settings to the record from which all other records take theirs. To be called whenever a setting
// has changed, or a value used in place of one: the name, address and port in use, the application folder.
void ApplySettings(ControlState& state);

// The slot's record, made on first use, with the control's settings as last applied. The caller keeps it across events:
// the slot lets go of it when the server stops.
std::shared_ptr<cls_HTTP> RecordOf(ControlState& state, Slot& slot, std::int32_t Index);

// The values of the slot's request as its record takes them. `file` is the local file that answers it.
RequestInfo RequestInfoOf(ControlState& state, Slot& slot, std::int32_t Index, std::string file);

}  // namespace TesselServer
