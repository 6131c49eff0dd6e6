#include "platform/files/PathWalk.h"

#include <errno.h>
#include <fcntl.h>

#include <algorithm>
#include <utility>

#include "platform/files/DosAttributes.h"
#include "platform/files/FileFacts.h"
#include "platform/files/FolderCache.h"
#include "platform/files/FolderStream.h"
#include "platform/files/SpellingWalk.h"
#include "platform/tasks/Turns.h"
#include "platform/world/AsciiCase.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

constexpr int kFlagsForNames = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;

// What the walk needs: the smallest name in its folder that is equal to the wanted one without regard to case, "" when
// there is none.
Task<std::string> FirstSpelling(const SpellingWalk& walk, FolderCache* known, Turns* turns) {
  auto names = known != nullptr ? known->Find(walk.Folder()) : nullptr;
  if (!names) {
    UniqueDescriptor folder = walk.OpenFolder(kFlagsForNames);
    if (known != nullptr && folder.IsOpen()) {
      auto read = known->NamesOfInTurns(walk.Folder(), folder.Get(), FolderCache::Use::kLookUp, turns);
      names = co_await read;
    }
    if (!names) {
      auto first = FirstEqualIn(std::make_shared<FolderStream>(std::move(folder)), walk.Wanted(), turns);
      co_return co_await first;
    }
  }
  while (!names->SortSome()) {
    if (turns == nullptr || !turns->TimeIsUp()) continue;
    auto next = turns->Next();
    co_await next;
  }
  co_return std::string(names->FirstEqual(walk.Wanted()));
}

// Names that are sorted in some microseconds.
constexpr FolderRecord::Number kFewNames = 256;

// What a walk at once may take (SpellingWalk::Effort): some 40 microseconds.
constexpr std::size_t kEffortAtOnce = 512;

// Goes on as long as the names that it needs are remembered, and it takes little.
SpellingWalk::State WalkAtOnce(SpellingWalk& walk, FolderCache* known, NameMatch match) {
  auto state = SpellingWalk::State::kHasMore;
  while (walk.Effort() <= kEffortAtOnce) {
    if (state == SpellingWalk::State::kHasMore) {
      state = walk.Step();
      continue;
    }
    if (state == SpellingWalk::State::kNeedsNames && match == NameMatch::kExact) {
      state = walk.GoOn("");
      continue;
    }
    if (state != SpellingWalk::State::kNeedsNames || known == nullptr) break;
    const auto names = known->Find(walk.Folder());
    if (!names || (!names->IsSorted() && names->Count() > kFewNames)) break;
    state = walk.GoOn(names->FirstEqual(walk.Wanted()));
  }
  return state;
}

bool IsUnderWay(SpellingWalk::State state) {
  return state == SpellingWalk::State::kHasMore || state == SpellingWalk::State::kNeedsNames;
}

Spelling EndOf(SpellingWalk& walk, SpellingWalk::State state) {
  Spelling spelling;
  spelling.isElsewhere = state == SpellingWalk::State::kLeadsElsewhere;
  if (state == SpellingWalk::State::kFound) spelling.path = walk.TakePath();
  return spelling;
}

bool IsHidden(int descriptor) {
  return (DosAttributesOf(descriptor) & (FileAttribute::kHidden | FileAttribute::kSystem)) != 0;
}

// Of a link that must not be followed its end is looked at.
bool MayBeSpelledOtherwise(int opened) {
  return opened == -ENOENT || opened == -ENOTDIR || opened == -EXDEV || opened == kElsewhere;
}

bool IsForbidden(int opened) { return opened == -EACCES || opened == -EPERM; }

FoundEntry EntryElsewhere() {
  FoundEntry entry;
  entry.isElsewhere = true;
  return entry;
}

// What is at `path`, where opening it for reading had the result `opened`.
FoundEntry EntryAfter(OpenFunction open, int root, const CollapsedPath& path, int opened) {
  if (opened >= 0) return EntryOpened(path, OpenFile(opened));
  if (opened == kElsewhere) return EntryElsewhere();
  if (!IsForbidden(opened)) return {};
  const EntryKind kind = OpenFile(open(root, path.text, O_PATH | O_CLOEXEC)).Kind();
  if (kind == EntryKind::kNone || (kind == EntryKind::kFile && path.asFolder)) return {};
  return {kind, path.text, false, {}};
}

FoundEntry OpenSpelling(OpenFunction open, int root, const CollapsedPath& path) {
  return EntryAfter(open, root, path, open(root, path.text, FlagsForReading()));
}

}  // namespace

std::optional<CollapsedPath> CollapsePath(std::string_view path) {
  if (path.size() > RootFolder::kMaxPathBytes || std::any_of(path.begin(), path.end(), IsControl)) return std::nullopt;
  CollapsedPath collapsed;
  collapsed.text.reserve(path.size());
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find_first_of("/\\", start), path.size());
    const std::string_view component = path.substr(start, end - start);
    if (component.size() > RootFolder::kMaxComponentBytes) return std::nullopt;
    if (!ApplyComponent(collapsed.text, component)) return std::nullopt;
    collapsed.asFolder = component.empty() || component == "." || component == "..";
    start = end + 1;
  }
  return collapsed;
}

bool ApplyComponent(std::string& path, std::string_view component) {
  if (component.empty() || component == ".") return true;
  if (component == "..") {
    if (path.empty()) return false;
    const std::size_t cut = path.rfind('/');
    path.resize(cut == std::string::npos ? 0 : cut);
    return true;
  }
  if (!path.empty()) path += '/';
  path += component;
  return true;
}

std::string WithSlashes(std::string_view path) {
  std::string text(path);
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

std::string JoinPath(std::string_view root, std::string_view name) {
  std::string path(root);
  if (!name.empty()) path.append(path.ends_with('/') ? "" : "/").append(name);
  return path;
}

const char* LastNameOf(const std::string& path) { return path.c_str() + path.rfind('/') + 1; }

std::string FolderPathOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

Task<Spelling> TrueSpellingInTurns(OpenFunction open, int folder, std::string path, FolderCache* known, Turns* turns,
                                   NameMatch match) {
  SpellingWalk walk(open, folder, std::move(path));
  auto state = SpellingWalk::State::kHasMore;
  while (IsUnderWay(state)) {
    if (turns != nullptr && turns->TimeIsUp()) {
      auto next = turns->Next();
      co_await next;
    }
    if (state == SpellingWalk::State::kHasMore) {
      state = walk.Step();
      continue;
    }
    if (match == NameMatch::kExact) {
      state = walk.GoOn("");
      continue;
    }
    auto spelling = FirstSpelling(walk, known, turns);
    const std::string name = co_await spelling;
    state = walk.GoOn(name);
  }
  co_return EndOf(walk, state);
}

std::optional<Spelling> TrueSpellingAtOnce(OpenFunction open, int folder, std::string path, FolderCache* known,
                                           NameMatch match) {
  SpellingWalk walk(open, folder, std::move(path));
  const auto state = WalkAtOnce(walk, known, match);
  return IsUnderWay(state) ? std::nullopt : std::optional(EndOf(walk, state));
}

std::optional<std::string> TrueSpelling(OpenFunction open, int folder, std::string_view path, FolderCache* known) {
  return RunNow(TrueSpellingInTurns(open, folder, std::string(path), known, nullptr)).path;
}

int FlagsForReading() { return O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC; }

FoundEntry EntryOpened(const CollapsedPath& path, OpenFile file) {
  const bool isFile = file.Kind() == EntryKind::kFile;
  if (!file.IsOpen() || (isFile && (path.asFolder || IsHidden(file.Descriptor())))) return {};
  return {file.Kind(), path.text, true, std::move(file)};
}

std::optional<FoundEntry> FindAsSpelled(OpenFunction open, int root, const CollapsedPath& path, int tried) {
  const bool isMissing = tried == -ENOENT || tried == -ENOTDIR;
  const int opened = isMissing ? tried : open(root, path.text, FlagsForReading());
  if (MayBeSpelledOtherwise(opened)) return std::nullopt;
  return EntryAfter(open, root, path, opened);
}

std::optional<FoundEntry> FindOtherwiseAtOnce(OpenFunction open, int root, const CollapsedPath& path,
                                              FolderCache* known, NameMatch match) {
  auto spelling = TrueSpellingAtOnce(open, root, path.text, known, match);
  if (!spelling) return std::nullopt;
  if (spelling->isElsewhere) return EntryElsewhere();
  if (!spelling->path) return FoundEntry();
  return OpenSpelling(open, root, {std::move(*spelling->path), path.asFolder});
}

Task<FoundEntry> FindOtherwise(OpenFunction open, int root, CollapsedPath path, FolderCache* known, Turns* turns,
                               NameMatch match) {
  auto walk = TrueSpellingInTurns(open, root, path.text, known, turns, match);
  Spelling spelling = co_await walk;
  if (spelling.isElsewhere) co_return EntryElsewhere();
  if (!spelling.path) co_return FoundEntry();
  path.text = std::move(*spelling.path);
  if (turns != nullptr && turns->TimeIsUp()) {
    auto next = turns->Next();
    co_await next;
  }
  co_return OpenSpelling(open, root, path);
}

FoundEntry FindBeneath(OpenFunction open, int root, const CollapsedPath& path, FolderCache* known, int tried) {
  if (auto found = FindAsSpelled(open, root, path, tried)) return std::move(*found);
  return RunNow(FindOtherwise(open, root, path, known, nullptr));
}

}  // namespace TesselServer
