#include "platform/files/FileSystem.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <span>
#include <utility>

#include "platform/files/ContentsReading.h"
#include "platform/files/FileCache.h"
#include "platform/files/FolderCache.h"
#include "platform/files/OpenPaths.h"
#include "platform/files/PathWalk.h"
#include "platform/files/SlowDisk.h"
#include "platform/files/SpellingWalk.h"
#include "platform/world/AsciiCase.h"
#include "platform/world/SystemErrors.h"
#include "platform/world/World.h"

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

// What is open as `opened` by the path `text`. Closed where only a folder can be meant and it is a file.
OpenFile OpenedByText(const std::string& text, int opened) {
  if (opened < 0) return {};
  OpenFile file(opened);
  return file.Kind() == EntryKind::kFile && text.back() == '/' ? OpenFile() : std::move(file);
}

// What is at a path that no root holds, by its own spelling; nothing where another one may be there.
std::optional<OpenFile> OpenAsSpelled(const std::string& text, int flags) {
  if (text.empty()) return OpenFile();
  const int opened = OpenAnywhere(AT_FDCWD, text, flags);
  if (opened == -ENOENT || opened == -ENOTDIR) return std::nullopt;
  return OpenedByText(text, opened);
}

Task<OpenFile> OpenOtherwise(std::string text, int flags, Turns* turns) {
  auto walk = TrueSpellingInTurns(&OpenAnywhere, AT_FDCWD, text, nullptr, turns);
  const auto spelling = co_await walk;
  if (!spelling) co_return OpenFile();
  co_return OpenedByText(text, OpenAnywhere(AT_FDCWD, *spelling, flags));
}

Task<OpenFile> OpenAnyCase(std::string path, int flags, Turns* turns) {
  const std::string text = SystemPath(path);
  if (auto file = OpenAsSpelled(text, flags)) co_return std::move(*file);
  auto otherwise = OpenOtherwise(text, flags, turns);
  co_return co_await otherwise;
}

OpenFile OpenAnyCaseNow(std::string_view path, int flags) {
  const std::string text = SystemPath(path);
  if (auto file = OpenAsSpelled(text, flags)) return std::move(*file);
  return RunNow(OpenOtherwise(text, flags, nullptr));
}

constexpr int kFlagsForContents = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int kFlagsForKind = O_PATH | O_CLOEXEC;

// What is at the path by its own spelling; nothing where another one may be there.
std::optional<PathIdentity> IdentifyAsSpelled(const std::string& text) {
  using State = PathIdentity::State;
  if (text.empty()) return PathIdentity();
  struct stat status;
  if (stat(text.c_str(), &status) == 0) return PathIdentity{State::kFound, StampOf(status).identity};
  if (errno != ENOENT && errno != ENOTDIR) return PathIdentity{State::kUnknown, {}};
  if (lstat(text.c_str(), &status) == 0) return PathIdentity{State::kDangling, {}};
  return std::nullopt;
}

PathIdentity IdentifySpelling(const std::optional<std::string>& spelling) {
  struct stat status;
  if (!spelling || stat(spelling->c_str(), &status) != 0) return {};
  return {PathIdentity::State::kFound, StampOf(status).identity};
}

Task<PathIdentity> IdentifyOtherwise(std::string text, Turns* turns) {
  try {
    auto walk = TrueSpellingInTurns(&OpenPermittedOrRaise, AT_FDCWD, text, nullptr, turns);
    const auto spelling = co_await walk;
    co_return IdentifySpelling(spelling);
  } catch (const Error&) {
    co_return PathIdentity{PathIdentity::State::kUnknown, {}};
  }
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
  world_ = &world;
  folders_ = std::make_unique<FolderCache>(systemPath_, world);
  files_ = std::make_unique<FileCache>(systemPath_, world);
}

RootFolder::RootFolder(RootFolder&&) noexcept = default;
RootFolder& RootFolder::operator=(RootFolder&&) noexcept = default;
RootFolder::~RootFolder() = default;

// How far a look-up comes before other spellings are tried.
struct RootFolder::Attempt {
  // Tries what takes no folder's names: the path as it is spelled, below the folder `root` as the system takes it.
  Attempt(const std::string& rootPath, const CollapsedPath& path, bool isRootBehindLink);

  std::optional<FoundEntry> found;  // what it comes to; nothing where other spellings are to be tried
  bool isDirect = false;            // it was opened without a link
  bool isBehindLink;                // RootFolder::isBehindLink_
  bool mayWait = false;             // RootFolder::mayWait_, where it was asked anew
  UniqueDescriptor root{-1};
};

// The usual way asks the system for nothing but the file: the whole path at once, where no link is on it.
RootFolder::Attempt::Attempt(const std::string& rootPath, const CollapsedPath& path, bool isRootBehindLink)
    : isBehindLink(isRootBehindLink) {
  const int flags = FlagsForReading() | (path.text.empty() ? O_DIRECTORY : 0);
  int opened = -ELOOP;
  if (!isBehindLink) opened = OpenDirectlyOrRaise(AT_FDCWD, JoinPath(rootPath, path.text), flags);
  if (opened < 0) root = UniqueDescriptor(OpenAnywhereOrRaise(AT_FDCWD, rootPath, O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (opened == -ELOOP && root.IsOpen()) {
    opened = OpenDirectlyOrRaise(root.Get(), path.text, flags);
    isBehindLink = isBehindLink || opened >= 0;
  }
  if (opened >= 0) {
    found = EntryOpened(path, OpenFile(opened));
    isDirect = true;
  } else if (root.IsOpen()) {
    found = FindAsSpelled(&OpenBeneathOrRaise, root.Get(), path, opened);
  } else {
    found = FoundEntry();
  }
}

// What is known of the path without looking.
std::optional<FoundEntry> RootFolder::Remembered(const CollapsedPath& path) const {
  if (files_ && !path.asFolder) {
    if (auto file = files_->Find(path.text)) {
      return FoundEntry{EntryKind::kFile, path.text, true, OpenFile(std::move(file)), true};
    }
  }
  if (folders_ && folders_->Lacks(path.text)) return FoundEntry();
  return std::nullopt;
}

void RootFolder::Learn(Attempt& attempt) const {
  isBehindLink_ = attempt.isBehindLink;
  if (attempt.isDirect) attempt.found = Direct(std::move(*attempt.found));
}

// A file system that has kept a call waiting is asked beside the loop only whether it is still there.
bool RootFolder::MayWait() const {
  if (world_ != nullptr && whenAsked_) {
    const bool isRecent = world_->MonotonicMilliseconds() - *whenAsked_ < Reading::kMaxAgeMilliseconds;
    if (mayWait_ || isRecent) return mayWait_;
  }
  mayWait_ = MayWaitAt(systemPath_);
  if (world_ != nullptr) whenAsked_ = world_->MonotonicMilliseconds();
  return mayWait_;
}

FoundEntry RootFolder::Find(std::string_view relative) const {
  const auto path = CollapsePath(relative);
  if (!path || systemPath_.empty()) return {};
  if (auto known = Remembered(*path)) return std::move(*known);
  Attempt attempt(systemPath_, *path, isBehindLink_);
  Learn(attempt);
  if (attempt.found) return std::move(*attempt.found);
  return RunNow(FindOtherwise(&OpenBeneathOrRaise, attempt.root.Get(), *path, folders_.get(), nullptr));
}

std::optional<FoundEntry> RootFolder::FindAtOnce(std::string_view relative) const {
  const auto path = CollapsePath(relative);
  if (!path || systemPath_.empty()) return FoundEntry();
  if (auto known = Remembered(*path)) return known;
  if (MayWait()) return std::nullopt;
  Attempt attempt(systemPath_, *path, isBehindLink_);
  Learn(attempt);
  if (attempt.found) return std::move(attempt.found);
  return FindOtherwiseAtOnce(&OpenBeneathOrRaise, attempt.root.Get(), *path, folders_.get());
}

Task<FoundEntry> RootFolder::FindInTurns(std::string relative, Turns* turns) const {
  const auto path = CollapsePath(relative);
  if (!path || systemPath_.empty()) co_return FoundEntry();
  if (auto known = Remembered(*path)) co_return std::move(*known);
  if (turns != nullptr && MayWait()) {
    auto beside = FindBesideLoop(*path, *turns);
    co_return co_await beside;
  }
  Attempt attempt(systemPath_, *path, isBehindLink_);
  Learn(attempt);
  if (attempt.found) co_return std::move(*attempt.found);
  auto found = FindOtherwise(&OpenBeneathOrRaise, attempt.root.Get(), *path, folders_.get(), turns);
  co_return co_await found;
}

// Looks beside the loop. Nothing of this object is touched there.
Task<FoundEntry> RootFolder::FindBesideLoop(CollapsedPath path, Turns& turns) const {
  const std::function<Attempt()> look = [root = systemPath_, path, isBehindLink = isBehindLink_] {
    Attempt attempt(root, path, isBehindLink);
    if (!attempt.found)
      attempt.found = RunNow(FindOtherwise(&OpenBeneathOrRaise, attempt.root.Get(), path, nullptr, nullptr));
    attempt.mayWait = MayWaitAt(root);
    return attempt;
  };
  auto looking = turns.Beside().Do(Workers::Kind::kFiles, look);
  Attempt attempt = co_await looking;
  mayWait_ = attempt.mayWait;
  if (world_ != nullptr) whenAsked_ = world_->MonotonicMilliseconds();
  Learn(attempt);
  co_return std::move(*attempt.found);
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

Task<std::shared_ptr<FolderRecord>> RootFolder::NamesInTurns(const FoundEntry& folder, Turns* turns) const {
  if (!folders_ || folder.file.Kind() != EntryKind::kDirectory) co_return nullptr;
  auto names = folders_->NamesOfInTurns(folder.name, folder.file.Descriptor(), FolderCache::Use::kListing, turns);
  co_return co_await names;
}

OpenFile OpenPath(std::string_view path) { return OpenAnyCaseNow(path, kFlagsForContents); }

Task<OpenFile> OpenPathInTurns(std::string path, Turns* turns) {
  return OpenAnyCase(std::move(path), kFlagsForContents, turns);
}

EntryKind KindOfPath(std::string_view path) { return OpenAnyCaseNow(path, kFlagsForKind).Kind(); }

Task<EntryKind> KindInTurns(std::string path, Turns* turns) {
  auto opened = OpenAnyCase(std::move(path), kFlagsForKind, turns);
  const OpenFile file = co_await opened;
  co_return file.Kind();
}

PathIdentity IdentifyPath(std::string_view path) {
  const std::string text = SystemPath(path);
  if (const auto found = IdentifyAsSpelled(text)) return *found;
  return RunNow(IdentifyOtherwise(text, nullptr));
}

std::optional<PathIdentity> IdentifyAtOnce(std::string_view path) {
  const std::string text = SystemPath(path);
  if (const auto found = IdentifyAsSpelled(text)) return found;
  try {
    SpellingWalk walk(&OpenPermittedOrRaise, AT_FDCWD, text);
    const auto state = walk.Go();
    if (state == SpellingWalk::State::kNeedsNames) return std::nullopt;
    return IdentifySpelling(state == SpellingWalk::State::kFound ? std::optional(walk.TakePath()) : std::nullopt);
  } catch (const Error&) {
    return PathIdentity{PathIdentity::State::kUnknown, {}};
  }
}

Task<PathIdentity> IdentifyInTurns(std::string path, Turns* turns) {
  const std::string text = SystemPath(path);
  if (const auto found = IdentifyAsSpelled(text)) co_return *found;
  auto otherwise = IdentifyOtherwise(text, turns);
  co_return co_await otherwise;
}

Task<bool> ReadInTurns(const OpenFile& file, std::string& bytes, std::int64_t limit, Turns* turns) {
  if (turns == nullptr || file.Cached() != nullptr || file.Kind() != EntryKind::kFile) {
    co_return file.ReadAll(bytes, limit);
  }
  ContentsReading reading(bytes, file.Size(), limit);
  PatientReader reader(file.Descriptor(), *turns);
  while (!reading.IsOver()) {
    if (turns->TimeIsUp()) {
      auto next = turns->Next();
      co_await next;
    }
    const std::span<char> room = reading.Room(PatientReader::kPieceBytes);
    ssize_t got = reader.ReadAtOnce(room.data(), room.size(), reading.Offset());
    if (got == -EAGAIN) {
      const std::span<char> more = reading.Room(PatientReader::kPieceBesideBytes);
      auto beside = reader.ReadBeside(more.data(), more.size(), reading.Offset());
      got = co_await beside;
    }
    reading.Took(got);
  }
  co_return reading.IsWhole();
}

}  // namespace TesselServer
