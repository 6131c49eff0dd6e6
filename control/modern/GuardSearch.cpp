#include "control/modern/GuardSearch.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/files/NeighbourFile.h"
#include "platform/tasks/Turns.h"
#include "support/PathText.h"

namespace TesselServer {

namespace {

using FileState = NeighbourFile::State;

Task<PasswordGuard> SiteGuard(std::string path, Turns* turns) {
  auto opening = OpenPathInTurns(path, turns);
  OpenFile file = co_await opening;
  const bool isFile = file.Kind() == EntryKind::kFile;
  co_return PasswordGuard{isFile ? PasswordGuard::State::kFile : PasswordGuard::State::kClosed, std::move(file),
                          std::move(path)};
}

bool IsHidden(std::string_view component) { return component.starts_with('.') && component != ".well-known"; }

// The last folder that the path leads to, open; the root itself where it is no folder either.
Task<FoundEntry> LastFolder(const RootFolder& root, std::string path, Turns* turns) {
  auto first = root.FindInTurns("", turns);
  FoundEntry folder = co_await first;
  for (std::size_t begin = 1; begin < path.size() && folder.kind == EntryKind::kDirectory;) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    if (IsHidden(std::string_view(path).substr(begin, end - begin))) break;
    if (turns != nullptr && turns->TimeIsUp()) {
      auto next = turns->Next();
      co_await next;
    }
    auto search = root.FindInTurns(path.substr(0, end), turns);
    FoundEntry found = co_await search;
    if (found.kind != EntryKind::kDirectory || !found.file.IsOpen()) break;
    folder = std::move(found);
    begin = end + 1;
  }
  co_return folder;
}

// Whether one folder lies in the other one, or is it.
bool LiesIn(const OpenFile& folder, const OpenFile& other) {
  const std::string inner = folder.CanonicalPath();
  const std::string outer = other.CanonicalPath();
  if (inner.empty() || outer.empty()) return true;  // it cannot be determined
  return inner == outer || outer == "/" || inner.starts_with(outer + "/");
}

// Up to the folder in which the target was found, and from there to the document root where that is one above.
Task<NeighbourFile> FindFile(const OpenFile& begin, const GuardedPlace& place, std::string name,
                             FoldersWithout* without, Turns* turns) {
  auto rootSearch = place.root->FindInTurns("", turns);
  const FoundEntry root = co_await rootSearch;
  if (!root.file.IsOpen()) co_return NeighbourFile{FileState::kUnknown, {}};
  auto search = FindAboveInTurns(begin, name, root.file.Identity(), turns, without);
  NeighbourFile found = co_await search;
  if (found.state != FileState::kMissing || place.root == place.site) co_return found;
  auto siteSearch = place.site->FindInTurns("", turns);
  const FoundEntry site = co_await siteSearch;
  if (!site.file.IsOpen()) co_return NeighbourFile{FileState::kUnknown, {}};
  if (!LiesIn(root.file, site.file)) co_return found;
  auto further = FindAboveInTurns(root.file, std::move(name), site.file.Identity(), turns, without);
  co_return co_await further;
}

Task<PasswordGuard> FolderGuard(const GuardedPlace& place, std::string name, FoldersWithout* without, Turns* turns) {
  FoundEntry folder;
  if (!place.target.file.IsOpen()) {
    auto search = LastFolder(*place.site, place.path, turns);
    folder = co_await search;
  }
  const bool isOfPath = !place.target.file.IsOpen();
  const GuardedPlace begin{place.target, {}, isOfPath ? place.site : place.root, place.site};
  auto finding = FindFile(isOfPath ? folder.file : place.target.file, begin, name, without, turns);
  NeighbourFile found = co_await finding;
  if (found.state == FileState::kMissing) co_return PasswordGuard();
  const bool isFile = found.file.Kind() == EntryKind::kFile;
  co_return PasswordGuard{isFile ? PasswordGuard::State::kFile : PasswordGuard::State::kClosed, std::move(found.file),
                          name + " for " + place.path};
}

}  // namespace

Task<PasswordGuard> FindGuard(const GuardedPlace& place, const GuardSettings& settings, Turns* turns) {
  switch (settings.source) {
    case e_AuthSource::GolbalFile: {
      if (settings.siteFile.empty()) co_return PasswordGuard();
      auto site = SiteGuard(settings.siteFile, turns);
      co_return co_await site;
    }
    case e_AuthSource::DirectoryFile: {
      auto folder = FolderGuard(place, settings.folderFile, settings.without, turns);
      co_return co_await folder;
    }
    case e_AuthSource::LocalACL:
    case e_AuthSource::DomainACL:
      break;
  }
  co_return PasswordGuard{PasswordGuard::State::kClosed, {}, {}};
}

}  // namespace TesselServer
