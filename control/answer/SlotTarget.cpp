#include "control/answer/SlotTarget.h"

#include "control/answer/RequestTarget.h"

namespace TesselServer {

void FindTarget(ControlState& state, Slot& slot) {
  const RequestFields& request = slot.Fields();
  if (request.RequestPath.empty()) return;
  const auto secrets = state.Secrets();
  const auto isSecret = [&secrets](const FoundEntry& entry) { return secrets->Contains(entry); };
  slot.Target = ResolveTarget(*state.Root(), request.RequestPath, state.settings.IndexPageList, isSecret);
  slot.TargetIsInCGIDirectory = false;
  if (slot.Target.kind == EntryKind::kNone && state.settings.CGIEnable &&
      IsProgramRequest(request.RequestPath, request.RequestQuery)) {
    slot.Target = FindProgram(state.Programs(), request.RequestPath, isSecret);
    slot.TargetIsInCGIDirectory = slot.Target.kind != EntryKind::kNone;
  }
  slot.ScriptName = ScriptNameOf(slot.Target, request.RequestPath);
  slot.TargetIsKnown = true;
}

std::string MappedFileOf(const ControlState& state, const Slot& slot) {
  const bool found = slot.Target.kind != EntryKind::kNone;
  if (found && slot.TargetIsInCGIDirectory) return MapPath(state.settings.CGIDirectory, slot.Target.name);
  return MapPath(state.settings.VirtualPath, found ? slot.Target.name : slot.Request.Fields().RequestPath);
}

}  // namespace TesselServer
