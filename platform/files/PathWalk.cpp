#include "platform/files/PathWalk.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "platform/files/FileSystem.h"
#include "platform/files/KnownFolders.h"
#include "platform/files/KnownPath.h"
#include "platform/world/AsciiCase.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

bool IsControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

bool HasLetter(std::string_view name) {
  return std::any_of(name.begin(), name.end(), [](char c) { return UpperAscii(c) >= 'A' && UpperAscii(c) <= 'Z'; });
}

// Adds or, for "..", takes away one component. False when there is nothing to take away.
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

void AppendName(std::string& path, std::string_view name) {
  if (!path.empty() && path.back() != '/') path += '/';
  path += name;
}

struct Walk {
  OpenFunction open;
  int folder;
  KnownFolders* known;
};

// The names of a folder while they are read, as long as they are few enough to be remembered.
class NamesRead {
 public:
  void Add(std::string_view name) {
    if (name == "." || name == "..") return;
    bytes_ += sizeof(std::string) + name.size();
    if (bytes_ <= KnownFolders::kMaxBytes) names_.emplace_back(name);
  }
  // Null when there were too many.
  const std::vector<std::string>* All() const { return bytes_ <= KnownFolders::kMaxBytes ? &names_ : nullptr; }

 private:
  std::vector<std::string> names_;
  std::size_t bytes_ = 0;
};

// As FirstSpelling, read from the folder, whose names are remembered if they can be.
std::string ReadSpelling(const Walk& walk, const std::string& path, std::string_view name) {
  UniqueDescriptor descriptor(walk.open(walk.folder, path, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  const std::int64_t began = FileClockNow();
  const auto before = StampOfDescriptor(descriptor.Get());
  if (!before) return {};
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(descriptor.Get()), &closedir);
  if (!entries) return {};
  descriptor.Release();
  std::string best;
  NamesRead names;
  errno = 0;
  while (const dirent* entry = readdir(entries.get())) {
    const std::string_view candidate = entry->d_name;
    if (EqualNoCase(candidate, name) && (best.empty() || candidate < best)) best = candidate;
    if (walk.known != nullptr) names.Add(candidate);
  }
  const bool isWhole = errno == 0 && names.All() != nullptr;
  if (isWhole && walk.known != nullptr) walk.known->Remember(path, dirfd(entries.get()), *before, began, *names.All());
  return best;
}

// The smallest name in the folder `path` that is equal to `name` without regard to case, "" when there is none.
std::string FirstSpelling(const Walk& walk, const std::string& path, std::string_view name) {
  if (!HasLetter(name)) return {};
  const FolderNames* known = walk.known != nullptr ? walk.known->Find(path) : nullptr;
  return known != nullptr ? std::string(known->FirstEqual(name)) : ReadSpelling(walk, path, name);
}

// 0 when something stands at `path`, else the negative errno value.
int Probe(OpenFunction open, int folder, const std::string& path) {
  const UniqueDescriptor found(open(folder, path, O_PATH | O_CLOEXEC));
  return found.IsOpen() ? 0 : found.Get();
}

// Puts the link-free path of what `path` leads to in its place, when that lies beneath `folder`. Nothing is read
// through the descriptor that tells the path; the caller opens the new path under the rule of its own.
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

std::string WithSlashes(std::string_view path) {
  std::string text(path);
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

std::optional<std::string> TrueSpelling(OpenFunction open, int folder, std::string_view path, KnownFolders* known) {
  const Walk walk{open, folder, known};
  std::string walked = path.starts_with('/') ? "/" : "";
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    if (end > 0 && !WalkStep(walk, walked, path.substr(0, end))) return std::nullopt;
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return walked;
}

}  // namespace TesselServer
