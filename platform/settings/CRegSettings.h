// Reads text values from the registry store, as the look-up of content types needs them.
//
// Thread:    the host's thread only.
// Ownership: the store outlives the object; nothing is kept between calls.
// Errors:    none; the default is returned for a value that cannot be read.
#pragma once

#include <string>
#include <string_view>

#include "platform/settings/RegistryStore.h"

namespace TesselServer {

//   CRegSettings settings(world.Registry());
//   settings.GetValue("HKEY_CLASSES_ROOT", ".html", "Content Type", "");  // "text/html"
class CRegSettings {
 public:
  explicit CRegSettings(const RegistryStore& store) : store_(store) {}

  // The value `valueName` ("*": the unnamed one) of the key `key` below the root called `root`, without its last byte,
  // which is the terminating zero of a text; the type of the value is not looked at. `byDefault` when `root` is none of
  // RegistryStore::RootHandle's names, the key or the value does not exist, or the value has no byte at all.
  std::string GetValue(std::string_view root, std::string_view key, std::string_view valueName,
                       std::string_view byDefault) const;

 private:
  const RegistryStore& store_;
};

}  // namespace TesselServer
