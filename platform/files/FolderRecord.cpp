#include "platform/files/FolderRecord.h"

#include <algorithm>
#include <utility>

#include "platform/files/FolderStream.h"

namespace TesselServer {

// A folder's order is the same from one reading to the next but for what came and went between, so the next name wanted
// stands near the one before.
class FolderRecord::Heir {
 public:
  explicit Heir(const FolderRecord* before) : before_(before) {}

  // The entry `name` with what was known of it, a fresh one when it was not there or is not met.
  Entry Find(std::string_view name) {
    const Number end = before_ == nullptr ? 0 : std::min(before_->Count(), next_ + kLookAhead);
    for (Number at = next_; at < end; ++at) {
      if (before_->Name(at) != name) continue;
      next_ = at + 1;
      return before_->entries_[at];
    }
    return {};
  }

 private:
  static constexpr Number kLookAhead = 8;  // more names gone in one place only make their neighbours be asked again

  const FolderRecord* before_;
  Number next_ = 0;
};

std::shared_ptr<FolderRecord> FolderRecord::Read(int descriptor, const FileStamp& stamp, std::int64_t began,
                                                 const FolderRecord* before, std::size_t limit) {
  FolderStream stream(descriptor);
  if (!stream.IsOpen()) return nullptr;
  std::shared_ptr<FolderRecord> record(new FolderRecord(stamp, began));
  Heir heir(before);
  while (const dirent* each = stream.Next()) {
    const std::string_view name = each->d_name;
    Entry entry = heir.Find(name);
    entry.nameAt = static_cast<std::uint32_t>(record->names_.size());
    entry.type = each->d_type;
    record->names_.append(name).push_back('\0');
    record->entries_.push_back(entry);
    if (record->Bytes() > limit) return nullptr;
  }
  if (!stream.EndedWell()) return nullptr;
  record->names_.shrink_to_fit();
  record->entries_.shrink_to_fit();
  return record;
}

std::size_t FolderRecord::Bytes() const {
  constexpr std::size_t kHousekeeping = 192;  // what whoever remembers it needs to find it again
  return sizeof *this + kHousekeeping + names_.capacity() + entries_.capacity() * sizeof(Entry);
}

std::optional<std::uint32_t> FolderRecord::Attributes(Number entry, const FileStamp& file) const {
  const Entry& known = entries_[entry];
  if (known.inode != file.inode || known.changed != file.changed || file.device != stamp_.device) return std::nullopt;
  return known.attributes;
}

void FolderRecord::LearnAttributes(Number entry, const FileStamp& file, std::int64_t asked, std::uint32_t attributes) {
  if (file.device != stamp_.device || !IsSettled(file, asked)) return;
  Entry& known = entries_[entry];
  known.inode = file.inode;
  known.changed = file.changed;
  known.attributes = attributes;
}

}  // namespace TesselServer
