// Paths of what is remembered, and what stands at them now. Platform only.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files/FileStamp.h"

namespace TesselServer {

// What one thing that is remembered takes beside its texts: its record, and its places in a list and a table.
inline constexpr std::size_t kEntryBytes = 512;

// `name` below the folder `root`; "" is the folder itself.
inline std::string JoinPath(std::string_view root, std::string_view name) {
  std::string path(root);
  if (!name.empty()) path.append(path.ends_with('/') ? "" : "/").append(name);
  return path;
}

// The stamp of what `path` leads to, links followed wherever they go: the same stamp is the same file, however it is
// reached. Nothing when nothing can be reached there.
inline std::optional<FileStamp> StampOfPath(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileStampOf(status);
}

inline std::optional<FileStamp> StampOfDescriptor(int descriptor) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return std::nullopt;
  return FileStampOf(status);
}

}  // namespace TesselServer
