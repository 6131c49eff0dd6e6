#include "platform/files/FileStamp.h"

#include <linux/magic.h>
#include <sys/vfs.h>
#include <time.h>

#include <algorithm>
#include <iterator>

namespace TesselServer {
namespace {

constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;

struct KnownFileSystem {
  std::uint32_t magic;
  bool contentsToo;
};
constexpr KnownFileSystem kKnownFileSystems[] = {
    {EXT4_SUPER_MAGIC, true},  // ext2 and ext3 have the same
    {XFS_SUPER_MAGIC, true},  {BTRFS_SUPER_MAGIC, true}, {OVERLAYFS_SUPER_MAGIC, true}, {TMPFS_MAGIC, false},
};

// Anybody may date a file to any year, so the number goes round beyond 1677 to 2262. What dates a file so sets its
// change time as well, which does not: the stamp is another one all the same.
std::int64_t Nanoseconds(const timespec& moment) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(moment.tv_sec) * kNanosecondsPerSecond +
                                   static_cast<std::uint64_t>(moment.tv_nsec));
}

const KnownFileSystem* FileSystemOf(int descriptor) {
  struct statfs facts;
  if (fstatfs(descriptor, &facts) != 0) return nullptr;
  const auto magic = static_cast<std::uint32_t>(facts.f_type);  // it is signed on some machines
  const auto* const found = std::find_if(std::begin(kKnownFileSystems), std::end(kKnownFileSystems),
                                         [magic](const KnownFileSystem& each) { return each.magic == magic; });
  return found == std::end(kKnownFileSystems) ? nullptr : found;
}

}  // namespace

FileStamp FileStampOf(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size, Nanoseconds(status.st_mtim), Nanoseconds(status.st_ctim),
          status.st_mode};
}

std::int64_t FileClockNow() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return Nanoseconds(now);
}

bool KeepsChangeTimes(int descriptor) { return FileSystemOf(descriptor) != nullptr; }

bool KeepsContentChangeTimes(int descriptor) {
  const KnownFileSystem* const known = FileSystemOf(descriptor);
  return known != nullptr && known->contentsToo;
}

}  // namespace TesselServer
