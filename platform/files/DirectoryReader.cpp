#include "platform/files/DirectoryReader.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <utility>

#include "platform/files/DosAttributes.h"
#include "platform/files/FileStamp.h"
#include "platform/files/FolderRecord.h"
#include "platform/files/FolderStream.h"
#include "platform/files/OpenPaths.h"

namespace TesselServer {
namespace {

using Step = DirectoryReader::Step;

// What counts of an entry on this device; the rest of `status` stays as it is.
void Take(const struct statx& facts, std::uint64_t device, struct stat& status) {
  status.st_dev = device;
  status.st_ino = facts.stx_ino;
  status.st_mode = facts.stx_mode;
  status.st_size = static_cast<off_t>(facts.stx_size);
  status.st_mtim = {facts.stx_mtime.tv_sec, facts.stx_mtime.tv_nsec};
  status.st_ctim = {facts.stx_ctime.tv_sec, facts.stx_ctime.tv_nsec};
}

Step Stat(int folder, const char* name, int flags, struct stat& status) {
  return fstatat(folder, name, &status, flags) == 0 ? Step::kEntry : Step::kAsked;
}

// What a link leads to, where it stays on the mount.
Step StatTargetHere(int folder, const char* name, struct stat& status) {
  const UniqueDescriptor target(OpenTargetHere(folder, name, O_PATH | O_CLOEXEC));
  if (target.IsOpen()) return fstat(target.Get(), &status) == 0 ? Step::kEntry : Step::kAsked;
  const int error = -target.Get();
  return error == ENOENT || error == ENOTDIR || error == ELOOP ? Step::kAsked : Step::kOnOtherMount;
}

}  // namespace

std::optional<NamedEntry> DescribeEntry(int directory, const std::string& name, EntryKind wanted) {
  struct stat status;
  if (Stat(directory, name.c_str(), AT_SYMLINK_NOFOLLOW, status) != Step::kEntry) return std::nullopt;
  const bool isLink = S_ISLNK(status.st_mode);
  if (isLink && Stat(directory, name.c_str(), 0, status) != Step::kEntry) return std::nullopt;
  if (KindOf(status.st_mode) != wanted) return std::nullopt;
  const bool isFile = wanted == EntryKind::kFile;
  const std::uint32_t kept = isFile ? AskDosAttributes(directory, name.c_str()).attributes : 0;
  return NamedEntry{name, FactsOfStatus(status, kept), isLink};
}

DirectoryReader::DirectoryReader(const OpenFile& directory, EntryKind wanted, std::shared_ptr<FolderRecord> record)
    : directory_(directory.Descriptor()),
      wanted_(wanted),
      device_(directory.Identity().device),
      deviceMajor_(major(device_)),
      deviceMinor_(minor(device_)),
      record_(std::move(record)) {
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
  kindIsRecorded_ = record_ && (type == DT_REG || type == DT_DIR);
  name_ = name;
  struct stat status;
  const auto own = staysHere_ ? StatHere(name, status) : Stat(directory_, name, AT_SYMLINK_NOFOLLOW, status);
  if (own != Step::kEntry) return own;
  const bool isLink = S_ISLNK(status.st_mode);
  if (isLink) {
    const auto target = staysHere_ ? StatTargetHere(directory_, name, status) : Stat(directory_, name, 0, status);
    if (target != Step::kEntry) return target;
  }
  if (KindOf(status.st_mode) != wanted_) return Step::kAsked;
  const std::uint32_t kept = wanted_ == EntryKind::kFile ? KeptAttributes(name, status, isLink) : 0;
  entry_ = {name, FactsOfStatus(status, kept), isLink};
  return Step::kEntry;
}

// What the disk of another mount would have to say for it is not asked for.
DirectoryReader::Step DirectoryReader::StatHere(const char* name, struct stat& status) {
  struct statx facts;
  const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
  if (statx(directory_, name, flags, STATX_BASIC_STATS, &facts) != 0) {
    return errno == ENOENT ? Step::kAsked : Step::kOnOtherMount;
  }
  if (facts.stx_dev_major != deviceMajor_ || facts.stx_dev_minor != deviceMinor_) return Step::kOnOtherMount;
  Take(facts, device_, status);
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
