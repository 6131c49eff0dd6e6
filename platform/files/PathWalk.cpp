#include "platform/files/PathWalk.h"

#include <errno.h>
#include <fcntl.h>

#include <algorithm>
#include <utility>

#include "platform/files/DosAttributes.h"
#include "platform/files/FileFacts.h"
#include "platform/files/FolderCache.h"
#include "platform/files/FolderStream.h"
#include "platform/world/AsciiCase.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

bool HasLetter(std::string_view name) {
  return std::any_of(name.begin(), name.end(), [](char c) { return UpperAscii(c) >= 'A' && UpperAscii(c) <= 'Z'; });
}

void AppendName(std::string& path, std::string_view name) {
  if (!path.empty() && path.back() != '/') path += '/';
  path += name;
}

struct Walk {
  OpenFunction open;
  int folder;
  FolderCache* known;
};

// The smallest name in the folder `path` that is equal to `name` without regard to case, "" when there is none.
std::string FirstSpelling(const Walk& walk, const std::string& path, std::string_view name) {
  if (!HasLetter(name)) return {};
  auto names = walk.known != nullptr ? walk.known->Find(path) : nullptr;
  if (names) return std::string(names->FirstEqual(name));
  UniqueDescriptor folder(walk.open(walk.folder, path, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  if (walk.known != nullptr && folder.IsOpen()) {
    names = walk.known->NamesOf(path, folder.Get(), FolderCache::Use::kLookUp);
  }
  return names ? std::string(names->FirstEqual(name)) : FolderStream(std::move(folder)).FirstEqual(name);
}

// 0 when something exists at `path`, else the negative errno value.
int Probe(OpenFunction open, int folder, const std::string& path) {
  const UniqueDescriptor found(open(folder, path, O_PATH | O_CLOEXEC));
  return found.IsOpen() ? 0 : found.Get();
}

// Puts the link-free path of what `path` leads to in its place, when that lies beneath `folder`. Nothing is read
// through the descriptor that the path is determined with; the caller opens the new path under the rule of its own.
bool ReplaceByTarget(int folder, std::string& path) {
  const UniqueDescriptor target(OpenAnywhere(folder, path, O_PATH | O_CLOEXEC));
  if (!target.IsOpen()) return false;
  std::string base = PathOfDescriptor(folder);
  std::string end = PathOfDescriptor(target.Get());
  if (base.empty() || end.empty()) return false;
  if (base == end) {
    path.clear();
    return true;
  }
  if (base.back() != '/') base += '/';
  if (!end.starts_with(base)) return false;
  path = end.substr(base.size());
  return true;
}

// Goes from `walked` one component further, by its true name.
bool WalkStep(const Walk& walk, std::string& walked, std::string_view component) {
  const std::size_t length = walked.size();
  AppendName(walked, component);
  int found = Probe(walk.open, walk.folder, walked);
  if (found == -ENOENT) {
    walked.resize(length);
    const std::string name = FirstSpelling(walk, walked, component);
    if (name.empty()) return false;
    AppendName(walked, name);
    found = Probe(walk.open, walk.folder, walked);
  }
  if (found == -EXDEV) return ReplaceByTarget(walk.folder, walked);
  return found == 0;
}

bool IsHidden(int descriptor) {
  return (DosAttributesOf(descriptor) & (FileAttribute::kHidden | FileAttribute::kSystem)) != 0;
}

bool MayBeSpelledOtherwise(int opened) { return opened == -ENOENT || opened == -ENOTDIR || opened == -EXDEV; }

bool IsForbidden(int opened) { return opened == -EACCES || opened == -EPERM; }

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

std::optional<std::string> TrueSpelling(OpenFunction open, int folder, std::string_view path, FolderCache* known) {
  const Walk walk{open, folder, known};
  std::string walked = path.starts_with('/') ? "/" : "";
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    if (end > 0 && !WalkStep(walk, walked, path.substr(0, end))) return std::nullopt;
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return walked;
}

int FlagsForReading() { return O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC; }

FoundEntry EntryOpened(const CollapsedPath& path, OpenFile file) {
  const bool isFile = file.Kind() == EntryKind::kFile;
  if (!file.IsOpen() || (isFile && (path.asFolder || IsHidden(file.Descriptor())))) return {};
  return {file.Kind(), path.text, true, std::move(file)};
}

FoundEntry FindBeneath(OpenFunction open, int root, const CollapsedPath& path, FolderCache* known, int tried) {
  CollapsedPath found = path;
  const bool isMissing = tried == -ENOENT || tried == -ENOTDIR;
  int opened = isMissing ? tried : open(root, found.text, FlagsForReading());
  if (MayBeSpelledOtherwise(opened)) {
    auto spelling = TrueSpelling(open, root, found.text, known);
    if (!spelling) return {};
    found.text = std::move(*spelling);
    opened = open(root, found.text, FlagsForReading());
  }
  if (opened >= 0) return EntryOpened(found, OpenFile(opened));
  if (!IsForbidden(opened)) return {};
  const EntryKind kind = OpenFile(open(root, found.text, O_PATH | O_CLOEXEC)).Kind();
  if (kind == EntryKind::kNone || (kind == EntryKind::kFile && found.asFolder)) return {};
  return {kind, std::move(found.text), false, {}};
}

}  // namespace TesselServer
