#include "control/life/Settings.h"

#include <algorithm>

#include "platform/files/FileSystem.h"
#include "platform/settings/PropertyBag.h"
#include "support/Text.h"
#include "support/cls_Strings.h"

namespace TesselServer {

void Settings::SetIndexPageNames(std::string_view names) {
  IndexPageNames = WithoutBlanks(names);
  IndexPageList = cls_Strings::ListStrToArray(IndexPageNames, ",");
}

void Settings::SetTrapFileTypes(std::string_view types) {
  TrapFileTypes = WithoutBlanks(types);
  TrapTypeList = cls_Strings::ListStrToArray(TrapFileTypes, ",");
}

// A port given as text converts as one kept in a property bag does.
std::int32_t ParseServerPort(std::string_view text) {
  MemoryPropertyBag bag;
  bag.Put("ServerPort", Trim(text));
  return std::get<std::int32_t>(bag.ReadProperty("ServerPort", std::int32_t{0}));
}

std::int32_t ClampSeconds(std::int32_t value) { return std::clamp(value, 0, Settings::kMaxSeconds); }

std::string WithoutBlanks(std::string_view text) { return ReplaceAll(text, " ", ""); }

LineTable LoadLines(const std::string& path) {
  std::string text;
  if (!OpenPath(path).ReadAll(text, Settings::kMaxTableBytes)) return nullptr;
  auto lines = std::make_shared<std::vector<std::string>>();
  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = std::min(text.find('\n', start), text.size());
    std::string_view line(text.data() + start, end - start);
    if (line.ends_with('\r')) line.remove_suffix(1);
    lines->emplace_back(Trim(line));
    if (lines->size() > Settings::kMaxTableLines) return nullptr;
    start = end + 1;
  }
  return lines;
}

}  // namespace TesselServer
