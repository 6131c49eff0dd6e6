#include "platform/files/NeighbourFile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/files/FileCache.h"
#include "platform/files/FolderStream.h"
#include "platform/files/FoldersWithout.h"
#include "platform/files/OpenPaths.h"
#include "platform/files/PathWalk.h"
#include "platform/files/SlowDisk.h"
#include "platform/world/SystemErrors.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

using State = NeighbourFile::State;

constexpr int kFolderFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
constexpr int kNameFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
constexpr int kFileFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

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

// What is found in a folder, in the spelling given or another one; nothing where `open` does not go there.
Task<std::optional<NeighbourFile>> FindIn(OpenFunction open, int folder, std::string name, Turns* turns) {
  UniqueDescriptor named(open(folder, name, kNameFlags));
  if (named.Get() == -ENOENT) {
    auto spelling = OtherSpelling(folder, std::move(name), turns);
    auto other = co_await spelling;
    if (!other) co_return NeighbourFile{State::kUnknown, {}};
    if (other->empty()) co_return NeighbourFile{State::kMissing, {}};
    name = std::move(*other);
    named = UniqueDescriptor(open(folder, name, kNameFlags));
  }
  if (named.Get() == kElsewhere) co_return std::nullopt;
  const auto stamp = StampOfDescriptor(named.Get());
  if (!stamp) co_return NeighbourFile{State::kUnknown, {}};
  if (KindOf(stamp->mode) == EntryKind::kDirectory) co_return NeighbourFile{State::kMissing, {}};
  const int opened = open(folder, name, kFileFlags);
  if (opened == kElsewhere) co_return std::nullopt;
  co_return NeighbourFile{State::kFound, OpenFile(opened)};
}

// The folder above; not open, with the error, where it cannot be determined. The system's root has none.
UniqueDescriptor FolderAbove(OpenFunction open, const UniqueDescriptor& folder, const FileIdentity& own) {
  UniqueDescriptor above(open(folder.Get(), "..", kFolderFlags));
  const auto stamp = above.IsOpen() ? StampOfDescriptor(above.Get()) : std::nullopt;
  if (above.IsOpen() && (!stamp || stamp->identity == own)) return UniqueDescriptor(-ENOENT);
  return above;
}

// What is found in `folder` or the nearest one above it; nothing, and `folder` is where it came to, where `open` does
// not go there.
Task<std::optional<NeighbourFile>> FindUpTo(FileIdentity top, OpenFunction open, UniqueDescriptor& folder,
                                            std::string name, Turns* turns, FoldersWithout* known) {
  for (;;) {
    const auto stamp = StampOfDescriptor(folder.Get());
    if (!stamp) co_return NeighbourFile{State::kUnknown, {}};
    if (known == nullptr || !known->Has(*stamp)) {
      const auto reading = known != nullptr ? std::optional(known->Begin(*stamp)) : std::nullopt;
      auto search = FindIn(open, folder.Get(), name, turns);
      auto found = co_await search;
      if (!found || found->state != State::kMissing) co_return found;
      if (reading) known->Learn(*reading, folder.Get());
    }
    if (stamp->identity == top) co_return NeighbourFile{State::kMissing, {}};
    UniqueDescriptor above = FolderAbove(open, folder, stamp->identity);
    if (above.Get() == kElsewhere) co_return std::nullopt;
    if (!above.IsOpen()) co_return NeighbourFile{State::kUnknown, {}};
    folder = std::move(above);
  }
}

// The folder that is `entry` or holds it, as it is handed to a thread: open, or by its path.
struct HandedFolder {
  std::shared_ptr<const UniqueDescriptor> open;
  std::string path;
};

HandedFolder Opened(int folder) {
  const int own = fcntl(folder, F_DUPFD_CLOEXEC, 0);
  if (own < 0) throw SystemError(errno);
  return {std::make_shared<const UniqueDescriptor>(own), {}};
}

HandedFolder HandOver(const OpenFile& entry) {
  if (entry.Kind() == EntryKind::kDirectory) return Opened(entry.Descriptor());
  const std::string path = entry.CanonicalPath();
  return {nullptr, path.empty() ? path : FolderPathOf(path)};
}

UniqueDescriptor Own(const HandedFolder& handed) {
  if (handed.open) return UniqueDescriptor(OpenAnywhereOrRaise(handed.open->Get(), ".", kFolderFlags));
  return UniqueDescriptor(handed.path.empty() ? -1 : OpenAnywhereOrRaise(AT_FDCWD, handed.path, kFolderFlags));
}

// On a thread. Without `top` the folder alone is looked at.
NeighbourFile FindPatiently(const HandedFolder& handed, const std::string& name, std::optional<FileIdentity> top) {
  UniqueDescriptor folder = Own(handed);
  if (!folder.IsOpen()) return {State::kUnknown, {}};
  auto search = top ? FindUpTo(*top, &OpenAnywhereOrRaise, folder, name, nullptr, nullptr)
                    : FindIn(&OpenAnywhereOrRaise, folder.Get(), name, nullptr);
  NeighbourFile found = *RunNow(std::move(search));
  if (found.file.IsOpen()) found.file.MayWait(MayWait(found.file.Descriptor()));
  return found;
}

Task<NeighbourFile> FindBesideLoop(HandedFolder folder, std::string name, std::optional<FileIdentity> top,
                                   Turns& turns) {
  const std::function<NeighbourFile()> find = [folder = std::move(folder), name = std::move(name), top] {
    return FindPatiently(folder, name, top);
  };
  auto finding = turns.Beside().Do(Workers::Kind::kFiles, find);
  co_return co_await finding;
}

}  // namespace

NeighbourFile FindBeside(const OpenFile& entry, const std::string& name) {
  const UniqueDescriptor folder = FolderOfEntry(entry);
  if (!folder.IsOpen()) return {State::kUnknown, {}};
  return *RunNow(FindIn(&OpenAnywhereOrRaise, folder.Get(), name, nullptr));
}

Task<NeighbourFile> FindBesideInTurns(const OpenFile& entry, std::string name, Turns* turns) {
  if (turns == nullptr) co_return FindBeside(entry, name);
  if (entry.IsOpen() && MayWait(entry)) {
    auto beside = FindBesideLoop(HandOver(entry), std::move(name), std::nullopt, *turns);
    co_return co_await beside;
  }
  const UniqueDescriptor folder = FolderOfEntry(entry);
  if (!folder.IsOpen()) co_return NeighbourFile{State::kUnknown, {}};
  auto search = FindIn(&OpenHereOrRaise, folder.Get(), name, turns);
  auto found = co_await search;
  if (!found) {
    auto beside = FindBesideLoop(Opened(folder.Get()), std::move(name), std::nullopt, *turns);
    co_return co_await beside;
  }
  found->file.MayWait(false);
  co_return std::move(*found);
}

Task<NeighbourFile> FindAboveInTurns(const OpenFile& entry, std::string name, FileIdentity top, Turns* turns,
                                     FoldersWithout* known) {
  if (turns == nullptr) co_return FindPatiently(HandOver(entry), name, top);
  if (entry.IsOpen() && MayWait(entry)) {
    auto beside = FindBesideLoop(HandOver(entry), std::move(name), top, *turns);
    co_return co_await beside;
  }
  UniqueDescriptor folder = FolderOfEntry(entry);
  if (!folder.IsOpen()) co_return NeighbourFile{State::kUnknown, {}};
  auto search = FindUpTo(top, &OpenHereOrRaise, folder, name, turns, known);
  auto found = co_await search;
  if (!found) {
    auto beside = FindBesideLoop(Opened(folder.Get()), std::move(name), top, *turns);
    co_return co_await beside;
  }
  found->file.MayWait(false);
  co_return std::move(*found);
}

bool IsAboveAtOnce(const OpenFile& entry, const std::string& name, FileIdentity top) {
  if (!entry.IsOpen() || MayWait(entry)) return false;
  UniqueDescriptor folder = FolderOfEntry(entry);
  while (folder.IsOpen()) {
    const UniqueDescriptor named(OpenHere(folder.Get(), name, kNameFlags));
    const auto kind = named.IsOpen() ? StampOfDescriptor(named.Get()) : std::nullopt;
    if (kind && KindOf(kind->mode) != EntryKind::kDirectory) return true;
    const auto stamp = StampOfDescriptor(folder.Get());
    if (!stamp || stamp->identity == top) return false;
    folder = FolderAbove(&OpenHere, folder, stamp->identity);
  }
  return false;
}

}  // namespace TesselServer
