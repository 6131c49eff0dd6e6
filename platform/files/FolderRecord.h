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
#include <utility>
#include <vector>

#include "platform/files/FileStamp.h"
#include "platform/files/SortInSteps.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class Turns;

class FolderRecord {
 public:
  // An entry by its number, 0 to Count() - 1, which it keeps.
  using Number = std::size_t;

  // Reads the folder open as `descriptor`, in turns; the descriptor is the caller's again as soon as the task is
  // suspended. What `before`, an older record of the same folder or nullptr, knows of files that are still there is
  // taken over. nullptr when the folder cannot be read to its end or the record would be longer than `limit` bytes.
  static Task<std::shared_ptr<FolderRecord>> ReadInTurns(int descriptor, Reading reading,
                                                         std::shared_ptr<const FolderRecord> before, std::size_t limit,
                                                         Turns* turns);
  static std::shared_ptr<FolderRecord> Read(int descriptor, const Reading& reading,
                                            std::shared_ptr<const FolderRecord> before, std::size_t limit) {
    return RunNow(ReadInTurns(descriptor, reading, std::move(before), limit, nullptr));
  }

  FolderRecord(const FolderRecord&) = delete;
  FolderRecord& operator=(const FolderRecord&) = delete;
  ~FolderRecord();

  const Reading& ReadAs() const { return reading_; }

  Number Count() const { return count_; }
  // Whether no name can be there twice: the system gave them all at once, and not while they changed.
  bool NamesDiffer() const { return batches_ <= 1; }
  std::size_t Bytes() const;  // of memory, as many as it takes in all

  // Both until the record goes. The name ends in NUL. The type is one of the DT_ values of readdir(3).
  const char* Name(Number entry) const {
    const std::uint32_t at = At(entry).nameAt;
    return names_[at / kNameBytes].data() + at % kNameBytes;
  }
  unsigned char Type(Number entry) const { return At(entry).type; }

  // The first name in byte order that is equal to `name` without regard to ASCII case, "" when there is none; until the
  // record goes. Sorts the names where they are not sorted yet.
  std::string_view FirstEqual(std::string_view name);
  bool IsSorted() const { return sorted_.size() == count_; }

  // Sorts them a little further, some microseconds, for all that wait for it. Whether they are sorted.
  bool SortSome();

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

  // Names and entries lie in pieces, so that no step of a long reading moves what was read before.
  static constexpr std::uint32_t kNameBytes = 64 * 1024;
  static constexpr Number kEntries = 2048;

  explicit FolderRecord(const Reading& reading) : reading_(reading) {}

  const Entry& At(Number entry) const { return entries_[entry / kEntries][entry % kEntries]; }
  Entry& At(Number entry) { return entries_[entry / kEntries][entry % kEntries]; }

  void Add(Entry entry, std::string_view name);
  std::uint32_t AddName(std::string_view name);
  void FitToSize();

  Reading reading_;
  bool takesOtherSpellings_ = false;
  std::int64_t usedAt_ = 0;
  std::vector<std::string> names_;  // NUL after each name; kNameBytes at most in each piece, full but for the last
  std::vector<std::vector<Entry>> entries_;  // kEntries in each piece but the last
  Number count_ = 0;
  std::size_t batches_ = 0;                              // in how many the system gave them
  std::size_t fullBytes_ = 0;                            // of the pieces but the last ones
  std::vector<std::uint32_t> sorted_;                    // entries without regard to case, equal ones in byte order
  std::unique_ptr<SortInSteps<std::uint32_t>> sorting_;  // once asked for, until they are sorted
};

}  // namespace TesselServer
