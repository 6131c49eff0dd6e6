#include "platform/files/FolderStream.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <utility>

#include "platform/world/AsciiCase.h"

namespace TesselServer {

FolderStream::FolderStream(UniqueDescriptor folder) : entries_(folder.IsOpen() ? fdopendir(folder.Get()) : nullptr) {
  if (entries_) folder.Release();
}

FolderStream FolderStream::Of(int folder) {
  return FolderStream(UniqueDescriptor(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC)));
}

const dirent* FolderStream::Next() {
  if (!entries_) return nullptr;
  errno = 0;
  const dirent* const entry = readdir(entries_.get());
  if (entry == nullptr && errno != 0) failed_ = true;
  return entry;
}

std::string FolderStream::FirstEqual(std::string_view name) {
  std::string first;
  while (const dirent* entry = Next()) {
    const std::string_view candidate = entry->d_name;
    if (EqualNoCase(candidate, name) && (first.empty() || candidate < first)) first = candidate;
  }
  return first;
}

bool TakesOtherSpellings(int descriptor) {
  int flags = 0;
  return ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_CASEFOLD_FL) != 0;
}

}  // namespace TesselServer
