// File facts from what the system tells. Platform only.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "platform/files/FileFacts.h"

namespace TesselServer {

// Which bits of the extended attribute count.
inline constexpr std::uint32_t kDosAttributes =
    FileAttribute::kHidden | FileAttribute::kSystem | FileAttribute::kTemporary;

// The facts of an entry with this status and this number in its extended attribute.
FileFacts FactsOfStatus(const struct stat& status, std::uint32_t dosAttributes);

}  // namespace TesselServer
