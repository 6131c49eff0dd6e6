#include "control/modern/ModernTarget.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TesselServer {

namespace {

std::string IndexPageIn(const FoundEntry& folder, const std::string& page) {
  return folder.name.empty() ? page : folder.name + "/" + page;
}

void Keep(Slot& slot, FoundEntry target, std::shared_ptr<const RootFolder> root) {
  slot.Target = std::move(target);
  slot.TargetRoot = std::move(root);
  slot.TargetIsKnown = true;
}

bool HasIndexPages(const FoundEntry& entry, std::string_view path) {
  return entry.kind == EntryKind::kDirectory && path.ends_with('/');
}

// kNone where the folder has no index page, nothing where that is not known at once.
std::optional<FoundEntry> IndexPageAtOnce(const RootFolder& root, const FoundEntry& folder,
                                          const std::vector<std::string>& pages) {
  for (const std::string& name : pages) {
    if (name.empty()) continue;
    auto page = root.FindAtOnce(IndexPageIn(folder, name));
    if (!page || page->kind == EntryKind::kFile) return page;
  }
  return FoundEntry();
}

Task<FoundEntry> IndexPage(const RootFolder& root, const FoundEntry& folder, std::vector<std::string> pages,
                           Turns* turns) {
  for (const std::string& name : pages) {
    if (name.empty()) continue;
    auto search = root.FindInTurns(IndexPageIn(folder, name), turns);
    FoundEntry page = co_await search;
    if (page.kind == EntryKind::kFile) co_return page;
  }
  co_return FoundEntry();
}

}  // namespace

bool FindModernTargetAtOnce(ControlState& state, Slot& slot, std::string_view path) {
  const auto& root = state.Root();
  auto target = root->FindAtOnce(path);
  if (!target) return false;
  if (HasIndexPages(*target, path)) {
    auto page = IndexPageAtOnce(*root, *target, state.settings.IndexPageList);
    if (!page) return false;
    if (page->kind == EntryKind::kFile) target = std::move(page);
  }
  if (target->kind == EntryKind::kFile) {
    const auto isSecret = state.Secrets()->ContainsAtOnce(*target);
    if (!isSecret) return false;
    if (*isSecret) target = FoundEntry();
  }
  Keep(slot, std::move(*target), root);
  return true;
}

// Copies of what an event may renew while the task waits.
Task<void> FindModernTarget(ControlState& state, Slot& slot, std::string path) {
  const auto secrets = state.Secrets();
  const auto root = state.Root();
  std::vector<std::string> pages = state.settings.IndexPageList;
  auto search = root->FindInTurns(path, &state.turns);
  FoundEntry target = co_await search;
  if (HasIndexPages(target, path)) {
    auto pageSearch = IndexPage(*root, target, std::move(pages), &state.turns);
    FoundEntry page = co_await pageSearch;
    if (page.kind == EntryKind::kFile) target = std::move(page);
  }
  if (target.kind == EntryKind::kFile) {
    auto check = secrets->ContainsInTurns(target, &state.turns);
    const bool isSecret = co_await check;
    if (isSecret) target = FoundEntry();
  }
  Keep(slot, std::move(target), root);
}

}  // namespace TesselServer
