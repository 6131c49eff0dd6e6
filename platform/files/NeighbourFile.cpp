#include "platform/files/NeighbourFile.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <string_view>
#include <utility>

#include "platform/files/EntryStatus.h"
#include "platform/files/KnownFiles.h"
#include "platform/files/OpenPaths.h"
#include "platform/world/AsciiCase.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

using State = NeighbourFile::State;

// The folder of a file that is remembered: the one it was found in, or one that holds that very file now.
UniqueDescriptor FolderOfKnown(const KnownFile& file) {
  UniqueDescriptor folder(OpenAnywhereOrRaise(AT_FDCWD, file.way.back(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const std::string name = file.path.substr(file.path.rfind('/') + 1);
  struct stat status;
  const auto stillHas = [&] {
    return fstatat(folder.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && FileStampOf(status) == file.stamp;
  };
  if (!folder.IsOpen() || fstat(folder.Get(), &status) != 0) return UniqueDescriptor(-1);
  return IdentityOf(status) == file.folder || stillHas() ? std::move(folder) : UniqueDescriptor(-1);
}

// The folder that is `entry` or holds it, open for being searched by name only. Not open when it cannot be had.
UniqueDescriptor FolderOfEntry(const OpenFile& entry) {
  if (entry.Kind() == EntryKind::kDirectory) {
    return UniqueDescriptor(OpenAnywhereOrRaise(entry.Descriptor(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  if (entry.Known() != nullptr) return FolderOfKnown(*entry.Known());
  std::string path = entry.CanonicalPath();
  const std::size_t cut = path.rfind('/');
  if (cut == std::string::npos) return UniqueDescriptor(-1);
  path.resize(cut == 0 ? 1 : cut);
  return UniqueDescriptor(OpenAnywhereOrRaise(AT_FDCWD, path, O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// The name in the folder that is `name` in another spelling, "" for none. False when the folder cannot be read.
bool FindOtherSpelling(int folder, std::string_view name, std::string& found) {
  UniqueDescriptor descriptor(OpenAnywhereOrRaise(folder, ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  if (!descriptor.IsOpen()) return false;
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(descriptor.Get()), &closedir);
  if (!entries) return false;
  descriptor.Release();
  errno = 0;
  while (const dirent* entry = readdir(entries.get())) {
    const std::string_view candidate = entry->d_name;
    if (EqualNoCase(candidate, name) && (found.empty() || candidate < found)) found = candidate;
  }
  return errno == 0;
}

NeighbourFile OpenNamed(int folder, const std::string& name, const struct stat& status) {
  if (KindOf(status) == EntryKind::kDirectory) return {State::kMissing, {}};
  return {State::kFound, OpenFile(OpenAnywhereOrRaise(folder, name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC))};
}

}  // namespace

NeighbourFile FindBeside(const OpenFile& entry, const std::string& name) {
  const UniqueDescriptor folder = FolderOfEntry(entry);
  if (!folder.IsOpen()) return {State::kUnknown, {}};
  struct stat status;
  if (fstatat(folder.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    return OpenNamed(folder.Get(), name, status);
  }
  if (errno != ENOENT) return {State::kUnknown, {}};
  std::string other;
  if (!FindOtherSpelling(folder.Get(), name, other)) return {State::kUnknown, {}};
  if (other.empty()) return {State::kMissing, {}};
  if (fstatat(folder.Get(), other.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return {State::kUnknown, {}};
  return OpenNamed(folder.Get(), other, status);
}

}  // namespace TesselServer
