#include "platform/files/FolderRecord.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "platform/files/FolderStream.h"
#include "platform/loop/LongMemory.h"
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
      return before_->At(at);
    }
    return {};
  }

 private:
  static constexpr Number kLookAhead = 8;  // after more removed names their neighbours are looked up anew

  const FolderRecord* before_;
  Number next_ = 0;
};

Task<std::shared_ptr<FolderRecord>> FolderRecord::ReadInTurns(int descriptor, Reading reading,
                                                              std::shared_ptr<const FolderRecord> before,
                                                              std::size_t limit, Turns* turns) {
  const auto stream = std::make_shared<FolderStream>(FolderStream::Of(descriptor));
  if (!stream->IsOpen()) co_return nullptr;
  const std::shared_ptr<FolderRecord> record(new FolderRecord(reading));
  record->takesOtherSpellings_ = TesselServer::TakesOtherSpellings(descriptor);
  Heir heir(before.get());
  for (;;) {
    auto filled = FillInTurns(stream, turns);
    const bool hasMore = co_await filled;
    if (!hasMore) break;
    ++record->batches_;
    while (const dirent* each = stream->NextOfBatch()) {
      Entry entry = heir.Find(each->d_name);
      entry.type = each->d_type;
      record->Add(entry, each->d_name);
      if (record->Bytes() > limit) co_return nullptr;
    }
  }
  if (!stream->EndedWell()) co_return nullptr;
  record->FitToSize();
  co_return record;
}

void FolderRecord::Add(Entry entry, std::string_view name) {
  entry.nameAt = AddName(name);
  if (entries_.empty() || entries_.back().size() == kEntries) {
    if (!entries_.empty()) fullBytes_ += kEntries * sizeof(Entry);
    entries_.emplace_back();
  }
  entries_.back().push_back(entry);
  ++count_;
}

// Where the name is: the number of its piece times kNameBytes, and its place there.
std::uint32_t FolderRecord::AddName(std::string_view name) {
  if (names_.empty() || names_.back().size() + name.size() + 1 > kNameBytes) {
    if (!names_.empty()) {
      names_.back().shrink_to_fit();
      fullBytes_ += names_.back().capacity();
    }
    names_.emplace_back();
  }
  std::string& piece = names_.back();
  const std::size_t at = (names_.size() - 1) * kNameBytes + piece.size();
  piece.append(name).push_back('\0');
  return static_cast<std::uint32_t>(at);
}

void FolderRecord::FitToSize() {
  if (!names_.empty()) names_.back().shrink_to_fit();
  if (!entries_.empty()) entries_.back().shrink_to_fit();
}

FolderRecord::~FolderRecord() {
  GiveBackPieces(names_);
  GiveBackPieces(entries_);
}

std::size_t FolderRecord::Bytes() const {
  constexpr std::size_t kHousekeeping = 192;  // what the cache needs to find it again
  const std::size_t lastNames = names_.empty() ? 0 : names_.back().capacity();
  const std::size_t lastEntries = entries_.empty() ? 0 : entries_.back().capacity() * sizeof(Entry);
  return sizeof *this + kHousekeeping + names_.capacity() * sizeof(std::string) +
         entries_.capacity() * sizeof(std::vector<Entry>) + fullBytes_ + lastNames + lastEntries +
         count_ * sizeof(std::uint32_t);
}

bool FolderRecord::SortSome() {
  if (IsSorted()) return true;
  if (!sorting_) {
    std::vector<std::uint32_t> numbers(count_);
    std::iota(numbers.begin(), numbers.end(), 0);
    sorting_ = std::make_unique<SortInSteps<std::uint32_t>>(std::move(numbers));
  }
  const bool isSorted = sorting_->Step([this](std::uint32_t a, std::uint32_t b) {
    const std::string_view one = Name(a), other = Name(b);
    return EqualNoCase(one, other) ? one < other : LessNoCase(one, other);
  });
  if (!isSorted) return false;
  sorted_ = sorting_->Take();
  sorting_.reset();
  return true;
}

std::string_view FolderRecord::FirstEqual(std::string_view name) {
  while (!SortSome()) {
  }
  const auto place =
      std::lower_bound(sorted_.begin(), sorted_.end(), name,
                       [this](std::uint32_t each, std::string_view wanted) { return LessNoCase(Name(each), wanted); });
  return place != sorted_.end() && EqualNoCase(Name(*place), name) ? Name(*place) : std::string_view();
}

std::optional<std::uint32_t> FolderRecord::Attributes(Number entry, const FileStamp& file) const {
  const Entry& known = At(entry);
  const bool isKnown = known.inode == file.identity.inode && known.changed == file.changed &&
                       file.identity.device == reading_.Stamp().identity.device;
  return isKnown ? std::optional(known.attributes) : std::nullopt;
}

void FolderRecord::LearnAttributes(Number entry, const FileStamp& file, std::uint32_t attributes) {
  if (file.identity.device != reading_.Stamp().identity.device || !IsSettled(file, usedAt_)) return;
  Entry& known = At(entry);
  known.inode = file.identity.inode;
  known.changed = file.changed;
  known.attributes = attributes;
}

}  // namespace TesselServer
