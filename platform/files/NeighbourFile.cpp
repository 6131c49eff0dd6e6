#include "platform/files/NeighbourFile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/files/FileCache.h"
#include "platform/files/FolderStream.h"
#include "platform/files/OpenPaths.h"
#include "platform/files/PathWalk.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

using State = NeighbourFile::State;

constexpr int kFolderFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

// The folder of a file that is remembered: the one it was found in, or one that holds that very file now.
UniqueDescriptor FolderOfCached(const CachedFile& file) {
  UniqueDescriptor folder(OpenAnywhereOrRaise(AT_FDCWD, FolderPathOf(file.path), kFolderFlags));
  const auto stamp = StampOfDescriptor(folder.Get());
  struct stat status;
  const auto stillHas = [&] {
    return fstatat(folder.Get(), LastNameOf(file.path), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           StampOf(status) == file.reading.Stamp();
  };
  return stamp && (stamp->identity == file.folder || stillHas()) ? std::move(folder) : UniqueDescriptor(-1);
}

// The folder that is `entry` or holds it, open for being searched by name only. Not open when it cannot be opened.
UniqueDescriptor FolderOfEntry(const OpenFile& entry) {
  if (entry.Kind() == EntryKind::kDirectory) {
    return UniqueDescriptor(OpenAnywhereOrRaise(entry.Descriptor(), ".", kFolderFlags));
  }
  if (entry.Cached() != nullptr) return FolderOfCached(*entry.Cached());
  const std::string path = entry.CanonicalPath();
  return UniqueDescriptor(path.empty() ? -1 : OpenAnywhereOrRaise(AT_FDCWD, FolderPathOf(path), kFolderFlags));
}

// The name in the folder that is `name` in another spelling, "" for none; nothing when the folder cannot be read.
Task<std::optional<std::string>> OtherSpelling(int folder, std::string name, Turns* turns) {
  const auto names = std::make_shared<FolderStream>(
      UniqueDescriptor(OpenAnywhereOrRaise(folder, ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC)));
  auto first = FirstEqualIn(names, std::move(name), turns);
  std::string found = co_await first;
  if (!names->EndedWell()) co_return std::nullopt;
  co_return found;
}

NeighbourFile OpenNamed(int folder, const std::string& name, const struct stat& status) {
  if (KindOf(status.st_mode) == EntryKind::kDirectory) return {State::kMissing, {}};
  return {State::kFound, OpenFile(OpenAnywhereOrRaise(folder, name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC))};
}

}  // namespace

NeighbourFile FindBeside(const OpenFile& entry, const std::string& name) {
  return RunNow(FindBesideInTurns(entry, name, nullptr));
}

Task<NeighbourFile> FindBesideInTurns(const OpenFile& entry, std::string name, Turns* turns) {
  const UniqueDescriptor folder = FolderOfEntry(entry);
  if (!folder.IsOpen()) co_return NeighbourFile{State::kUnknown, {}};
  struct stat status;
  if (fstatat(folder.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    co_return OpenNamed(folder.Get(), name, status);
  }
  if (errno != ENOENT) co_return NeighbourFile{State::kUnknown, {}};
  auto spelling = OtherSpelling(folder.Get(), name, turns);
  const auto other = co_await spelling;
  if (!other) co_return NeighbourFile{State::kUnknown, {}};
  if (other->empty()) co_return NeighbourFile{State::kMissing, {}};
  if (fstatat(folder.Get(), other->c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    co_return NeighbourFile{State::kUnknown, {}};
  }
  co_return OpenNamed(folder.Get(), *other, status);
}

}  // namespace TesselServer
