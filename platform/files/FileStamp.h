// What the system says of a file or folder, and the one rule by which what has been read of it is used again.
//
// The rule (class Reading). What was read is used again as long as all of this holds:
//   1. stat(2) returns what fstat(2) returned before the reading: which file it is, its type, permissions, length, time
//      of last write and change time. The system sets the change time at each change, a new time of last write among
//      them, and it cannot be set back. So the very next request sees every change that has a time.
//   2. The change time was at least two seconds old when the reading began. Clocks of file systems are coarse: two
//      changes within one tick leave the same times.
//   3. The file system is one that is known to keep change times and to have no other writers than this machine (ext2
//      to ext4, xfs, btrfs, tmpfs; and overlayfs, which has what its layers have). Of tmpfs only names count, not
//      contents: programs meet there in files that they map into their memory, and no time is ever set.
//   4. It was read less than a minute ago.
// What has no time shows after that minute at the latest: bytes that a program writes through a shared mapping (the
// system notes the first write to a page, and the next one only when that has gone to disk, half a minute later as
// systems are set up); what a change of this process's own rights would hide from it; an encrypted folder that is
// unlocked. For a name in constant use this costs one reading a minute.
//
// Thread:    any.
// Ownership: values; descriptors stay the caller's.
// Errors:    none; what cannot be determined is nothing or false.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct stat;

namespace TesselServer {

class World;

enum class EntryKind { kNone, kFile, kDirectory };

// Which file it is, whatever name leads to it (st_dev and st_ino, inode(7)).
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  bool operator==(const FileIdentity&) const = default;
};

// Any change of a folder's names, of a file's length, content, permissions or attributes shows in it, and so does
// another file that takes the name.
struct FileStamp {
  FileIdentity identity;
  std::int64_t size = 0;      // bytes; for a folder whatever its file system says
  std::int64_t modified = 0;  // nanoseconds since 1 January 1970 UTC, modulo 2^64; any writer may set it
  std::int64_t changed = 0;   // likewise; set by the system alone, at each change
  std::uint32_t mode = 0;     // type and permissions
  bool operator==(const FileStamp&) const = default;
};

// The rest of this header is for the platform only.

// What has this type (st_mode, inode(7)).
EntryKind KindOf(std::uint32_t mode);
FileStamp StampOf(const struct stat& status);

// The stamp of what is open as `descriptor`, and of what `path` leads to: links are followed wherever they go, or the
// last name is taken for what it is. Nothing when there is nothing.
std::optional<FileStamp> StampOfDescriptor(int descriptor);
enum class LastLink { kFollowed, kItself };
std::optional<FileStamp> StampOfPath(const std::string& path, LastLink last);

// Two seconds are the coarsest clock of a file system there is.
inline constexpr std::int64_t kSettledNanoseconds = 2'000'000'000;

// Whether, at the moment `now` of World::FileClockNanoseconds, the last change lies so far back that no change to come
// can bear the same time. One in the future never does.
inline bool IsSettled(const FileStamp& stamp, std::int64_t now) { return stamp.changed <= now - kSettledNanoseconds; }

// The third part of the rule, for what is open (O_PATH will do). Asks the system at each call, since the number of a
// device may come back for another file system.
enum class ReadFrom { kNames, kContents };
bool KeepsChangeTimes(int descriptor, ReadFrom what);

// The same for what lies at `path`; nothing where it cannot be asked.
std::optional<bool> KeepsChangeTimesAt(const std::string& path, ReadFrom what);

// Something that has been read, by the rule above.
class Reading {
 public:
  static constexpr std::int64_t kMaxAgeMilliseconds = 60'000;

  // A reading that begins now: of what `stamp` was taken of before.
  Reading(const FileStamp& stamp, const World& world);

  // Whether the second part of the rule holds, and the fourth as well: what can be checked without asking the system.
  bool IsSettled() const { return isSettled_; }
  bool IsFresh(const World& world) const;

  // Whether it may be used again, where the system says `now`.
  bool Holds(const std::optional<FileStamp>& now, const World& world) const { return IsFresh(world) && now == stamp_; }

  const FileStamp& Stamp() const { return stamp_; }

 private:
  FileStamp stamp_;
  std::int64_t began_;  // World::MonotonicMilliseconds
  bool isSettled_;
};

}  // namespace TesselServer
