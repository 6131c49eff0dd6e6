#include "platform/internal/KnownFiles.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "platform/internal/KnownPath.h"

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
  const auto before = StampOfDescriptor(file.Descriptor());
  if (!before || !IsSettled(*before, FileClockNow()) || !KeepsContentChangeTimes(file.Descriptor())) return nullptr;
  std::string contents;
  if (!file.ReadAll(contents, kMaxFileBytes) || StampOfDescriptor(file.Descriptor()) != before) return nullptr;
  if (static_cast<std::int64_t>(contents.size()) != before->size) return nullptr;
  KnownFile known{JoinPath(rootPath_, name), WayTo(rootPath_, name), *before, nullptr, NowMilliseconds()};
  if (!HasNoLinks(known.way) || StampOfFile(known.path) != before) return nullptr;
  const std::size_t bytes = (1 + known.way.size()) * (kEntryBytes + known.path.size()) + contents.size();
  known.contents = std::make_shared<const std::string>(std::move(contents));
  auto shared = std::make_shared<const KnownFile>(std::move(known));
  files_.Put(name, shared, bytes);
  return shared;
}

}  // namespace TesselServer
