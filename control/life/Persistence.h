// The control's settings in a property bag.
#pragma once

#include <functional>

#include "control/life/Settings.h"
#include "platform/settings/PropertyBag.h"

namespace TesselServer {

// The two properties whose stored values go through their rules, not straight into the settings.
struct PropertyLets {
  std::function<void(std::int32_t)> maxConnections;
  std::function<void(const std::string&)> indexPageNames;
};

// Reads every setting; one that cannot be read stays as it is. Nothing that the bag raises goes further.
void ReadSettings(const PropertyBag& bag, Settings& settings, const PropertyLets& lets);

// Writes every setting that differs from its default. Nothing that the bag raises goes further.
void WriteSettings(PropertyBag& bag, const Settings& settings);

}  // namespace TesselServer
