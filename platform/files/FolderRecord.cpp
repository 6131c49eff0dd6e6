#include "platform/files/FolderRecord.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "platform/files/FolderStream.h"
#include "platform/world/AsciiCase.h"

namespace TesselServer {
namespace {

bool LessNoCase(std::string_view a, std::string_view b) {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char one, char other) {
    return static_cast<unsigned char>(UpperAscii(one)) < static_cast<unsigned char>(UpperAscii(other));
  });
}

}  // namespace

// A folder's order is the same from one reading to the next but for entries added and removed in between, so the next
// name wanted is near the one before.
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
  static constexpr Number kLookAhead = 8;  // after more removed names their neighbours are looked up anew

  const FolderRecord* before_;
  Number next_ = 0;
};

std::shared_ptr<FolderRecord> FolderRecord::Read(int descriptor, const Reading& reading, const FolderRecord* before,
                                                 std::size_t limit) {
  FolderStream stream = FolderStream::Of(descriptor);
  if (!stream.IsOpen()) return nullptr;
  std::shared_ptr<FolderRecord> record(new FolderRecord(reading));
  record->takesOtherSpellings_ = TesselServer::TakesOtherSpellings(descriptor);
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
  constexpr std::size_t kHousekeeping = 192;  // what the cache needs to find it again
  return sizeof *this + kHousekeeping + names_.capacity() + entries_.capacity() * sizeof(Entry) +
         entries_.size() * sizeof(std::uint32_t);
}

std::string_view FolderRecord::FirstEqual(std::string_view name) {
  if (!IsSorted()) {
    std::vector<std::uint32_t> sorted(entries_.size());
    std::iota(sorted.begin(), sorted.end(), 0);
    std::sort(sorted.begin(), sorted.end(), [this](std::uint32_t a, std::uint32_t b) {
      const std::string_view one = Name(a), other = Name(b);
      return EqualNoCase(one, other) ? one < other : LessNoCase(one, other);
    });
    sorted_ = std::move(sorted);
  }
  const auto place =
      std::lower_bound(sorted_.begin(), sorted_.end(), name,
                       [this](std::uint32_t each, std::string_view wanted) { return LessNoCase(Name(each), wanted); });
  return place != sorted_.end() && EqualNoCase(Name(*place), name) ? Name(*place) : std::string_view();
}

std::optional<std::uint32_t> FolderRecord::Attributes(Number entry, const FileStamp& file) const {
  const Entry& known = entries_[entry];
  const bool isKnown = known.inode == file.identity.inode && known.changed == file.changed &&
                       file.identity.device == reading_.Stamp().identity.device;
  return isKnown ? std::optional(known.attributes) : std::nullopt;
}

void FolderRecord::LearnAttributes(Number entry, const FileStamp& file, std::uint32_t attributes) {
  if (file.identity.device != reading_.Stamp().identity.device || !IsSettled(file, usedAt_)) return;
  Entry& known = entries_[entry];
  known.inode = file.identity.inode;
  known.changed = file.changed;
  known.attributes = attributes;
}

}  // namespace TesselServer
