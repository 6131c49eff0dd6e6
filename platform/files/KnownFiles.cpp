#include "platform/files/KnownFiles.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <utility>

#include "platform/files/EntryStatus.h"
#include "platform/files/FolderSpelling.h"
#include "platform/files/KnownPath.h"
#include "platform/files/OpenPaths.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

std::int64_t NowMilliseconds() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// The root and each folder on the way to `name`.
std::vector<std::string> WayTo(const std::string& root, std::string_view name) {
  std::vector<std::string> way;
  for (std::size_t end = 0; end != std::string_view::npos; end = name.find('/', end + 1)) {
    way.push_back(JoinPath(root, name.substr(0, end)));
  }
  return way;
}

// Whether folders lead from the root to the file. The root itself may be reached by a link.
bool HasNoLinks(const std::vector<std::string>& way) {
  return std::all_of(way.begin() + 1, way.end(), [](const std::string& folder) {
    struct stat status;
    return fstatat(AT_FDCWD, folder.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
  });
}

// Which folder stands there, nothing for one that takes names in other spellings: the name that was asked for may not
// be the file's own, which tells what the file is.
std::optional<FileIdentity> FolderWithOneSpelling(const std::string& path) {
  const UniqueDescriptor folder(OpenAnywhere(AT_FDCWD, path, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  struct stat status;
  if (!folder.IsOpen() || fstat(folder.Get(), &status) != 0 || TakesOtherSpellings(folder.Get())) return std::nullopt;
  return IdentityOf(status);
}

// The stamp of the file itself, nothing for a link.
std::optional<FileStamp> StampOfFile(const std::string& path) {
  struct stat status;
  if (fstatat(AT_FDCWD, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return FileStampOf(status);
}

}  // namespace

std::shared_ptr<const KnownFile> KnownFiles::Find(std::string_view name) {
  const auto* known = files_.Find(name);
  if (known == nullptr) return nullptr;
  const bool holds = NowMilliseconds() - (*known)->openedAt < kOpenAgainMilliseconds && HasNoLinks((*known)->way) &&
                     StampOfFile((*known)->path) == (*known)->stamp;
  if (holds) return *known;
  files_.Drop(name);
  return nullptr;
}

std::shared_ptr<const KnownFile> KnownFiles::Remember(std::string_view name, const OpenFile& file) {
  if (rootPath_.empty() || file.Kind() != EntryKind::kFile || file.Size() > kMaxFileBytes) return nullptr;
  try {
    auto known = Read(name, file);
    if (!known) return nullptr;
    const std::size_t bytes = (1 + known->way.size()) * (kEntryBytes + known->path.size()) + known->contents->size();
    files_.Put(name, known, bytes);
    return known;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

// What can be asked without reading comes first: many a file is only looked at.
std::shared_ptr<const KnownFile> KnownFiles::Read(std::string_view name, const OpenFile& file) const {
  const auto before = StampOfDescriptor(file.Descriptor());
  if (!before || !IsSettled(*before, FileClockNow()) || !KeepsContentChangeTimes(file.Descriptor())) return nullptr;
  KnownFile known{JoinPath(rootPath_, name), WayTo(rootPath_, name), {}, *before, nullptr, NowMilliseconds()};
  const auto standsThere = [&] { return HasNoLinks(known.way) && StampOfFile(known.path) == before; };
  if (!standsThere()) return nullptr;
  const auto folder = FolderWithOneSpelling(known.way.back());
  if (!folder) return nullptr;
  known.folder = *folder;
  std::string contents;
  if (!file.ReadAll(contents, kMaxFileBytes) || StampOfDescriptor(file.Descriptor()) != before) return nullptr;
  if (static_cast<std::int64_t>(contents.size()) != before->size || !standsThere()) return nullptr;
  known.contents = std::make_shared<const std::string>(std::move(contents));
  return std::make_shared<const KnownFile>(std::move(known));
}

}  // namespace TesselServer
