#include "platform/files/FileSystem.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "platform/files/FileCache.h"
#include "platform/files/FolderCache.h"
#include "platform/files/OpenPaths.h"
#include "platform/files/PathWalk.h"
#include "platform/world/AsciiCase.h"
#include "platform/world/SystemErrors.h"

namespace TesselServer {
namespace {

// A path without an end in the middle, or "" (which nothing is found at) for one that a NUL would cut short.
std::string SystemPath(std::string_view path) {
  return path.find('\0') == std::string_view::npos ? WithSlashes(path) : std::string();
}

// As OpenAnywhereOrRaise; raises the lack of permission as well.
int OpenPermittedOrRaise(int folder, const std::string& path, int flags) {
  const int opened = OpenAnywhereOrRaise(folder, path, flags);
  if (opened == -EACCES) throw SystemError(EACCES);
  return opened;
}

// Opens a path that no root holds. Closed when there is nothing, or a file where only a folder can be meant.
OpenFile OpenAnyCase(std::string_view path, int flags) {
  const std::string text = SystemPath(path);
  if (text.empty()) return {};
  int opened = OpenAnywhere(AT_FDCWD, text, flags);
  if (opened == -ENOENT || opened == -ENOTDIR) {
    const auto spelling = TrueSpelling(&OpenAnywhere, AT_FDCWD, text);
    if (!spelling) return {};
    opened = OpenAnywhere(AT_FDCWD, *spelling, flags);
  }
  if (opened < 0) return {};
  OpenFile file(opened);
  return file.Kind() == EntryKind::kFile && text.back() == '/' ? OpenFile() : std::move(file);
}

// Whether no file system takes the name for another one, but for the case of its letters. Some take letters beyond
// ASCII for others, drop dots and blanks at the end, or have short names with a "~".
bool IsPlain(std::string_view name) {
  const auto isAlphanumeric = [](char c) {
    return (c >= '0' && c <= '9') || (UpperAscii(c) >= 'A' && UpperAscii(c) <= 'Z');
  };
  return isAlphanumeric(name.back()) && std::all_of(name.begin(), name.end(), [&](char c) {
           return isAlphanumeric(c) || c == '-' || c == '_' || c == '.';
         });
}

}  // namespace

OpenFile::OpenFile(int descriptor) : descriptor_(descriptor) {
  if (descriptor < 0) return;
  stamp_ = StampOfDescriptor(descriptor).value_or(FileStamp());
  if (KindOf(stamp_.mode) == EntryKind::kNone) *this = {};
}

OpenFile::OpenFile(std::shared_ptr<const CachedFile> cached)
    : cached_(std::move(cached)), stamp_(cached_->reading.Stamp()) {}

bool OpenFile::ReadAll(std::string& bytes, std::int64_t limit) const {
  bytes.clear();
  if (Kind() != EntryKind::kFile) return false;
  if (!cached_) return ReadWhole(Descriptor(), stamp_.size, limit, bytes);
  const auto most = static_cast<std::size_t>(std::max<std::int64_t>(limit, 0));
  bytes.assign(*cached_->contents, 0, most);
  return cached_->contents->size() <= most;
}

std::string OpenFile::CanonicalPath() const {
  if (!IsOpen()) return {};
  if (!cached_) return PathOfDescriptor(Descriptor());
  const UniqueDescriptor file(OpenAnywhere(AT_FDCWD, cached_->path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  const auto stamp = StampOfDescriptor(file.Get());
  return stamp && stamp->identity == Identity() ? PathOfDescriptor(file.Get()) : std::string();
}

std::shared_ptr<const std::string> OpenFile::Contents() const { return cached_ ? cached_->contents : nullptr; }

RootFolder::RootFolder(std::string path) : path_(std::move(path)), systemPath_(SystemPath(path_)) {}

RootFolder::RootFolder(std::string path, const World& world) : RootFolder(std::move(path)) {
  folders_ = std::make_unique<FolderCache>(systemPath_, world);
  files_ = std::make_unique<FileCache>(systemPath_, world);
}

RootFolder::RootFolder(RootFolder&&) noexcept = default;
RootFolder& RootFolder::operator=(RootFolder&&) noexcept = default;
RootFolder::~RootFolder() = default;

FoundEntry RootFolder::Find(std::string_view relative) const {
  const auto path = CollapsePath(relative);
  if (!path || systemPath_.empty()) return {};
  if (files_ && !path->asFolder) {
    if (auto file = files_->Find(path->text)) {
      return {EntryKind::kFile, path->text, true, OpenFile(std::move(file)), true};
    }
  }
  if (folders_ && folders_->Lacks(path->text)) return {};
  // The usual way asks the system for nothing but the file: the whole path at once, where no link is on it.
  const int flags = FlagsForReading() | (path->text.empty() ? O_DIRECTORY : 0);
  int opened = -ELOOP;
  if (!isBehindLink_) opened = OpenDirectlyOrRaise(AT_FDCWD, JoinPath(systemPath_, path->text), flags);
  if (opened < 0) {
    const UniqueDescriptor root(OpenAnywhereOrRaise(AT_FDCWD, systemPath_, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!root.IsOpen()) return {};
    if (opened == -ELOOP) {
      opened = OpenDirectlyOrRaise(root.Get(), path->text, flags);
      isBehindLink_ = isBehindLink_ || opened >= 0;
    }
    if (opened < 0) return FindBeneath(&OpenBeneathOrRaise, root.Get(), *path, folders_.get(), opened);
  }
  return Direct(EntryOpened(*path, OpenFile(opened)));
}

// What was opened without a link.
FoundEntry RootFolder::Direct(FoundEntry found) const {
  if (found.kind != EntryKind::kFile) return found;
  found.isOwnName = IsPlain(std::string_view(found.name).substr(found.name.rfind('/') + 1));
  found.mayBeRemembered = files_ != nullptr;
  return found;
}

void RootFolder::Remember(FoundEntry& found) const {
  if (!files_ || !found.mayBeRemembered) return;
  auto file = files_->Admit(found.name, found.file.Descriptor(), found.file.Stamp());
  if (file) found.file = OpenFile(std::move(file));
}

std::shared_ptr<FolderRecord> RootFolder::NamesIn(const FoundEntry& folder) const {
  if (!folders_ || folder.file.Kind() != EntryKind::kDirectory) return nullptr;
  return folders_->NamesOf(folder.name, folder.file.Descriptor());
}

OpenFile OpenPath(std::string_view path) { return OpenAnyCase(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }

PathIdentity IdentifyPath(std::string_view path) {
  using State = PathIdentity::State;
  const std::string text = SystemPath(path);
  if (text.empty()) return {};
  struct stat status;
  if (stat(text.c_str(), &status) == 0) return {State::kFound, StampOf(status).identity};
  if (errno != ENOENT && errno != ENOTDIR) return {State::kUnknown, {}};
  if (lstat(text.c_str(), &status) == 0) return {State::kDangling, {}};
  try {
    const auto spelling = TrueSpelling(&OpenPermittedOrRaise, AT_FDCWD, text);
    if (!spelling || stat(spelling->c_str(), &status) != 0) return {};
    return {State::kFound, StampOf(status).identity};
  } catch (const Error&) {
    return {State::kUnknown, {}};
  }
}

EntryKind KindOfPath(std::string_view path) { return OpenAnyCase(path, O_PATH | O_CLOEXEC).Kind(); }

}  // namespace TesselServer
