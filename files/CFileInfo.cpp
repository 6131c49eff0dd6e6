#include "files/CFileInfo.h"

#include <array>
#include <charconv>
#include <utility>

#include "platform/world/World.h"
#include "support/Format.h"
#include "support/PathText.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::int64_t kFileTimeZero = -11'644'473'600;  // 1 January 1601, 00:00 UTC

constexpr std::int64_t kSecondsPerMinute = 60;
constexpr std::int64_t kSecondsPerDay = 86400;

// "\" for every "/".
std::string WithBackslashes(std::string_view path) {
  std::string text(path);
  for (char& c : text) {
    if (c == '/') c = '\\';
  }
  return text;
}

std::string FormatBytes(std::int32_t size) {
  const bool needsComma = size <= -1000 || size >= 1000;
  return (needsComma ? FormatNumber(size, "#,##0") : std::to_string(size)) + " bytes";
}

// `size` in units of `unit` bytes with so many decimals, half a unit of the last place rounded up. Whole numbers all
// the way, since a listing shows many sizes.
std::string FormatUnits(std::int64_t size, std::int64_t unit, std::size_t decimals) {
  std::int64_t scale = 1;
  for (std::size_t i = 0; i < decimals; ++i) scale *= 10;
  std::string text = std::to_string((size * scale + unit / 2) / unit);
  if (decimals == 0) return text;
  if (text.size() <= decimals) text.insert(0, decimals + 1 - text.size(), '0');
  return text.insert(text.size() - decimals, 1, '.');
}

}  // namespace

void CFileInfo::FullPathName(std::string_view path) {
  std::string full = FullPathOf(path);
  if (full.empty()) return;
  fullPathName_ = std::move(full);
  Refresh();
}

void CFileInfo::SetEntry(std::string_view folder, std::string_view name, const FileFacts& facts) {
  fullPathName_.assign(folder).append(name);
  Take(facts);
}

void CFileInfo::CreationTime(Date date) {
  if (WriteFileTime(date, WhichTime::kCreation)) Refresh();
}

void CFileInfo::LastAccessTime(Date date) {
  if (WriteFileTime(date, WhichTime::kLastAccess)) Refresh();
}

void CFileInfo::ModifyTime(Date date) {
  if (WriteFileTime(date, WhichTime::kLastWrite)) Refresh();
}

void CFileInfo::Attributes(std::int32_t attributes) {
  if (attributes != attributes_ && WriteAttributes(attributes)) Refresh();
}

void CFileInfo::SetAttribute(std::uint32_t bit, bool set) {
  const auto attributes = static_cast<std::uint32_t>(attributes_);
  Attributes(static_cast<std::int32_t>(set ? attributes | bit : attributes & ~bit));
}

void CFileInfo::Refresh() {
  const bool asFolder = !fullPathName_.empty() && IsSeparator(fullPathName_.back());
  Take(asFolder ? FileFacts() : FactsOfPath(fullPathName_).facts);
}

void CFileInfo::Take(const FileFacts& facts) {
  fileExists_ = facts.kind != EntryKind::kNone;
  if (!fileExists_) return;
  pathExists_ = true;
  fileSize_ = static_cast<std::int32_t>(static_cast<std::uint32_t>(facts.size));
  attributes_ = static_cast<std::int32_t>(facts.attributes);
  modified_ = facts.modified;
}

std::string CFileInfo::DirModTime() const {
  constexpr int kDigits = 15;  // the significant digits of a double
  std::array<char, 32> text;
  const Date date = FileTimeToDate(kFileTimeZero, true);
  const auto end = std::to_chars(text.data(), text.data() + text.size(), date, std::chars_format::general, kDigits).ptr;
  return std::string(text.data(), end);
}

std::string CFileInfo::FormatFileDate(Date date) const {
  return FormatDate(date, "long date") + ' ' + FormatDate(date, "long time");
}

std::string CFileInfo::FormatFileDateShort(Date date, std::string_view format) const {
  return FormatFileDateOnlyShort(date, format) + ' ' + FormatFileTimeOnlyShort(date);
}

std::string CFileInfo::FormatFileTimeOnlyShort(Date date) const { return FormatDate(date, "hh:nn:ss"); }

std::string CFileInfo::FormatFileDateOnlyShort(Date date, std::string_view format) const {
  return FormatDate(date, format);
}

std::string CFileInfo::FormatFileSize(std::int32_t size) const {
  constexpr std::int32_t kBytesPerKB = 1024;
  constexpr std::int64_t kBytesPerMB = 1024 * 1024;
  if (size < kBytesPerKB) return FormatBytes(size);
  struct Form {
    std::int32_t below;  // whole KB
    std::int64_t unit;   // bytes
    std::size_t decimals;
    std::string_view word;
  };
  static constexpr Form kForms[] = {
      {10, kBytesPerKB, 2, "KB"},
      {100, kBytesPerKB, 1, "KB"},
      {1000, kBytesPerKB, 0, "KB"},
      {10'000, kBytesPerMB, 2, "MB"},
      {100'000, kBytesPerMB, 1, "MB"},
      {1'000'000, kBytesPerMB, 0, "MB"},
      {10'000'000, kBytesPerMB * 1024, 2, "GB"},
  };
  const std::int32_t wholeKB = size / kBytesPerKB;
  for (const Form& form : kForms) {
    if (wholeKB < form.below) return FormatUnits(size, form.unit, form.decimals).append(form.word);
  }
  return {};  // no size of 32 bits comes here
}

Date CFileInfo::FileTimeToDate(std::int64_t fileTime, bool ToLocal) const {
  return ToLocal ? LocalDate(world_, fileTime) : DateFromSeconds(fileTime);
}

// The offset a day earlier is the one before any change of the clocks near the date, the offset a day later the one
// after it. Where neither leads back to the date, the date was skipped by the change.
std::int64_t CFileInfo::DateToFileTime(Date date, bool FromLocal) const {
  const std::int64_t seconds = SecondsFromDate(date);
  if (!FromLocal) return seconds;
  const auto toUtc = [&](std::int64_t moment) { return seconds + world_.BiasMinutes(moment) * kSecondsPerMinute; };
  const std::int64_t before = toUtc(seconds - kSecondsPerDay);
  const std::int64_t after = toUtc(seconds + kSecondsPerDay);
  if (toUtc(before) == before || toUtc(after) != after) return before;
  return after;
}

bool CFileInfo::WriteAttributes(std::int32_t attributes) {
  return fileExists_ && WriteFileAttributes(fullPathName_, static_cast<std::uint32_t>(attributes));
}

bool CFileInfo::WriteFileTime(Date date, WhichTime which) {
  if (!fileExists_ || which == WhichTime::kCreation) return false;
  const FileTime time = which == WhichTime::kLastAccess ? FileTime::kLastAccess : FileTime::kLastWrite;
  return TesselServer::WriteFileTime(fullPathName_, time, DateToFileTime(date, true));
}

std::string CFileInfo::GetTruePathCase(std::string_view path) {
  std::string text = WithBackslashes(path);
  if (text.ends_with('\\')) {
    if (text.ends_with(":\\")) return Upper(text);
    text.pop_back();
  }
  if (text.starts_with("\\\\")) {
    const std::size_t share = text.find('\\', 2);
    if (share != std::string::npos && text.find('\\', share + 1) == std::string::npos) return text;
  }
  const std::size_t cut = text.rfind('\\');
  if (cut == std::string::npos) return Upper(text);
  const PathFacts found = FactsOfPath(text);
  if (found.facts.kind != EntryKind::kDirectory) return {};
  std::string truePath = GetTruePathCase(text.substr(0, cut));
  return truePath.append("\\").append(StripAtNul(LastComponent(found.spelling)));
}

std::string_view CFileInfo::StripAtNul(std::string_view text) {
  const std::size_t nul = text.find('\0');
  return nul == std::string_view::npos ? Trim(text) : text.substr(0, nul);
}

}  // namespace TesselServer
