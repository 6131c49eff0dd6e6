// By what a file or folder that has been read is known to be unchanged: what stat(2) says of it. Platform only.
//
// What was read may be used again as long as the stamp is the same, where three things hold:
//   1. The stamp was taken before reading and was settled then (IsSettled). Clocks of file systems are coarse: two
//      changes within one tick leave the same times.
//   2. The file system keeps change times (KeepsChangeTimes).
//   3. No file's content is meant that somebody writes through a mapping: pages that are mapped for writing already are
//      changed without any time being set. Folders, names and attributes have no such back door.
//      KeepsContentChangeTimes leaves out the files that live by mappings; whoever remembers the contents of others
//      reads them anew now and then.
//
// Thread:    any.
// Ownership: values; descriptors stay the caller's.
// Errors:    none; what cannot be told is false.
#pragma once

#include <sys/stat.h>

#include <cstdint>

namespace TesselServer {

// Any change of a folder's names, of a file's length, content, permissions or attributes shows in it, and so does
// another file that takes the name.
struct FileStamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;      // bytes; for a folder whatever its file system says
  std::int64_t modified = 0;  // nanoseconds since 1 January 1970 UTC, modulo 2^64; anybody who may write may set it
  std::int64_t changed = 0;   // likewise; the system sets it at each change and nobody else can
  std::uint32_t mode = 0;     // type and permissions
  bool operator==(const FileStamp&) const = default;
};

FileStamp FileStampOf(const struct stat& status);

// The system's clock in the unit of the stamps, as coarse as theirs.
std::int64_t FileClockNow();

// Two seconds are the coarsest clock of a file system there is.
inline constexpr std::int64_t kSettledNanoseconds = 2'000'000'000;

// Whether, at the moment `now` of FileClockNow, the last change lies so far back that no change to come can bear the
// same time. One in the future never does.
inline bool IsSettled(const FileStamp& stamp, std::int64_t now) { return stamp.changed <= now - kSettledNanoseconds; }

// For how long names are trusted at all. Some changes have no time; nobody is to see their like for ever.
inline constexpr std::int64_t kFreshNanoseconds = 1'000'000'000;

// Whether what was read at the moment `read` may still be used at the moment `now`, both of FileClockNow. A clock that
// was set back ends it as well.
inline bool IsFresh(std::int64_t read, std::int64_t now) { return now >= read && now - read < kFreshNanoseconds; }

// Whether the file system of what is open (O_PATH will do) is one that is known to set the change time with each change
// of names, contents and extended attributes and to have no other writers than this machine: ext2 to ext4, xfs, btrfs,
// tmpfs; and overlayfs, which has what its layers have. Asks the system at each call, since the number of a device may
// come back for another file system; where a stamp is the key its device says the rest.
bool KeepsChangeTimes(int descriptor);

// Whether it does so for everything about a file, its contents among it: all of the above but tmpfs, where programs
// meet in files that they map into their memory and no time is ever set.
bool KeepsContentChangeTimes(int descriptor);

}  // namespace TesselServer
