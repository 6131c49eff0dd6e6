#include "platform/files/DirectoryReader.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

#include "platform/files/DosAttributes.h"
#include "platform/files/FileStamp.h"
#include "platform/files/FolderRecord.h"
#include "platform/files/FolderStream.h"

namespace TesselServer {

DirectoryReader::DirectoryReader(const OpenFile& directory, EntryKind wanted, std::shared_ptr<FolderRecord> record)
    : directory_(directory.Descriptor()), wanted_(wanted), record_(std::move(record)) {
  if (record_ || directory.Kind() != EntryKind::kDirectory) return;
  stream_ = std::make_unique<FolderStream>(FolderStream::Of(directory_));
  if (!stream_->IsOpen()) stream_.reset();
}

DirectoryReader::DirectoryReader(UniqueDescriptor directory, EntryKind wanted)
    : own_(std::move(directory)), directory_(own_.Get()), wanted_(wanted), hasBegun_(false) {}

DirectoryReader::~DirectoryReader() = default;

std::size_t DirectoryReader::ExpectedEntries() const { return record_ ? record_->Count() : 0; }

std::optional<DirectoryEntry> DirectoryReader::Next() {
  for (;;) {
    const Step step = Advance();
    if (step == Step::kEntry) return entry_;
    if (step == Step::kEnd) return std::nullopt;
  }
}

std::vector<NamedEntry> DirectoryReader::NextBatch(std::size_t most) {
  std::vector<NamedEntry> batch;
  while (batch.size() < most && Next()) batch.push_back({std::string(entry_.name), entry_.facts, entry_.isLink});
  return batch;
}

DirectoryReader::Step DirectoryReader::Advance() {
  if (record_) return AdvanceRemembered();
  if (!hasBegun_) {
    hasBegun_ = true;
    stream_ = std::make_unique<FolderStream>(FolderStream::Of(directory_));
  }
  const dirent* const entry = stream_ ? stream_->Next() : nullptr;
  return entry == nullptr ? Step::kEnd : Describe(entry->d_name, entry->d_type);
}

DirectoryReader::Step DirectoryReader::AdvanceRemembered() {
  if (next_ == record_->Count()) return Step::kEnd;
  const std::size_t entry = next_++;
  return Describe(record_->Name(entry), record_->Type(entry));
}

// Where the folder itself holds the type, no system call is needed.
DirectoryReader::Step DirectoryReader::Describe(const char* name, unsigned char type) {
  const unsigned char otherType = wanted_ == EntryKind::kFile ? DT_DIR : DT_REG;
  if (type == otherType) return Step::kSkipped;
  struct stat status;
  if (fstatat(directory_, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return Step::kAsked;
  const bool isLink = S_ISLNK(status.st_mode);
  if (isLink && fstatat(directory_, name, &status, 0) != 0) return Step::kAsked;
  if (KindOf(status.st_mode) != wanted_) return Step::kAsked;
  const std::uint32_t kept = wanted_ == EntryKind::kFile ? KeptAttributes(name, status, isLink) : 0;
  entry_ = {name, FactsOfStatus(status, kept), isLink};
  return Step::kEntry;
}

// Of the file that Describe looks at. Those of a link's target are asked for each time: it may lie anywhere. A single
// file may lie on another file system as well, mounted over the one of the folder.
std::uint32_t DirectoryReader::KeptAttributes(const char* name, const struct stat& status, bool isLink) {
  if (isLink) return AskDosAttributes(directory_, name).attributes;
  if (withoutAttributes_ == status.st_dev) return 0;
  const FileStamp stamp = StampOf(status);
  if (record_) {
    if (const auto known = record_->Attributes(next_ - 1, stamp)) return *known;
  }
  const DosAttributesAnswer answer = AskDosAttributes(directory_, name);
  if (!answer.isSupported) withoutAttributes_ = status.st_dev;
  if (record_ && answer.isCertain) record_->LearnAttributes(next_ - 1, stamp, answer.attributes);
  return answer.attributes;
}

}  // namespace TesselServer
