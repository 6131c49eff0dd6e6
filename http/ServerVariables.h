// The 29 server variables: their names, in the order in which they are listed, and their values.
//
// Thread:    the host's thread only.
// Errors:    none; an unknown name gives "".
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "http/RecordSettings.h"
#include "http/RequestInfo.h"
#include "net/NameSource.h"
#include "platform/world/World.h"

namespace TesselServer {

inline constexpr std::size_t kServerVariableCount = 29;

// The names in table order.
const std::array<std::string_view, kServerVariableCount>& ServerVariableNames();

// Where values come from.
struct ServerVariableContext {
  const RecordSettings& settings;
  RequestInfo& request;  // REMOTE_HOST writes RemoteHost
  const World& world;    // local time and the name service
  NameSource* names = nullptr;
};

// The value of the variable `name`, compared byte for byte. Times and dates are local: TIME "06:20:05PM", DATE and
// DATE_LOCAL "11/15/2026", DAY_OF_WEEK "Sunday". REMOTE_HOST is the name that the request has already, or the one that
// `names` has now; without `names` it is looked up on each call. "Unknown" when there is none. kept: DATE_GMT is local
// time that is only labelled GMT; PATH_TRANSLATED equals PATH_INFO; COUNTER is "".
std::string ServerVariableValue(std::string_view name, const ServerVariableContext& context);

}  // namespace TesselServer
