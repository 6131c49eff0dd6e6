#include "http/ContentTypes.h"

#include "platform/settings/CRegSettings.h"
#include "platform/world/AsciiCase.h"

namespace TesselServer {
namespace {

template <typename Entries>
std::string_view FirstMatch(const Entries& entries, std::string_view extension) {
  for (const std::string_view entry : entries) {
    const std::size_t comma = entry.find(',');
    if (comma != std::string_view::npos && EqualNoCase(entry.substr(0, comma), extension)) {
      return entry.substr(comma + 1);
    }
  }
  return {};
}

}  // namespace

std::string_view FindContentType(std::span<const std::string_view> entries, std::string_view extension) {
  return FirstMatch(entries, extension);
}

std::string_view FindContentType(const std::vector<std::string>& entries, std::string_view extension) {
  return FirstMatch(entries, extension);
}

std::string RegistryContentType(const RegistryStore& registry, std::string_view extension) {
  std::string key = ".";
  key += extension;
  return CRegSettings(registry).GetValue("HKEY_CLASSES_ROOT", key, "Content Type", "");
}

}  // namespace TesselServer
