#include "support/cls_WinUtil.h"

#include <cmath>

#include "platform/FileSystem.h"
#include "support/Format.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kTwoDigits = "0#";
constexpr std::string_view kPlatformId = "2";

bool EndsInSeparator(std::string_view path) { return path.ends_with('/') || path.ends_with('\\'); }

}  // namespace

bool cls_WinUtil::FileExists(std::string_view path) const {
  return !Trim(path).empty() && !EndsInSeparator(path) && KindOfPath(path) == EntryKind::kFile;
}

bool cls_WinUtil::DirectoryExists(std::string_view path) const {
  return !Trim(path).empty() && KindOfPath(path) != EntryKind::kNone;
}

std::string cls_WinUtil::UpTimeText(Date from, Date to) const {
  const double days = static_cast<double>(SecondsBetween(from, to)) / 86400;
  const double hours = (days - std::trunc(days)) * 24;
  const double minutes = (hours - std::trunc(hours)) * 60;
  const double seconds = (minutes - std::trunc(minutes)) * 60;
  std::string text = FormatNumber(std::trunc(days), kTwoDigits);
  for (const double part : {std::trunc(hours), std::trunc(minutes), seconds}) {
    text.append(":").append(FormatNumber(part, kTwoDigits));
  }
  return text;
}

std::string cls_WinUtil::PlatformIdText() const { return std::string(kPlatformId); }

}  // namespace TesselServer
