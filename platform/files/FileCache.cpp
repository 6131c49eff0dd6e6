#include "platform/files/FileCache.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "platform/files/FolderStream.h"
#include "platform/files/OpenPaths.h"
#include "platform/world/UniqueDescriptor.h"
#include "platform/world/World.h"

namespace TesselServer {
namespace {

// What a file takes beside its texts: its record, and its places in a list and a table.
constexpr std::size_t kEntryBytes = 512;

// The root and each folder on the way to `name`.
std::vector<std::string> WayTo(const std::string& root, std::string_view name) {
  std::vector<std::string> way;
  for (std::size_t end = 0; end != std::string_view::npos; end = name.find('/', end + 1)) {
    way.push_back(JoinPath(root, name.substr(0, end)));
  }
  return way;
}

// Whether folders lead from the root to the file. The root itself may be reached by a link.
bool HasNoLinks(const std::vector<std::string>& way) {
  return std::all_of(way.begin() + 1, way.end(), [](const std::string& folder) {
    const auto stamp = StampOfPath(folder, LastLink::kItself);
    return stamp && S_ISDIR(stamp->mode);
  });
}

// Which folder stands at `path`, where it holds the file `name` and takes names in one spelling only: the name that was
// asked for might not be the file's own otherwise, which tells what the file is.
std::optional<FileIdentity> FolderOf(const std::string& path, const char* name, const FileStamp& file) {
  const UniqueDescriptor folder(OpenAnywhere(AT_FDCWD, path, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  const auto stamp = StampOfDescriptor(folder.Get());
  struct stat status;
  const bool holdsIt =
      stamp && fstatat(folder.Get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 && StampOf(status) == file;
  if (!holdsIt || TakesOtherSpellings(folder.Get())) return std::nullopt;
  return stamp->identity;
}

}  // namespace

std::shared_ptr<const CachedFile> FileCache::Find(std::string_view name) {
  const auto* known = files_.Find(name);
  if (known == nullptr) return nullptr;
  const CachedFile& file = **known;
  const bool holds = file.reading.IsFresh(world_) && HasNoLinks(file.way) &&
                     file.reading.Holds(StampOfPath(file.path, LastLink::kItself), world_);
  if (holds) return *known;
  files_.Drop(name);
  return nullptr;
}

std::shared_ptr<const CachedFile> FileCache::Admit(std::string_view name, int descriptor, const FileStamp& stamp) {
  if (stamp.size > kMaxFileBytes) return nullptr;
  try {
    if (!files_.IsAskedAgain(name, world_.MonotonicMilliseconds())) return nullptr;
    auto file = Read(name, descriptor, stamp);
    if (!file) return nullptr;
    const std::size_t bytes = (1 + file->way.size()) * (kEntryBytes + file->path.size()) + file->contents->size();
    files_.Put(name, file, bytes);
    return file;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

// What can be asked without reading comes first. A change while it is read makes the stamp another one.
std::shared_ptr<const CachedFile> FileCache::Read(std::string_view name, int descriptor, const FileStamp& stamp) const {
  const Reading reading(stamp, world_);
  if (!reading.IsSettled() || !KeepsChangeTimes(descriptor, ReadFrom::kContents)) return nullptr;
  CachedFile file{JoinPath(rootPath_, name), WayTo(rootPath_, name), {}, reading, nullptr};
  const auto folder = FolderOf(file.way.back(), file.path.c_str() + file.path.rfind('/') + 1, stamp);
  if (!folder) return nullptr;
  file.folder = *folder;
  std::string contents;
  if (!ReadWhole(descriptor, stamp.size, stamp.size, contents)) return nullptr;
  if (static_cast<std::int64_t>(contents.size()) != stamp.size) return nullptr;
  file.contents = std::make_shared<const std::string>(std::move(contents));
  return std::make_shared<const CachedFile>(std::move(file));
}

bool ReadWhole(int file, std::int64_t expected, std::int64_t limit, std::string& bytes) {
  constexpr std::size_t kLeastRoom = 4096;
  const auto most = static_cast<std::size_t>(std::max<std::int64_t>(limit, 0));
  const auto usual = static_cast<std::size_t>(expected);
  std::size_t length = 0;
  // One byte more than is expected: where just that one stays empty the end was seen.
  bytes.resize(std::min(usual, most) + 1);
  for (;;) {
    const ssize_t got = pread(file, bytes.data() + length, bytes.size() - length, static_cast<off_t>(length));
    if (got < 0 && errno == EINTR) continue;
    if (got > 0) length += static_cast<std::size_t>(got);
    const bool isEnd = got == 0 || (length == usual && length < bytes.size());
    if (isEnd || got < 0 || length > most) {
      bytes.resize(std::min(length, most));
      return isEnd && length <= most;
    }
    if (length == bytes.size()) bytes.resize(std::min(std::max(2 * length, kLeastRoom), most + 1));
  }
}

}  // namespace TesselServer
