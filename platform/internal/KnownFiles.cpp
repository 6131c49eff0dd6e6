#include "platform/internal/KnownFiles.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <optional>
#include <utility>

#include "platform/internal/EntryStatus.h"
#include "platform/internal/KnownPath.h"

namespace TesselServer {
namespace {

std::int64_t NowMilliseconds() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// Which folder `path` is; `followed`: it may be a link to one.
std::optional<FileIdentity> FolderAt(const std::string& path, bool followed) {
  struct stat status;
  if (fstatat(AT_FDCWD, path.c_str(), &status, followed ? 0 : AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return S_ISDIR(status.st_mode) ? std::optional(IdentityOf(status)) : std::nullopt;
}

// The root may be reached by a link, what lies below it not.
std::vector<KnownStep> WayTo(const std::string& root, std::string_view name) {
  std::vector<KnownStep> way;
  for (std::size_t end = 0; end != std::string_view::npos; end = name.find('/', end + 1)) {
    std::string path = JoinPath(root, name.substr(0, end));
    const auto folder = FolderAt(path, way.empty());
    if (!folder) return {};
    way.push_back({std::move(path), *folder});
  }
  return way;
}

bool WayHolds(const std::vector<KnownStep>& way) {
  bool isRoot = true;
  for (const KnownStep& step : way) {
    if (FolderAt(step.path, isRoot) != step.identity) return false;
    isRoot = false;
  }
  return true;
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
  const bool holds = NowMilliseconds() - (*known)->openedAt < kOpenAgainMilliseconds && WayHolds((*known)->way) &&
                     StampOfFile((*known)->path) == (*known)->stamp;
  if (holds) return *known;
  files_.Drop(name);
  return nullptr;
}

std::shared_ptr<const KnownFile> KnownFiles::Remember(std::string_view name, const OpenFile& file) {
  if (rootPath_.empty() || file.Kind() != EntryKind::kFile || file.Size() > kMaxFileBytes) return nullptr;
  const auto before = StampOfDescriptor(file.Descriptor());
  if (!before || !IsSettled(*before, FileClockNow()) || !KeepsContentChangeTimes(file.Descriptor())) return nullptr;
  std::string contents;
  if (!file.ReadAll(contents, kMaxFileBytes) || StampOfDescriptor(file.Descriptor()) != before) return nullptr;
  if (static_cast<std::int64_t>(contents.size()) != before->size) return nullptr;
  KnownFile known{JoinPath(rootPath_, name), WayTo(rootPath_, name), file.CanonicalPath(), *before, nullptr,
                  NowMilliseconds()};
  // a link on the way, or a way that is another by now
  if (known.way.empty() || !WayHolds(known.way) || StampOfFile(known.path) != before) return nullptr;
  const std::size_t bytes = (1 + known.way.size()) * (kEntryBytes + known.path.size()) + contents.size();
  known.contents = std::make_shared<const std::string>(std::move(contents));
  auto shared = std::make_shared<const KnownFile>(std::move(known));
  files_.Put(name, shared, bytes);
  return shared;
}

}  // namespace TesselServer
