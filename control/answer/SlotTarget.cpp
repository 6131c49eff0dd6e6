#include "control/answer/SlotTarget.h"

#include <memory>
#include <utility>

#include "control/answer/RequestTarget.h"

namespace TesselServer {

namespace {

bool MayBeProgram(const ControlState& state, const RequestFields& request) {
  return state.settings.CGIEnable && IsProgramRequest(request.RequestPath, request.RequestQuery);
}

void KeepTarget(Slot& slot, FoundEntry target, std::shared_ptr<const RootFolder> root, bool isInCGIDirectory) {
  slot.Target = std::move(target);
  slot.TargetRoot = std::move(root);
  slot.TargetIsInCGIDirectory = isInCGIDirectory;
  slot.ScriptName = ScriptNameOf(slot.Target, slot.Fields().RequestPath);
  slot.TargetIsKnown = true;
}

}  // namespace

// Copies of what an event may renew while the task waits.
Task<void> FindTarget(ControlState& state, Slot& slot) {
  const RequestFields& request = slot.Fields();
  if (request.RequestPath.empty()) co_return;
  const auto secrets = state.Secrets();
  const auto root = state.Root();
  auto search = ResolveTarget(*root, request.RequestPath, state.settings.IndexPageList, *secrets, &state.turns);
  FoundEntry target = co_await search;
  if (target.kind != EntryKind::kNone || !MayBeProgram(state, request)) {
    KeepTarget(slot, std::move(target), root, false);
    co_return;
  }
  const auto programs = state.Programs();
  auto programSearch = FindProgram(*programs, request.RequestPath, *secrets, &state.turns);
  target = co_await programSearch;
  const bool isFound = target.kind != EntryKind::kNone;
  KeepTarget(slot, std::move(target), isFound ? programs : root, isFound);
}

bool FindTargetAtOnce(ControlState& state, Slot& slot) {
  const RequestFields& request = slot.Fields();
  if (request.RequestPath.empty()) return true;
  const auto& root = state.Root();
  auto target = ResolveAtOnce(*root, request.RequestPath, state.settings.IndexPageList, *state.Secrets());
  if (!target || (target->kind == EntryKind::kNone && MayBeProgram(state, request))) return false;
  KeepTarget(slot, std::move(*target), root, false);
  return true;
}

std::string MappedFileOf(const ControlState& state, const Slot& slot) {
  if (slot.Target.kind != EntryKind::kNone) return MapPath(slot.TargetRoot->Path(), slot.Target.name);
  return MapPath(state.settings.VirtualPath, slot.Fields().RequestPath);
}

}  // namespace TesselServer
