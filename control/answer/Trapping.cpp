#include "control/answer/Trapping.h"

#include <algorithm>
#include <string_view>

#include "control/answer/RequestTarget.h"
#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

// Whether a component of the path is "..". Byte by byte: a client's path may consist of separators.
bool HoldsDotDot(std::string_view path) {
  std::size_t length = 0;  // of the component, as long as it is of dots; else 3 at least
  for (const char c : path) {
    if (c == '/') {
      if (length == 2) return true;
      length = 0;
    } else {
      length += c == '.' ? 1 : 3;
    }
  }
  return length == 2;
}

bool HoldsControl(std::string_view path) {
  return std::any_of(path.begin(), path.end(), [](char c) { return IsControl(c); });
}

}  // namespace

bool IsTrapped(const Slot& slot, const Settings& settings) {
  if (!settings.TrapFileEnable || slot.Fields().RequestPath.empty()) return false;
  if (Trim(settings.TrapFileTypes).empty()) return true;
  const bool found = slot.Target.kind != EntryKind::kNone;
  const std::string name = found ? slot.Target.name : PathForHost(slot);
  const std::string_view extension = TrapExtension(slot.Target, name);
  return !extension.empty() && FindNoCase(settings.TrapFileTypes, extension) != std::string_view::npos;
}

std::string PathForHost(const Slot& slot) {
  if (slot.Target.kind != EntryKind::kNone && !slot.TargetIsInCGIDirectory) return slot.Target.name;
  std::string path = slot.Fields().RequestPath;
  std::transform(path.begin(), path.end(), path.begin(), [](char c) { return c == '\\' ? '/' : c; });
  path = ReplaceAll(path, "%20", " ");
  if (HoldsDotDot(path) || HoldsControl(path)) return {};
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

std::string UserAuthentication(const RequestFields& request) {
  std::string text = request.AuthUser + ":" + request.AuthPassword;
  return Trim(text) == ":" ? std::string() : text;
}

}  // namespace TesselServer
