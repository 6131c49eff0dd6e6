#include "platform/files/FileFacts.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/files/DosAttributes.h"
#include "platform/files/FileSystem.h"
#include "platform/files/OpenPaths.h"
#include "platform/files/PathWalk.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

// Which bits of the extended attribute count.
constexpr std::uint32_t kDosAttributes = FileAttribute::kHidden | FileAttribute::kSystem | FileAttribute::kTemporary;

constexpr mode_t kAllMayWrite = S_IWUSR | S_IWGRP | S_IWOTH;
constexpr mode_t kPermissions = 07777;

// What is at a path, as the system is asked for it.
struct Located {
  std::string path;  // "" when nothing of interest exists
  struct stat status;
};

Located Locate(std::string_view path) {
  Located located{WithSlashes(path), {}};
  if (path.empty() || path.find('\0') != std::string_view::npos) return {};
  const bool asFolder = located.path.back() == '/';
  int failed = stat(located.path.c_str(), &located.status);
  if (failed != 0 && (errno == ENOENT || errno == ENOTDIR)) {
    auto spelling = TrueSpelling(&OpenAnywhere, AT_FDCWD, located.path);
    if (!spelling) return {};
    located.path = std::move(*spelling);
    failed = stat(located.path.c_str(), &located.status);
  }
  if (failed != 0) return {};
  const EntryKind kind = KindOf(located.status.st_mode);
  return kind == EntryKind::kNone || (kind == EntryKind::kFile && asFolder) ? Located{} : located;
}

// Writes the extended attribute; a read-only file must be writable for as long as that takes.
bool WriteKeptAttributes(const Located& entry, std::uint32_t attributes) {
  const mode_t permissions = entry.status.st_mode & kPermissions;
  const bool isReadOnly = (permissions & S_IWUSR) == 0;
  if (isReadOnly && chmod(entry.path.c_str(), permissions | S_IWUSR) != 0) return false;
  const bool written = WriteDosAttributes(entry.path, attributes);
  return (!isReadOnly || chmod(entry.path.c_str(), permissions) == 0) && written;
}

int OpenForTimes(const Located& entry) {
  constexpr int kFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  if (KindOf(entry.status.st_mode) == EntryKind::kDirectory)
    return open(entry.path.c_str(), O_RDONLY | O_DIRECTORY | kFlags);
  return open(entry.path.c_str(), O_RDWR | kFlags);
}

// "" when it has no path from the root.
std::string WorkingFolder() {
  std::array<char, PATH_MAX> folder;
  if (getcwd(folder.data(), folder.size()) == nullptr || folder[0] != '/') return {};
  return folder.data();
}

}  // namespace

FileFacts FactsOfStatus(const struct stat& status, std::uint32_t dosAttributes) {
  FileFacts facts;
  facts.kind = KindOf(status.st_mode);
  facts.attributes = dosAttributes & kDosAttributes;
  if ((status.st_mode & S_IWUSR) == 0) facts.attributes |= FileAttribute::kReadOnly;
  if (facts.kind == EntryKind::kDirectory) facts.attributes |= FileAttribute::kDirectory;
  if (facts.kind == EntryKind::kFile) {
    facts.attributes |= FileAttribute::kArchive;
    facts.size = status.st_size;
  }
  facts.modified = status.st_mtim.tv_sec;
  facts.identity = {status.st_dev, status.st_ino};
  return facts;
}

PathFacts FactsOfPath(std::string_view path) {
  Located entry = Locate(path);
  if (entry.path.empty()) return {};
  const FileFacts facts = FactsOfStatus(entry.status, DosAttributesOf(entry.path));
  return {std::move(entry.path), facts};
}

bool WriteFileAttributes(std::string_view path, std::uint32_t attributes) {
  const Located entry = Locate(path);
  if (entry.path.empty()) return false;
  const std::uint32_t kept = attributes & kDosAttributes;
  if (kept != (DosAttributesOf(entry.path) & kDosAttributes) && !WriteKeptAttributes(entry, kept)) return false;
  const mode_t permissions = entry.status.st_mode & kPermissions;
  const bool wasReadOnly = (permissions & S_IWUSR) == 0;
  const bool readOnly = (attributes & FileAttribute::kReadOnly) != 0;
  if (readOnly == wasReadOnly) return true;
  return chmod(entry.path.c_str(), readOnly ? permissions & ~kAllMayWrite : permissions | S_IWUSR) == 0;
}

bool WriteFileTime(std::string_view path, FileTime which, std::int64_t utcSeconds) {
  const Located entry = Locate(path);
  if (entry.path.empty()) return false;
  const UniqueDescriptor opened(OpenForTimes(entry));
  if (!opened.IsOpen()) return false;
  const timespec unchanged{0, UTIME_OMIT};
  const timespec moment{utcSeconds, 0};
  const bool isAccess = which == FileTime::kLastAccess;
  const std::array<timespec, 2> times{isAccess ? moment : unchanged, isAccess ? unchanged : moment};
  return futimens(opened.Get(), times.data()) == 0;
}

std::string FullPathOf(std::string_view text) {
  if (text.empty() || text.find('\0') != std::string_view::npos) return {};
  const std::string slashed = WithSlashes(text);
  std::string path = slashed.front() == '/' ? "/" : WorkingFolder();
  if (path.empty()) return {};
  path.erase(0, 1);
  for (std::size_t start = 0; start <= slashed.size();) {
    const std::size_t end = std::min(slashed.find('/', start), slashed.size());
    ApplyComponent(path, std::string_view(slashed).substr(start, end - start));
    start = end + 1;
  }
  if (!path.empty() && slashed.back() == '/') path += '/';
  path.insert(0, 1, '/');
  return path.size() < RootFolder::kMaxPathBytes ? path : std::string();
}

}  // namespace TesselServer
