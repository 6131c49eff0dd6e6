// The names in folders beneath one root, for look-ups of names that are not there or are spelled otherwise and for
// listings, and the attributes of files that are expensive to ask for. FileStamp.h has the rule by which a folder
// counts as the same. A folder is read for the cache at its second request within a minute.
//
// What it is for: a name that is not there costs one system call (newfstatat) in place of eight and more and the
// reading of all names; a listing saves the reading and one question for each file. Where it loses: a folder that is
// asked for twice a minute and not more, or that changes before each listing, pays for fstat, fstatfs, ioctl and a copy
// of its names; a look-up in one that changed less than two seconds ago pays for fstat alone. A folder of which no
// record can be made is tried once a minute. An existing file never costs more.
//
// Thread:    the host's thread only.
// Ownership: keeps records of its own; those in use by a listing live as long as that. The world outlives the cache.
// Errors:    none; what cannot be remembered is read anew.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files/FolderRecord.h"
#include "platform/files/LruCache.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class Turns;

class FolderCache {
 public:
  // All records together, some 130,000 names. A folder that is longer by itself is not remembered.
  static constexpr std::size_t kMaxBytes = 8 * 1024 * 1024;

  // `rootPath` as the system takes it; `maxBytes` takes the place of kMaxBytes.
  FolderCache(std::string rootPath, const World& world, std::size_t maxBytes = kMaxBytes);

  // In all of these `folder` is its path below the root ("" = the root, "/" separators).

  // The record of the folder, when it is remembered and still valid.
  std::shared_ptr<FolderRecord> Find(std::string_view folder);

  // What a record is wanted for. A listing goes through all names, and its record of a folder that has just changed is
  // kept for what it knows of the files. A look-up would copy and sort them for one answer: it gets no such record.
  enum class Use { kLookUp, kListing };

  // The record of the folder, which is open as `descriptor`: the remembered one where it is still valid, else, at the
  // second request, a new one. nullptr where the folder must be read as if there were no cache.
  std::shared_ptr<FolderRecord> NamesOf(std::string_view folder, int descriptor, Use use = Use::kListing);

  // The same, reading the folder in turns, one at a time: nullptr as well while another task reads one. The cache stays
  // alive meanwhile; the descriptor is the caller's again as soon as the task is suspended.
  Task<std::shared_ptr<FolderRecord>> NamesOfInTurns(std::string folder, int descriptor, Use use, Turns* turns);

  // How many folders Lacks looks for, the deepest ones on the path. Few sites are deeper, and a client that asks for a
  // path of thousands of components must not make each of them cost a search.
  static constexpr int kMaxFoldersLookedFor = 16;

  // Whether nothing can be at `path`, in any spelling: the deepest folder on the path whose names are known lacks the
  // next component. Asks the system only where that is so. False as well where no such folder is among the
  // kMaxFoldersLookedFor deepest.
  bool Lacks(std::string_view path);

  // What the records take, and how many folders they are of.
  std::size_t Bytes() const { return records_.Bytes(); }
  std::size_t Count() const { return records_.Count(); }

 private:
  class Busy;
  struct Answer {
    std::shared_ptr<FolderRecord> record;  // the one to be used, or the last one before the folder is read
    std::optional<FileStamp> toBeRead;     // what the folder is then
  };
  Answer Ask(std::string_view folder, int descriptor, Use use);
  Task<std::shared_ptr<FolderRecord>> ReadAnew(std::string folder, int descriptor, FileStamp stamp,
                                               std::shared_ptr<const FolderRecord> before, Turns* turns);
  bool HasNone(std::string_view folder);
  void NoteThatItHasNone(std::string_view folder);

  std::string rootPath_;
  const World& world_;
  std::size_t maxBytes_;
  LruCache<std::shared_ptr<FolderRecord>> records_;

  // A task reads a folder for the cache. Others read theirs as if there were no cache, so that records being made take
  // no more memory than one.
  bool isReading_ = false;

  // Folders that no record could be made of (too long, or of a file system that is not trusted), and when that was
  // tried, by World::MonotonicMilliseconds: they are not read in vain, beside the reading that follows, for as long as
  // Reading::kMaxAgeMilliseconds.
  static constexpr std::size_t kMaxBytesWithoutRecord = 64 * 1024;
  LruCache<std::int64_t> withoutRecord_{kMaxBytesWithoutRecord};
};

}  // namespace TesselServer
