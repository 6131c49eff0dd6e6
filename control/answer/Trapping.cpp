#include "control/answer/Trapping.h"

#include <algorithm>
#include <string_view>

#include "control/answer/RequestTarget.h"
#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {

bool IsTrapped(const Slot& slot, const Settings& settings) {
  if (!settings.TrapFileEnable || slot.Request.Fields().RequestPath.empty()) return false;
  if (Trim(settings.TrapFileTypes).empty()) return true;
  const bool found = slot.Target.kind != EntryKind::kNone;
  const std::string name = found ? slot.Target.name : PathForHost(slot);
  const std::string_view extension = TrapExtension(slot.Target, name);
  return !extension.empty() && FindNoCase(settings.TrapFileTypes, extension) != std::string_view::npos;
}

std::string PathForHost(const Slot& slot) {
  if (slot.Target.kind != EntryKind::kNone && !slot.TargetIsInCGIDirectory) return slot.Target.name;
  std::string path = ReplaceAll(ReplaceAll(slot.Request.Fields().RequestPath, "\\", "/"), "%20", " ");
  if (("/" + path + "/").find("/../") != std::string::npos) return {};
  if (std::any_of(path.begin(), path.end(), IsControl)) return {};
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

std::string UserAuthentication(const RequestFields& request) {
  std::string text = request.AuthUser + ":" + request.AuthPassword;
  return Trim(text) == ":" ? std::string() : text;
}

}  // namespace TesselServer
