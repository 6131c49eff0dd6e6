// One folder as it was read: the names in it, in the system's order, and what was learnt of the files' kept attributes
// since. Platform only.
//
// Thread:    the host's thread only.
// Ownership: keeps its own copy of every name.
// Errors:    none; a folder that cannot be read, or is too long, has no record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/FileStamp.h"

namespace TesselServer {

class FolderRecord {
 public:
  // An entry by its number, 0 to Count() - 1, which it keeps.
  using Number = std::size_t;

  // Reads the folder open as `descriptor`. What `before`, an older record of the same folder or nullptr, knows of files
  // that are still there is taken over. nullptr when the folder cannot be read to its end or the record would be longer
  // than `limit` bytes.
  static std::shared_ptr<FolderRecord> Read(int descriptor, const Reading& reading, const FolderRecord* before,
                                            std::size_t limit);

  const Reading& ReadAs() const { return reading_; }

  Number Count() const { return entries_.size(); }
  std::size_t Bytes() const;  // of memory, as many as it takes in all

  // Both until the record goes. The name ends in NUL. The type is one of the DT_ values of readdir(3).
  const char* Name(Number entry) const { return names_.data() + entries_[entry].nameAt; }
  unsigned char Type(Number entry) const { return entries_[entry].type; }

  // The first name in byte order that is equal to `name` without regard to ASCII case, "" when there is none; until the
  // record goes. The first call sorts the names.
  std::string_view FirstEqual(std::string_view name);
  bool IsSorted() const { return sorted_.size() == entries_.size(); }

  // Whether the folder itself takes names in other spellings: one that is not in the record may be there.
  bool TakesOtherSpellings() const { return takesOtherSpellings_; }

  // The attributes that were learnt of the file with this stamp, and remembering them. They are remembered where the
  // stamp was settled when they were asked for, not before the moment `usedAt` of World::FileClockNanoseconds, and the
  // file lies in the folder's own file system.
  std::optional<std::uint32_t> Attributes(Number entry, const FileStamp& file) const;
  void LearnAttributes(Number entry, const FileStamp& file, std::uint32_t attributes);
  void UsedAt(std::int64_t moment) { usedAt_ = moment; }

 private:
  struct Entry {
    std::uint64_t inode = 0;   // of the file whose attributes are known, 0 (which no file has) for none
    std::int64_t changed = 0;  // its change time
    std::uint32_t attributes = 0;
    std::uint32_t nameAt = 0;
    unsigned char type = 0;
  };

  // Finds what an older record knows of names that come in the same order as there.
  class Heir;

  explicit FolderRecord(const Reading& reading) : reading_(reading) {}

  Reading reading_;
  bool takesOtherSpellings_ = false;
  std::int64_t usedAt_ = 0;
  std::string names_;  // NUL after each
  std::vector<Entry> entries_;
  std::vector<std::uint32_t>
      sorted_;  // entries without regard to case, equal ones in byte order; empty until asked for
};

}  // namespace TesselServer
