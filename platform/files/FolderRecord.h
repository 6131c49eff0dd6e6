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

  // Reads the folder open as `descriptor`, whose stamp was `stamp` at the moment `began` of the clock of stamps. What
  // `before`, an older record of the same folder or nullptr, knows of files that are still there is taken over. nullptr
  // when the folder cannot be read to its end or the record would be longer than `limit` bytes.
  static std::shared_ptr<FolderRecord> Read(int descriptor, const FileStamp& stamp, std::int64_t began,
                                            const FolderRecord* before, std::size_t limit);

  // Whether the names are still those of the folder, when its stamp is `stamp` at the moment `now`.
  bool Holds(const FileStamp& stamp, std::int64_t now) const {
    return IsSettled(stamp_, began_) && IsFresh(began_, now) && stamp_ == stamp;
  }

  Number Count() const { return entries_.size(); }
  std::size_t Bytes() const;  // of memory, as many as it takes in all

  // Both until the record goes. The name ends in NUL. The type is one of the DT_ values of readdir(3).
  const char* Name(Number entry) const { return names_.data() + entries_[entry].nameAt; }
  unsigned char Type(Number entry) const { return entries_[entry].type; }

  // The attributes that were learnt of the file with this stamp, and remembering them. They are remembered where the
  // stamp was settled when they were asked for, at the moment `asked`, and the file lies in the folder's own file
  // system.
  std::optional<std::uint32_t> Attributes(Number entry, const FileStamp& file) const;
  void LearnAttributes(Number entry, const FileStamp& file, std::int64_t asked, std::uint32_t attributes);

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

  FolderRecord(const FileStamp& stamp, std::int64_t began) : stamp_(stamp), began_(began) {}

  FileStamp stamp_;
  std::int64_t began_;
  std::string names_;  // NUL behind each
  std::vector<Entry> entries_;
};

}  // namespace TesselServer
