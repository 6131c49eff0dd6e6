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
#include "platform/world/AsciiCase.h"
#include "platform/world/SystemErrors.h"
#include "platform/world/World.h"

namespace TesselServer {
namespace {

// A path without an end in the middle, or "" (which nothing is found at) for one that a NUL would cut short.
std::string SystemPath(std::string_view path) {
  return path.find('\0') == std::string_view::npos ? WithSlashes(path) : std::string();
}

// As OpenAnywhereOrRaise and OpenHereOrRaise; these raise the lack of permission as well.
int OpenPermittedOrRaise(int folder, const std::string& path, int flags) {
  const int opened = OpenAnywhereOrRaise(folder, path, flags);
  if (opened == -EACCES) throw SystemError(EACCES);
  return opened;
}
int OpenPermittedHereOrRaise(int folder, const std::string& path, int flags) {
  const int opened = OpenHereOrRaise(folder, path, flags);
  if (opened == -EACCES) throw SystemError(EACCES);
  return opened;
}

// What is at a path that no root holds. Where `opening` does not go there it is not known.
struct PathFile {
  OpenFile file;
  bool isElsewhere = false;
};

// What is open as `opened` by the path `text`. Closed where only a folder can be meant and it is a file.
PathFile OpenedByText(const std::string& text, int opened) {
  if (opened < 0) return {{}, opened == kElsewhere};
  OpenFile file(opened);
  const bool isNone = file.Kind() == EntryKind::kFile && text.back() == '/';
  return {isNone ? OpenFile() : std::move(file)};
}

// The file by its own spelling; nothing where another one may be there.
std::optional<PathFile> OpenAsSpelled(OpenFunction open, const std::string& text, int flags) {
  if (text.empty()) return PathFile();
  const int opened = open(AT_FDCWD, text, flags);
  if (opened == -ENOENT || opened == -ENOTDIR) return std::nullopt;
  return OpenedByText(text, opened);
}

Task<PathFile> OpenOtherwise(OpenFunction open, std::string text, int flags, Turns* turns) {
  auto walk = TrueSpellingInTurns(open, AT_FDCWD, text, nullptr, turns);
  const Spelling spelling = co_await walk;
  if (!spelling.path) co_return PathFile{{}, spelling.isElsewhere};
  co_return OpenedByText(text, open(AT_FDCWD, *spelling.path, flags));
}

OpenFile OpenAnyCaseNow(std::string_view path, int flags) {
  const std::string text = SystemPath(path);
  if (auto opened = OpenAsSpelled(&OpenAnywhere, text, flags)) return std::move(opened->file);
  return RunNow(OpenOtherwise(&OpenAnywhere, text, flags, nullptr)).file;
}

Task<OpenFile> OpenBeside(std::string path, int flags, Turns& turns) {
  const std::function<OpenFile()> open = [path = std::move(path), flags] {
    OpenFile file = OpenAnyCaseNow(path, flags);
    if (file.IsOpen()) file.MayWait(MayWait(file.Descriptor()));
    return file;
  };
  auto opening = turns.Beside().Do(Workers::Kind::kFiles, open);
  co_return co_await opening;
}

Task<OpenFile> OpenAnyCase(std::string path, int flags, Turns* turns) {
  if (turns == nullptr) co_return OpenAnyCaseNow(path, flags);
  const std::string text = SystemPath(path);
  auto opened = OpenAsSpelled(&OpenHere, text, flags);
  if (!opened) {
    auto otherwise = OpenOtherwise(&OpenHere, text, flags, turns);
    opened = co_await otherwise;
  }
  if (opened->isElsewhere) {
    auto beside = OpenBeside(std::move(path), flags, *turns);
    co_return co_await beside;
  }
  opened->file.MayWait(false);
  co_return std::move(opened->file);
}

constexpr int kFlagsForContents = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int kFlagsForKind = O_PATH | O_CLOEXEC;

using IdentityState = PathIdentity::State;

bool IsLinkThere(const std::string& text) {
  struct stat status;
  return lstat(text.c_str(), &status) == 0;
}

// What is at the path by its own spelling; nothing where another one may be there.
std::optional<PathIdentity> IdentifyAsSpelled(const std::string& text) {
  if (text.empty()) return PathIdentity();
  struct stat status;
  if (stat(text.c_str(), &status) == 0) return PathIdentity{IdentityState::kFound, StampOf(status).identity};
  if (errno != ENOENT && errno != ENOTDIR) return PathIdentity{IdentityState::kUnknown, {}};
  if (IsLinkThere(text)) return PathIdentity{IdentityState::kDangling, {}};
  return std::nullopt;
}

// The same in a turn. What has to be asked beside the loop isElsewhere; so it is done where no descriptor is left.
struct PathIdentityHere {
  PathIdentity identity;
  bool isElsewhere = false;
};
std::optional<PathIdentityHere> IdentifyAsSpelledHere(const std::string& text) {
  if (text.empty()) return PathIdentityHere();
  const UniqueDescriptor file(OpenHere(AT_FDCWD, text, kFlagsForKind));
  if (const auto stamp = StampOfDescriptor(file.Get()))
    return PathIdentityHere{{IdentityState::kFound, stamp->identity}};
  const int error = -file.Get();
  if (error == -kElsewhere || error == EMFILE || error == ENFILE) return PathIdentityHere{{}, true};
  if (error != ENOENT && error != ENOTDIR) return PathIdentityHere{{IdentityState::kUnknown, {}}};
  if (IsLinkThere(text)) return PathIdentityHere{{IdentityState::kDangling, {}}};
  return std::nullopt;
}

PathIdentity IdentifySpelling(const std::optional<std::string>& spelling) {
  struct stat status;
  if (!spelling || stat(spelling->c_str(), &status) != 0) return {};
  return {IdentityState::kFound, StampOf(status).identity};
}

Task<PathIdentityHere> IdentifyOtherwise(OpenFunction open, std::string text, Turns* turns) {
  try {
    auto walk = TrueSpellingInTurns(open, AT_FDCWD, text, nullptr, turns);
    const Spelling spelling = co_await walk;
    co_return PathIdentityHere{IdentifySpelling(spelling.path), spelling.isElsewhere};
  } catch (const Error&) {
    co_return PathIdentityHere{{IdentityState::kUnknown, {}}};
  }
}

Task<PathIdentity> IdentifyBeside(std::string path, Turns& turns) {
  const std::function<PathIdentity()> identify = [path = std::move(path)] { return IdentifyPath(path); };
  auto identifying = turns.Beside().Do(Workers::Kind::kFiles, identify);
  co_return co_await identifying;
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

// How a look-up opens: in a turn, or where it may wait.
struct Opening {
  OpenFunction anywhere, directly, beneath;
};
constexpr Opening kHere = {&OpenHereOrRaise, &OpenDirectlyHereOrRaise, &OpenBeneathHereOrRaise};
constexpr Opening kPatiently = {&OpenAnywhereOrRaise, &OpenDirectlyOrRaise, &OpenBeneathOrRaise};

constexpr int kFlagsForRoot = O_PATH | O_DIRECTORY | O_CLOEXEC;

}  // namespace

OpenFile::OpenFile(int descriptor) : descriptor_(descriptor) {
  if (descriptor < 0) return;
  stamp_ = StampOfDescriptor(descriptor).value_or(FileStamp());
  if (KindOf(stamp_.mode) == EntryKind::kNone) *this = {};
}

OpenFile::OpenFile(std::shared_ptr<const CachedFile> cached)
    : cached_(std::move(cached)), stamp_(cached_->reading.Stamp()), mayWait_(false) {}

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

RootFolder::RootFolder(std::string path, const World& world, NameMatch match) : RootFolder(std::move(path)) {
  match_ = match;
  world_ = &world;
  folders_ = std::make_unique<FolderCache>(systemPath_, world);
  files_ = std::make_unique<FileCache>(systemPath_, world);
  const UniqueDescriptor root(systemPath_.empty() ? -1 : OpenHere(AT_FDCWD, systemPath_, kFlagsForRoot));
  if (root.Get() == kElsewhere) AskDisk();
}

RootFolder::RootFolder(RootFolder&&) noexcept = default;
RootFolder& RootFolder::operator=(RootFolder&&) noexcept = default;
RootFolder::~RootFolder() = default;

// How far a look-up comes before other spellings are tried.
struct RootFolder::Attempt {
  // Tries what takes no folder's names: the path as it is spelled, below the folder `root` as the system takes it.
  Attempt(const Opening& opening, const std::string& rootPath, const CollapsedPath& path, Way known);

  std::optional<FoundEntry> found;  // what it comes to; nothing where other spellings are to be tried
  bool isDirect = false;            // it was opened without a link
  Way way;
  UniqueDescriptor root{-1};

 private:
  void OpenRoot(const Opening& opening, const std::string& rootPath);
};

// The usual way asks the system for nothing but the file: the whole path at once, where no link is on it.
RootFolder::Attempt::Attempt(const Opening& opening, const std::string& rootPath, const CollapsedPath& path, Way known)
    : way(known) {
  const int flags = FlagsForReading() | (path.text.empty() ? O_DIRECTORY : 0);
  int opened = -ELOOP;
  if (!way.beginsAtRoot) opened = opening.directly(AT_FDCWD, JoinPath(rootPath, path.text), flags);
  if (opened < 0) OpenRoot(opening, rootPath);
  if ((opened == -ELOOP || opened == kElsewhere) && root.IsOpen()) {
    opened = opening.directly(root.Get(), path.text, flags);
    way.beginsAtRoot = way.beginsAtRoot || opened >= 0;
  }
  if (opened >= 0) {
    found = EntryOpened(path, OpenFile(opened));
    isDirect = true;
  } else if (root.IsOpen() && opened != kElsewhere) {
    found = FindAsSpelled(opening.beneath, root.Get(), path, opened);
  } else {
    found = FoundEntry();
    found->isElsewhere = opened == kElsewhere || root.Get() == kElsewhere;
  }
}

void RootFolder::Attempt::OpenRoot(const Opening& opening, const std::string& rootPath) {
  if (!way.isOnOtherMount || !way.isKnown) {
    root = UniqueDescriptor(opening.anywhere(AT_FDCWD, rootPath, kFlagsForRoot));
    way.isOnOtherMount = root.Get() == kElsewhere;
  }
  if (way.isOnOtherMount && way.isKnown) {
    root = UniqueDescriptor(OpenAnywhereOrRaise(AT_FDCWD, rootPath, kFlagsForRoot));
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
  way_ = attempt.way;
  if (attempt.isDirect) attempt.found = Direct(std::move(*attempt.found));
}

void RootFolder::AskDisk() {
  mayWait_ = KeepsChangeTimesAt(systemPath_, ReadFrom::kNames) != true;
  whenAsked_ = world_->MonotonicMilliseconds();
}

bool RootFolder::WasAsked() const {
  return whenAsked_ && world_->MonotonicMilliseconds() - *whenAsked_ < Reading::kMaxAgeMilliseconds;
}

FoundEntry RootFolder::Find(std::string_view relative) const {
  const auto path = CollapsePath(relative);
  if (!path || systemPath_.empty()) return {};
  if (auto known = Remembered(*path)) return std::move(*known);
  Attempt attempt(kPatiently, systemPath_, *path, way_);
  Learn(attempt);
  if (attempt.found) return std::move(*attempt.found);
  return RunNow(FindOtherwise(kPatiently.beneath, attempt.root.Get(), *path, folders_.get(), nullptr, match_));
}

// Looks in a turn. Where the root itself would have to be waited for, it counts as one that may wait from here on.
RootFolder::Attempt RootFolder::LookHere(const CollapsedPath& path) const {
  way_.isKnown = WasAsked();
  Attempt attempt(kHere, systemPath_, path, way_);
  Learn(attempt);
  mayWait_ = attempt.root.Get() == kElsewhere;
  if (attempt.found) attempt.found->file.MayWait(false);
  return attempt;
}

std::optional<FoundEntry> RootFolder::FindAtOnce(std::string_view relative) const {
  const auto path = CollapsePath(relative);
  if (!path || systemPath_.empty()) return FoundEntry();
  if (auto known = Remembered(*path)) return known;
  if (mayWait_) return std::nullopt;
  Attempt attempt = LookHere(*path);
  auto found = attempt.found ? std::move(attempt.found)
                             : FindOtherwiseAtOnce(kHere.beneath, attempt.root.Get(), *path, folders_.get(), match_);
  if (!found || found->isElsewhere) return std::nullopt;
  found->file.MayWait(false);
  return found;
}

Task<FoundEntry> RootFolder::FindInTurns(std::string relative, Turns* turns) const {
  if (turns == nullptr) co_return Find(relative);
  const auto path = CollapsePath(relative);
  if (!path || systemPath_.empty()) co_return FoundEntry();
  if (auto known = Remembered(*path)) co_return std::move(*known);
  if (turns->TimeIsUp()) {  // a path of 2,000 folders takes a turn to be opened
    auto next = turns->Next();
    co_await next;
  }
  if (!mayWait_) {
    Attempt attempt = LookHere(*path);
    if (!attempt.found) {
      auto otherwise = FindOtherwise(kHere.beneath, attempt.root.Get(), *path, folders_.get(), turns, match_);
      attempt.found = co_await otherwise;
      attempt.found->file.MayWait(false);
    }
    if (!attempt.found->isElsewhere) co_return std::move(*attempt.found);
  }
  auto beside = FindBesideLoop(*path, *turns);
  co_return co_await beside;
}

// Looks beside the loop. Nothing of this object is touched there.
Task<FoundEntry> RootFolder::FindBesideLoop(CollapsedPath path, Turns& turns) const {
  struct Result {
    Attempt attempt;
    bool mayWait;
  };
  const std::function<Result()> look = [root = systemPath_, path, way = way_, asksRoot = mayWait_, match = match_] {
    Attempt attempt(kPatiently, root, path, way);
    if (!attempt.found)
      attempt.found = RunNow(FindOtherwise(kPatiently.beneath, attempt.root.Get(), path, nullptr, nullptr, match));
    OpenFile& file = attempt.found->file;
    if (file.IsOpen()) file.MayWait(TesselServer::MayWait(file.Descriptor()));
    return Result{std::move(attempt), asksRoot && KeepsChangeTimesAt(root, ReadFrom::kNames) != true};
  };
  const bool asksRoot = mayWait_;
  auto looking = turns.Beside().Do(Workers::Kind::kFiles, look);
  Result result = co_await looking;
  if (asksRoot) {
    mayWait_ = result.mayWait;
    if (world_ != nullptr) whenAsked_ = world_->MonotonicMilliseconds();
  }
  Learn(result.attempt);
  co_return std::move(*result.attempt.found);
}

// What was opened without a link.
FoundEntry RootFolder::Direct(FoundEntry found) const {
  if (found.kind != EntryKind::kFile) return found;
  found.isOwnName = IsPlain(std::string_view(found.name).substr(found.name.rfind('/') + 1));
  found.mayBeRemembered =
      files_ != nullptr && std::count(found.name.begin(), found.name.end(), '/') <= FileCache::kMaxFolders;
  return found;
}

void RootFolder::Remember(FoundEntry& found) const {
  if (!files_ || !found.mayBeRemembered || mayWait_ || found.file.MayWait() == true) return;
  auto file = files_->Admit(found.name, found.file.Descriptor(), found.file.Stamp());
  if (file) found.file = OpenFile(std::move(file));
}

Task<std::shared_ptr<FolderRecord>> RootFolder::NamesInTurns(const FoundEntry& folder, Turns* turns) const {
  if (!folders_ || folder.file.Kind() != EntryKind::kDirectory || folder.file.MayWait() == true) co_return nullptr;
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
  return RunNow(IdentifyOtherwise(&OpenPermittedOrRaise, text, nullptr)).identity;
}

std::optional<PathIdentity> IdentifyAtOnce(std::string_view path) {
  const std::string text = SystemPath(path);
  if (const auto found = IdentifyAsSpelledHere(text)) {
    return found->isElsewhere ? std::nullopt : std::optional(found->identity);
  }
  try {
    const auto spelling = TrueSpellingAtOnce(&OpenPermittedHereOrRaise, AT_FDCWD, text, nullptr);
    if (!spelling || spelling->isElsewhere) return std::nullopt;
    return IdentifySpelling(spelling->path);
  } catch (const Error&) {
    return PathIdentity{IdentityState::kUnknown, {}};
  }
}

Task<PathIdentity> IdentifyInTurns(std::string path, Turns* turns) {
  if (turns == nullptr) co_return IdentifyPath(path);
  const std::string text = SystemPath(path);
  auto found = IdentifyAsSpelledHere(text);
  if (!found) {
    auto otherwise = IdentifyOtherwise(&OpenPermittedHereOrRaise, text, turns);
    found = co_await otherwise;
  }
  if (!found->isElsewhere) co_return found->identity;
  auto beside = IdentifyBeside(std::move(path), *turns);
  co_return co_await beside;
}

Task<bool> ReadInTurns(const OpenFile& file, std::string& bytes, std::int64_t limit, Turns* turns) {
  if (turns == nullptr || file.Cached() != nullptr || file.Kind() != EntryKind::kFile) {
    co_return file.ReadAll(bytes, limit);
  }
  ContentsReading reading(bytes, file.Size(), limit);
  PatientReader reader(file.Descriptor(), *turns, file.MayWait());
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
