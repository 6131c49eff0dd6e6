#include "platform/settings/CRegSettings.h"

namespace TesselServer {

std::string CRegSettings::GetValue(std::string_view root, std::string_view key, std::string_view valueName,
                                   std::string_view byDefault) const {
  const auto handle = RegistryStore::RootHandle(root);
  if (!handle) return std::string(byDefault);
  const auto bytes = store_.Bytes(*handle, key, valueName == "*" ? "" : valueName);
  if (!bytes || bytes->empty()) return std::string(byDefault);
  return std::string(bytes->substr(0, bytes->size() - 1));
}

}  // namespace TesselServer
