// What is remembered of folders that have been read, so that a folder that is shown again and again is not read again
// and again: its names, and the attributes of its files that are dear to ask for. A change on disk is seen by the very
// next pass; where that cannot be told for sure (a change less than two seconds old, a file system of which it is not
// known), nothing is remembered.
//
// Thread:    the host's thread only.
// Ownership: keeps records of its own; those in use by a pass live as long as that.
// Errors:    none; what cannot be remembered is read anew.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/files/RecentlyUsed.h"

namespace TesselServer {

class FolderRecord;

//   DirectoryMemory memory;
//   DirectoryReader files(folder, EntryKind::kFile, &memory);
class DirectoryMemory {
 public:
  // All records together, some 130,000 names. Those that were not used for longest go first; a folder
  // that is longer by itself is not remembered.
  static constexpr std::size_t kMaxBytes = 8 * 1024 * 1024;

  // `now` tells the real time in nanoseconds since 1 January 1970 UTC, the system's own when it is nullptr; `maxBytes`
  // takes the place of kMaxBytes.
  explicit DirectoryMemory(std::int64_t (*now)() = nullptr, std::size_t maxBytes = kMaxBytes);
  DirectoryMemory(const DirectoryMemory&) = delete;
  DirectoryMemory& operator=(const DirectoryMemory&) = delete;
  ~DirectoryMemory();

  // What the records take, and how many folders they are of.
  std::size_t Bytes() const { return records_.Bytes(); }
  std::size_t Count() const { return records_.Count(); }

  // Platform only: the names of the folder open as `descriptor`, as they are now. nullptr where it must be read as if
  // there were no memory.
  std::shared_ptr<FolderRecord> NamesOf(int descriptor);

  // Platform only.
  std::int64_t Now() const { return now_(); }

 private:
  std::int64_t (*now_)();
  std::size_t maxBytes_;
  RecentlyUsed<std::shared_ptr<FolderRecord>> records_;  // by device and inode
};

}  // namespace TesselServer
