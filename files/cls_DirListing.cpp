#include "files/cls_DirListing.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <string_view>

#include "platform/files/FolderPass.h"
#include "platform/files/FolderRecord.h"
#include "platform/loop/LongMemory.h"
#include "platform/tasks/Turns.h"
#include "platform/world/Error.h"
#include "support/Dates.h"
#include "support/Text.h"
#include "support/mURLEncode.h"

namespace TesselServer {
namespace {

// kept: the style sheet names classes in upper case that the cells name in lower case, and one rule that no cell uses.
constexpr std::string_view kBeforeTitle =
    "<html>\r\n"
    "<head>\r\n"
    "   <meta http-equiv=\"Content-Type\" content=\"text/html; charset=iso-8859-1\">\r\n"
    "   <title>Directory Listing: ";
constexpr std::string_view kBeforeHeading =
    "</title>\r\n"
    "   <STYLE TYPE=\"text/css\">\r\n"
    "       H2 {font-size: larger; font-family:Verdana,Arial,Helvetica; color: #3366CC; text-decoration: none;}\r\n"
    "       .TH0 {font-size: 16px; font-family:Verdana,Arial,Helvetica; font-weight: bold; background-color: #6699CC; "
    "color: #FFFFFF; text-decoration: none; padding-bottom : 2px; padding-top : 2px;}\r\n"
    "       .TH1 {font-family:Verdana,Arial,Helvetica; font-weight: bold; background-color: #003399; color: #FFFFFF; "
    "text-decoration: none; padding-bottom : 2px; padding-top : 2px;}\r\n"
    "       .TH2 {font-family:Verdana,Arial,Helvetica; font-weight: bold; background-color: #003399; color: #FFFFFF; "
    "text-decoration: none; padding-bottom : 2px; padding-top : 2px;}\r\n"
    "       TD {font-family:Verdana,Arial,Helvetica; color: #003399; text-decoration: none;}\r\n"
    "       TR {font-family:Verdana,Arial,Helvetica; color: #003399; text-decoration: none;}\r\n"
    "       A {text-decoration: underline; color: blue;}\r\n"
    "       A:Hover {text-decoration: underline; color: red;}\r\n"
    "   </STYLE>\r\n"
    "</head>\r\n\r\n"
    "<body bgcolor=\"#FFFFFF\" leftmargin=\"1\" topmargin=\"1\" MARGINHEIGHT=\"1\" MARGINWIDTH=\"1\">\r\n\r\n"
    "<table border=\"0\" bordercolor=\"#DDDDDD\" width=\"100%\" bgcolor=\"#FFFFFF\" style=\"font-family: Arial; "
    "font-size: 9pt; border-style: solid; border-color: #FFFFFF\" cellpadding=\"0\">\r\n"
    "   <tr>\r\n"
    "       <td colspan=3 class=th0>&nbsp;";
constexpr std::string_view kBehindHeading =
    "</td>\r\n"
    "   </tr>\r\n"
    "   <tr>\r\n"
    "       <td class=th1>&nbsp;Name</td>\r\n"
    "       <td align=right width = 25% class=th2>&nbsp;File Size (KB)&nbsp;</td>\r\n"
    "       <td align=right width = 25% class=th2>&nbsp;Date&nbsp;</td>\r\n"
    "   </tr>\r\n";
// kept: no closing tag of the body.
constexpr std::string_view kEnd =
    "</table>\r\n"
    "</html>\r\n";

constexpr std::string_view kRowBegin =
    "   <tr>\r\n"
    "       <td>&nbsp;<a href = ";
constexpr std::string_view kNameEnd =
    "</a></td>\r\n"
    "       <td align=\"right\">";
constexpr std::string_view kSizeOfFolder =
    "&lt;dir&gt;"
    "&nbsp;</td>\r\n"
    "       <td align=\"right\">";
// kept: the date cell of a file follows on the same line.
constexpr std::string_view kSizeOfFileEnd =
    "&nbsp;</td>"
    "       <td align=\"right\">";

// The end of a row, with room for the digits of a year up to 9999.
constexpr char kDateAndRowEnd[] =
    "0000/00/00&nbsp;&nbsp;&nbsp;00:00:00&nbsp;</td>\r\n"
    "   </tr>\r\n";
constexpr std::size_t kYearDigits = 4;
constexpr std::size_t kMonthAt = 5, kDayAt = 8;
constexpr std::size_t kHourAt = 28, kMinuteAt = 31, kSecondAt = 34;

constexpr std::size_t kUsualPageBytes = 16 * 1024;  // room for some fifty rows
constexpr std::size_t kUsualRowBytes = 224;         // without the folder's own address, for names of 20 bytes
// What a row takes at most without the folder's own address: the name of 255 bytes twice, encoded once, and the rest.
constexpr std::size_t kMaxRowBytes = 255 * 4 + 256;

// What is done between two looks at the clock takes some 50 us: ten entries, of 2 to 5 us each, or a hundred and sixty
// names that the folder itself says are not wanted, or rows of 64 KiB. A link takes as long by itself.
constexpr int kEffortOfEntry = 16;
constexpr int kEffortAtOnce = 160;
constexpr std::size_t kBytesAtOnce = 64 * 1024;

void AppendParentRow(std::string& page, std::string_view urlPath) {
  const std::size_t slash = urlPath.rfind('/');
  if (slash == std::string_view::npos || Trim(urlPath).size() < 2) return;
  page.append("   <tr><td><a href = ").append(urlPath.substr(0, slash + 1));
  page.append(">[Parent Directory]</a></td><td></td><td></td></tr>\r\n");
}

void PutTwoDigits(char* at, std::int64_t number) {
  at[0] = static_cast<char>('0' + number / 10 % 10);
  at[1] = static_cast<char>('0' + number % 10);
}

void AppendDateAndRowEnd(std::string& page, const CivilTime& date) {
  std::array<char, sizeof kDateAndRowEnd - 1> text;
  std::memcpy(text.data(), kDateAndRowEnd, text.size());
  PutTwoDigits(text.data(), date.year / 100);
  PutTwoDigits(text.data() + 2, date.year);
  PutTwoDigits(text.data() + kMonthAt, date.month);
  PutTwoDigits(text.data() + kDayAt, date.day);
  PutTwoDigits(text.data() + kHourAt, date.hour);
  PutTwoDigits(text.data() + kMinuteAt, date.minute);
  PutTwoDigits(text.data() + kSecondAt, date.second);
  std::string_view shown(text.data(), text.size());
  if (date.year > 9999) {  // after the last year of four digits
    page.append(std::to_string(date.year));
    shown.remove_prefix(kYearDigits);
  }
  page.append(shown);
}

// Takes the row that begins at `start` away again when it passes the limit. Whether it may stay.
bool Fits(std::string& page, std::size_t start, std::size_t limit) {
  if (page.size() <= limit) return true;
  page.resize(start);
  return false;
}

}  // namespace

// The end of a row, after its size. Entries of one folder often have the same time, so the latest text is
// kept.
class cls_DirListing::RowEnd {
 public:
  // For what `entry` points at in turn. `beforeDate` comes first.
  RowEnd(const CFileInfo& entry, std::string_view beforeDate) : entry_(entry), beforeDate_(beforeDate) {}

  const std::string& For(const FileFacts& facts) {
    if (!text_.empty() && facts.modified == modified_) return text_;
    modified_ = facts.modified;
    text_ = beforeDate_;
    AppendDateAndRowEnd(text_, CivilFromDate(entry_.ModifyTime()));
    return text_;
  }

 private:
  const CFileInfo& entry_;
  std::string_view beforeDate_;
  std::int64_t modified_ = 0;
  std::string text_;
};

// A pass over the folder for one kind of row.
class cls_DirListing::Pass {
 public:
  Pass(const cls_DirListing& listing, const Rows& rowsToMake, EntryKind kindOfRows, Turns* turns)
      : rows(rowsToMake),
        kind(kindOfRows),
        entries(listing.directory_, kindOfRows, listing.names_, turns),
        end(listing.fileInfo_, kindOfRows == EntryKind::kDirectory ? kSizeOfFolder : kSizeOfFileEnd) {
    rows.Expect(entries.ExpectedEntries());
  }

  const Rows& rows;
  const EntryKind kind;
  FolderPass entries;
  RowEnd end;
  std::int32_t left = kMaxEntries;
};

std::string cls_DirListing::GetDirListing(std::string& LocalDir, std::string& UrlPath, const std::string& ServerName) {
  return RunNow(ListInTurns(LocalDir, UrlPath, ServerName, nullptr)).value_or(std::string());
}

Task<std::optional<std::string>> cls_DirListing::ListInTurns(std::string& LocalDir, std::string& UrlPath,
                                                             const std::string& ServerName, Turns* turns) {
  if (!LocalDir.ends_with('\\')) LocalDir += '\\';
  const std::string heading = ServerName + " - " + UrlPath;
  LongText text;
  std::string& page = text.bytes;
  page.reserve(kUsualPageBytes);
  page.append(kBeforeTitle).append(heading).append(kBeforeHeading).append(heading).append(kBehindHeading);
  if (UrlPath.ends_with('/')) UrlPath.pop_back();
  AppendParentRow(page, UrlPath);
  Rows rows(page, UrlPath, kMaxListingBytes - kEnd.size());
  NameSet shown;
  if (turns != nullptr) rows.shown = &shown;
  auto folders = AppendInTurns(rows, EntryKind::kDirectory, turns);
  if (!co_await folders) co_return std::nullopt;
  auto files = AppendInTurns(rows, EntryKind::kFile, turns);
  if (!co_await files) co_return std::nullopt;
  page.append(kEnd);
  co_return std::move(page);
}

std::string cls_DirListing::ListSubDirectories(std::string&, std::string& UrlPath, const std::string&) {
  std::string page;
  const Rows rows(page, UrlPath, kMaxListingBytes);
  RunNow(AppendInTurns(rows, EntryKind::kDirectory, nullptr));
  return page;
}

std::string cls_DirListing::ListFiles(std::string&, std::string& UrlPath, const std::string&) {
  std::string page;
  const Rows rows(page, UrlPath, kMaxListingBytes);
  RunNow(AppendInTurns(rows, EntryKind::kFile, nullptr));
  return page;
}

cls_DirListing::Rows::Rows(std::string& rowsGoTo, std::string_view urlPath, std::size_t most)
    : page(rowsGoTo), limit(most) {
  begin.append(kRowBegin).append(urlPath).append("/");
}

// A string moves its bytes whenever it grows. One that outgrows a small page gets room for the longest there is, which
// takes no memory before it is written to. Where the system does not give so much, it grows as strings do.
void cls_DirListing::Rows::Grow(std::size_t wanted) const {
  const std::size_t doubled = std::max(wanted, 2 * page.capacity());
  if (doubled <= kMovedAtMost) {
    page.reserve(doubled);
    return;
  }
  try {
    page.reserve(std::max(wanted, kMaxListingBytes + begin.size() + kMaxRowBytes));
  } catch (const std::bad_alloc&) {
    page.reserve(wanted);
  }
}

void cls_DirListing::Rows::Expect(std::size_t entries) const {
  const std::size_t left = kMaxListingBytes - std::min(page.size(), kMaxListingBytes);
  MakeRoom(std::min(entries * (begin.size() + kUsualRowBytes) + kEnd.size(), left));
}

// False where the page may not go on.
Task<bool> cls_DirListing::AppendInTurns(const Rows& rows, EntryKind kind, Turns* turns) {
  Pass pass(*this, rows, kind, turns);
  for (bool isOver = false; !isOver;) {
    const Stretch stretch = AppendSome(pass);
    isOver = stretch == Stretch::kEnd;
    if (stretch == Stretch::kMustFetch) {
      auto fetched = pass.entries.Fetch();
      co_await fetched;
    } else if (stretch == Stretch::kLink) {
      auto served = LinkIsServed(std::string(pass.entries.Entry().name), pass.entries.Entry().facts.identity);
      const bool isServed = co_await served;
      isOver = isServed && !AppendRow(pass);
    }
    if (!MayGoOn(rows)) co_return false;
    if (turns != nullptr && turns->TimeIsUp()) {
      auto next = turns->Next();
      co_await next;
    }
  }
  co_return true;
}

// As much as is done between two looks at the clock. kLink: the entry is a link that is to be asked about.
cls_DirListing::Stretch cls_DirListing::AppendSome(Pass& pass) {
  const std::size_t mostBytes = pass.rows.page.size() + kBytesAtOnce;
  for (int effort = 0; effort < kEffortAtOnce && pass.rows.page.size() < mostBytes;) {
    const auto step = pass.entries.Advance();
    if (!step) return Stretch::kMustFetch;
    if (step == DirectoryReader::Step::kEnd) return Stretch::kEnd;
    effort += step == DirectoryReader::Step::kSkipped ? 1 : kEffortOfEntry;
    if (step != DirectoryReader::Step::kEntry) continue;
    if (pass.left-- == 0) return Stretch::kEnd;
    const DirectoryEntry& entry = pass.entries.Entry();
    if (!IsListed(entry, pass.kind)) continue;
    if (entry.isLink) {
      if (MayAskOfLink()) return Stretch::kLink;
      continue;
    }
    if (!AppendRow(pass)) return Stretch::kEnd;
  }
  return Stretch::kMore;
}

bool cls_DirListing::IsListed(const DirectoryEntry& entry, EntryKind kind) const {
  if (kind == EntryKind::kDirectory) return !entry.name.starts_with('.');
  return entry.name != rules_.authFileName && entry.facts.identity != rules_.neverListed;
}

// The row of the entry that the pass is at, unless it is hidden or has one. False when it would pass the limit: it is
// then left out.
bool cls_DirListing::AppendRow(Pass& pass) {
  const Rows& rows = pass.rows;
  const DirectoryEntry& entry = pass.entries.Entry();
  const bool isFolder = pass.kind == EntryKind::kDirectory;
  fileInfo_.SetEntry({}, entry.name, entry.facts);  // its folder is on no row
  if (!isFolder && fileInfo_.attrHidden()) return true;
  if (rows.shown != nullptr && HasRow(pass)) return true;
  rows.MakeRoom(rows.begin.size() + kMaxRowBytes);
  const std::size_t start = rows.page.size();
  rows.page.append(rows.begin);
  isFolder ? rows.page.append(URLEncode(entry.name, false)) : rows.page.append(entry.name);
  rows.page.append(">").append(entry.name).append(kNameEnd);
  if (!isFolder) rows.page.append(fileInfo_.FormatFileSize(fileInfo_.FileSize()));
  rows.page.append(pass.end.For(entry.facts));
  return Fits(rows.page, start, rows.limit);
}

// Of names that differ only one that either pass may take for its own kind can come again.
bool cls_DirListing::HasRow(const Pass& pass) const {
  if (names_ && names_->NamesDiffer() && pass.entries.KindIsRecorded()) return false;
  return !pass.rows.shown->Add(pass.entries.Entry().name);
}

// A link that cannot be followed just now, for want of descriptors, is not listed.
Task<bool> cls_DirListing::LinkIsServed(std::string name, FileIdentity target) {
  ++links_;
  try {
    auto served = rules_.linkIsServed(std::move(name), target);
    co_return co_await served;
  } catch (const Error&) {
    co_return false;
  }
}

// What the names of a small folder take does not count: it is gone with the turn.
bool cls_DirListing::MayGoOn(const Rows& rows) const {
  if (!mayHold_) return true;
  const std::size_t namesBytes = rows.shown != nullptr ? rows.shown->Bytes() : 0;
  return mayHold_(rows.page.size() + namesBytes - std::min(namesBytes, NameSet::kBytesOfStep));
}

}  // namespace TesselServer
