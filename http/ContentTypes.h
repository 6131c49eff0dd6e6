// Content types by file extension, from the registry store, from the lines of a file, or from the built-in table.
//
// Thread:    any; nothing is kept.
// Errors:    none; what is not found is "".
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/settings/RegistryStore.h"

namespace TesselServer {

inline constexpr std::size_t kBuiltInContentTypeSlots = 176;

// The built-in table, slot by slot: "extension,type", or "" for an unused slot.
std::span<const std::string_view, kBuiltInContentTypeSlots> BuiltInContentTypes();

// The type of the first entry for `extension`, without regard to ASCII case. An entry is the extension, a comma and the
// type; entries without a comma are ignored.
std::string_view FindContentType(std::span<const std::string_view> entries, std::string_view extension);
std::string_view FindContentType(const std::vector<std::string>& entries, std::string_view extension);

// The value "Content Type" of the key "." extension in the registry's classes.
std::string RegistryContentType(const RegistryStore& registry, std::string_view extension);

}  // namespace TesselServer
