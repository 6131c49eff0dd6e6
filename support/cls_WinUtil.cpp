#include "support/cls_WinUtil.h"

#include <cmath>
#include <filesystem>
#include <system_error>

#include "platform/files/FileSystem.h"
#include "platform/world/Error.h"
#include "support/Format.h"
#include "support/PathText.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kTwoDigits = "0#";
constexpr std::string_view kPlatformId = "2";

// `path` from the file system's root on. "" when the working folder cannot be determined.
std::string AbsolutePath(std::string_view path) {
  if (IsSeparator(path.front())) return std::string(path);
  std::error_code error;
  const std::string folder = std::filesystem::current_path(error).string();
  return error ? std::string() : folder + "/" + std::string(path);
}

}  // namespace

bool cls_WinUtil::FileExists(std::string_view path) const {
  if (Trim(path).empty()) return false;
  try {
    return RootFolder("/").Find(AbsolutePath(path)).kind == EntryKind::kFile;
  } catch (const Error&) {
    return false;
  }
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
