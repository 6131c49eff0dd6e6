#include "platform/files/FolderStream.h"

#include <errno.h>
#include <fcntl.h>

#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

FolderStream::FolderStream(int folder) {
  UniqueDescriptor own(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  if (!own.IsOpen()) return;
  entries_.reset(fdopendir(own.Get()));
  if (entries_) own.Release();
}

const dirent* FolderStream::Next() {
  if (!entries_) return nullptr;
  errno = 0;
  const dirent* const entry = readdir(entries_.get());
  if (entry == nullptr && errno != 0) failed_ = true;
  return entry;
}

}  // namespace TesselServer
