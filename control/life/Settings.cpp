#include "control/life/Settings.h"

#include <algorithm>

#include "platform/files/FileSystem.h"
#include "platform/settings/PropertyBag.h"
#include "support/Text.h"
#include "support/Wipe.h"
#include "support/cls_Strings.h"

namespace TesselServer {

namespace {

// Fills `lines` with the trimmed lines of `text`. False when there are more than a table takes. The memory for them is
// allocated once, so that growing leaves no copy of a line in freed memory.
bool CutIntoLines(std::string_view text, std::vector<std::string>& lines) {
  const bool isOpen = !text.empty() && text.back() != '\n';
  const auto count = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + (isOpen ? 1 : 0);
  if (count > Settings::kMaxTableLines) return false;
  lines.reserve(count);
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    std::string_view line = text.substr(start, end - start);
    if (line.ends_with('\r')) line.remove_suffix(1);
    lines.emplace_back(Trim(line));
    start = end + 1;
  }
  return true;
}

void StoreInRange(std::int32_t value, std::int32_t least, std::int32_t most, std::int32_t& place) {
  if (value >= least && value <= most) place = value;
}

}  // namespace

void Settings::SetHTTPMode(std::int32_t mode) {
  auto number = static_cast<std::int32_t>(HTTPMode);
  StoreInRange(mode, static_cast<std::int32_t>(e_HTTPMode::Classic), static_cast<std::int32_t>(e_HTTPMode::Modern),
               number);
  HTTPMode = static_cast<e_HTTPMode>(number);
}

void Settings::SetClientTimeout(std::int32_t seconds) { StoreInRange(seconds, 0, kMaxClientSeconds, ClientTimeout); }

void Settings::SetKeepAliveTimeout(std::int32_t seconds) {
  StoreInRange(seconds, 0, kMaxClientSeconds, KeepAliveTimeout);
}

void Settings::SetMaxHeaderBytes(std::int32_t bytes) {
  StoreInRange(bytes, kMinHeaderBytes, kMaxHeaderBytes, MaxHeaderBytes);
}

void Settings::SetIndexPageNames(std::string_view names) {
  IndexPageNames = WithoutBlanks(names);
  IndexPageList = cls_Strings::ListStrToArray(IndexPageNames, ",");
}

void Settings::SetContentTypes(const std::string& file, LineTable lines) {
  ContentTypeLines = std::move(lines);
  ContentTypeLinesFile = file;
  ContentTypeSourceFile = file;
}

void Settings::RefreshContentTypes() {
  LineTable lines = ContentTypeSourceFile.empty() ? nullptr : LoadLines(ContentTypeSourceFile);
  if (lines == nullptr && ContentTypeLinesFile == ContentTypeSourceFile) return;
  SetContentTypes(ContentTypeSourceFile, std::move(lines));
}

std::shared_ptr<const SecretLines> SecretLines::Load(const std::string& path) {
  std::string text;
  const WipeAtEnd textGoes(text);
  const auto secret = std::make_shared<SecretLines>(std::vector<std::string>());
  const bool isRead = OpenPath(path).ReadAll(text, Settings::kMaxTableBytes);
  return isRead && CutIntoLines(text, secret->lines_) ? secret : nullptr;
}

SecretLines::~SecretLines() {
  for (std::string& line : lines_) Wipe(line);
}

std::int32_t ParseServerPort(std::string_view text) { return NumberFromText("ServerPort", Trim(text)); }

std::int32_t ClampSeconds(std::int32_t value) { return std::clamp(value, 0, Settings::kMaxSeconds); }

std::string WithoutBlanks(std::string_view text) { return ReplaceAll(text, " ", ""); }

LineTable LoadLines(const std::string& path) {
  std::string text;
  auto lines = std::make_shared<std::vector<std::string>>();
  const bool isTable = OpenPath(path).ReadAll(text, Settings::kMaxTableBytes) && CutIntoLines(text, *lines);
  return isTable ? lines : nullptr;
}

}  // namespace TesselServer
