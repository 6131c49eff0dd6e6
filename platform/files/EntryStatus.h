// What a status record of the system (stat(2)) says in the words of this layer. Platform only.
#pragma once

#include <sys/stat.h>

#include "platform/files/FileSystem.h"

namespace TesselServer {

inline EntryKind KindOf(const struct stat& status) {
  if (S_ISREG(status.st_mode)) return EntryKind::kFile;
  if (S_ISDIR(status.st_mode)) return EntryKind::kDirectory;
  return EntryKind::kNone;
}

inline FileIdentity IdentityOf(const struct stat& status) { return {status.st_dev, status.st_ino}; }

}  // namespace TesselServer
