#include "platform/files/FileStamp.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <iterator>

#include "platform/world/World.h"

namespace TesselServer {
namespace {

constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;

struct FileSystem {
  std::uint32_t magic;
  bool contentsToo;
};
constexpr FileSystem kFileSystems[] = {
    {EXT4_SUPER_MAGIC, true},  // ext2 and ext3 have the same
    {XFS_SUPER_MAGIC, true},  {BTRFS_SUPER_MAGIC, true}, {OVERLAYFS_SUPER_MAGIC, true}, {TMPFS_MAGIC, false},
};

// The time of last write can be set to any year, so the number wraps around outside 1677 to 2262. Setting it sets the
// change time as well, which does not wrap: the stamp differs all the same.
std::int64_t Nanoseconds(const timespec& moment) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(moment.tv_sec) * kNanosecondsPerSecond +
                                   static_cast<std::uint64_t>(moment.tv_nsec));
}

bool KeepsChangeTimes(const struct statfs& facts, ReadFrom what) {
  const auto magic = static_cast<std::uint32_t>(facts.f_type);  // it is signed on some machines
  return std::any_of(std::begin(kFileSystems), std::end(kFileSystems), [&](const FileSystem& each) {
    return each.magic == magic && (each.contentsToo || what == ReadFrom::kNames);
  });
}

}  // namespace

EntryKind KindOf(std::uint32_t mode) {
  if (S_ISREG(mode)) return EntryKind::kFile;
  if (S_ISDIR(mode)) return EntryKind::kDirectory;
  return EntryKind::kNone;
}

FileStamp StampOf(const struct stat& status) {
  return {{status.st_dev, status.st_ino},
          status.st_size,
          Nanoseconds(status.st_mtim),
          Nanoseconds(status.st_ctim),
          status.st_mode};
}

std::optional<FileStamp> StampOfDescriptor(int descriptor) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return std::nullopt;
  return StampOf(status);
}

std::optional<FileStamp> StampOfPath(const std::string& path, LastLink last) {
  struct stat status;
  const int flags = last == LastLink::kItself ? AT_SYMLINK_NOFOLLOW : 0;
  if (fstatat(AT_FDCWD, path.c_str(), &status, flags) != 0) return std::nullopt;
  return StampOf(status);
}

bool KeepsChangeTimes(int descriptor, ReadFrom what) {
  struct statfs facts;
  return fstatfs(descriptor, &facts) == 0 && KeepsChangeTimes(facts, what);
}

std::optional<bool> KeepsChangeTimesAt(const std::string& path, ReadFrom what) {
  struct statfs facts;
  if (statfs(path.c_str(), &facts) != 0) return std::nullopt;
  return KeepsChangeTimes(facts, what);
}

Reading::Reading(const FileStamp& stamp, const World& world)
    : stamp_(stamp),
      began_(world.MonotonicMilliseconds()),
      isSettled_(TesselServer::IsSettled(stamp, world.FileClockNanoseconds())) {}

bool Reading::IsFresh(const World& world) const {
  return isSettled_ && world.MonotonicMilliseconds() - began_ < kMaxAgeMilliseconds;
}

}  // namespace TesselServer
