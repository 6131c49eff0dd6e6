#include "platform/DirectoryReader.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "platform/internal/DosAttributes.h"
#include "platform/internal/EntryStatus.h"
#include "platform/internal/FactsOfStatus.h"
#include "platform/internal/UniqueDescriptor.h"

namespace TesselServer {
namespace {

struct CloseStream {
  void operator()(DIR* stream) const { closedir(stream); }
};

}  // namespace

struct DirectoryReader::Stream {
  std::unique_ptr<DIR, CloseStream> entries;
};

DirectoryReader::DirectoryReader(const OpenFile& directory, EntryKind wanted)
    : directory_(directory.Descriptor()), wanted_(wanted) {
  procPath_ = "/proc/self/fd/" + std::to_string(directory_) + '/';
  procPathLength_ = procPath_.size();
  if (directory.Kind() != EntryKind::kDirectory) return;
  UniqueDescriptor own(openat(directory_, ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  if (!own.IsOpen()) return;
  std::unique_ptr<DIR, CloseStream> entries(fdopendir(own.Get()));
  if (!entries) return;
  own.Release();
  stream_ = std::make_unique<Stream>(Stream{std::move(entries)});
}

DirectoryReader::~DirectoryReader() = default;

std::optional<DirectoryEntry> DirectoryReader::Next() {
  if (!stream_) return std::nullopt;
  while (const dirent* entry = readdir(stream_->entries.get())) {
    if (auto described = Describe(entry->d_name, entry->d_type)) return described;
  }
  return std::nullopt;
}

// Nothing when it is not what is wanted. A type that the folder itself tells saves the question.
std::optional<DirectoryEntry> DirectoryReader::Describe(const char* name, unsigned char type) {
  const unsigned char otherType = wanted_ == EntryKind::kFile ? DT_DIR : DT_REG;
  if (type == otherType) return std::nullopt;
  struct stat status;
  if (fstatat(directory_, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  const bool isLink = S_ISLNK(status.st_mode);
  if (isLink && fstatat(directory_, name, &status, 0) != 0) return std::nullopt;
  if (KindOf(status) != wanted_) return std::nullopt;
  const std::uint32_t kept = wanted_ == EntryKind::kFile ? KeptAttributes(name, isLink) : 0;
  return DirectoryEntry{name, FactsOfStatus(status, kept), isLink};
}

std::uint32_t DirectoryReader::KeptAttributes(const char* name, bool isLink) {
  if (!keepsAttributes_) return 0;
  procPath_.resize(procPathLength_);
  procPath_ += name;
  if (isLink) return DosAttributesOf(procPath_);  // its target's file system may be another one
  return DosAttributesOf(procPath_, keepsAttributes_);
}

}  // namespace TesselServer
