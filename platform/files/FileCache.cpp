#include "platform/files/FileCache.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <optional>
#include <span>
#include <utility>

#include "platform/files/ContentsReading.h"
#include "platform/files/FolderStream.h"
#include "platform/files/ImmediateReader.h"
#include "platform/files/OpenPaths.h"
#include "platform/files/PathWalk.h"
#include "platform/world/UniqueDescriptor.h"
#include "platform/world/World.h"

namespace TesselServer {
namespace {

// What a file takes beside its texts: its record, and its places in a list and a table.
constexpr std::size_t kEntryBytes = 512;

// Whether only folders lead to `path`, of which the part before byte `begin` is the root. The root itself may be
// reached by a link.
bool HasNoLinks(const std::string& path, std::size_t begin) {
  for (std::size_t end = path.find('/', begin); end != std::string::npos; end = path.find('/', end + 1)) {
    const auto folder = StampOfPath(path.substr(0, end), LastLink::kItself);
    if (!folder || !S_ISDIR(folder->mode)) return false;
  }
  return true;
}

// The folder of `path`, where it holds that file and takes names in one spelling only: the name that was asked for
// might not be the file's own otherwise, and the name decides what the file is.
std::optional<FileIdentity> FolderOf(const std::string& path, const FileStamp& file) {
  const UniqueDescriptor folder(
      OpenAnywhere(AT_FDCWD, FolderPathOf(path), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  const auto stamp = StampOfDescriptor(folder.Get());
  struct stat status;
  const bool holdsIt =
      stamp && fstatat(folder.Get(), LastNameOf(path), &status, AT_SYMLINK_NOFOLLOW) == 0 && StampOf(status) == file;
  if (!holdsIt || TakesOtherSpellings(folder.Get())) return std::nullopt;
  return stamp->identity;
}

// The contents, where they are `size` bytes and no disk has to be waited for.
std::optional<std::string> ReadAtOnce(int descriptor, std::int64_t size) {
  std::string bytes;
  ContentsReading reading(bytes, size, size);
  ImmediateReader reader(descriptor);
  while (!reading.IsOver()) {
    const std::span<char> room = reading.Room(std::string::npos);
    reading.Took(reader.Read(room.data(), room.size(), reading.Offset()));
  }
  if (!reading.IsWhole() || static_cast<std::int64_t>(bytes.size()) != size) return std::nullopt;
  return bytes;
}

}  // namespace

std::shared_ptr<const CachedFile> FileCache::Find(std::string_view name) {
  const auto* known = files_.Find(name);
  if (known == nullptr) return nullptr;
  const CachedFile& file = **known;
  const bool holds = file.reading.IsFresh(world_) && HasNoLinks(file.path, file.path.size() - name.size()) &&
                     file.reading.Holds(StampOfPath(file.path, LastLink::kItself), world_);
  if (!holds) {
    files_.Drop(name);
    return nullptr;
  }
  files_.IsAskedAgain(name, world_.MonotonicMilliseconds());
  return *known;
}

std::shared_ptr<const CachedFile> FileCache::Admit(std::string_view name, int descriptor, const FileStamp& stamp) {
  if (stamp.size > kMaxFileBytes) return nullptr;
  try {
    if (!files_.IsAskedAgain(name, world_.MonotonicMilliseconds())) return nullptr;
    auto file = Read(name, descriptor, stamp);
    if (!file) return nullptr;
    const std::size_t bytes = kEntryBytes + name.size() + file->path.size() + file->contents->size();
    files_.Put(name, file, bytes);
    return file;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

bool FileCache::IsTrusted(int descriptor, std::uint64_t device) {
  const std::int64_t now = world_.MonotonicMilliseconds();
  if (untrustedDevice_ == device && now < untrustedUntil_) return false;
  if (KeepsChangeTimes(descriptor, ReadFrom::kContents)) return true;
  untrustedDevice_ = device;
  untrustedUntil_ = now + Reading::kMaxAgeMilliseconds;
  return false;
}

// What can be asked without reading comes first. A change while it is read makes the stamp another one.
std::shared_ptr<const CachedFile> FileCache::Read(std::string_view name, int descriptor, const FileStamp& stamp) {
  const Reading reading(stamp, world_);
  if (!reading.IsSettled() || !IsTrusted(descriptor, stamp.identity.device)) return nullptr;
  CachedFile file{JoinPath(rootPath_, name), {}, reading, nullptr};
  const auto folder = FolderOf(file.path, stamp);
  if (!folder) return nullptr;
  file.folder = *folder;
  auto contents = ReadAtOnce(descriptor, stamp.size);
  if (!contents) return nullptr;
  file.contents = std::make_shared<const std::string>(std::move(*contents));
  return std::make_shared<const CachedFile>(std::move(file));
}

bool ReadWhole(int file, std::int64_t expected, std::int64_t limit, std::string& bytes) {
  ContentsReading reading(bytes, expected, limit);
  while (!reading.IsOver()) {
    const std::span<char> room = reading.Room(std::string::npos);
    const ssize_t got = pread(file, room.data(), room.size(), static_cast<off_t>(reading.Offset()));
    if (got < 0 && errno == EINTR) continue;
    reading.Took(got);
  }
  return reading.IsWhole();
}

}  // namespace TesselServer
