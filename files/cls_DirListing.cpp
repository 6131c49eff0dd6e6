#include "files/cls_DirListing.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "platform/files/DirectoryReader.h"
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

// The end of a row, after its size. Entries of one folder often have the same time, so the latest text is
// kept.
class RowEnd {
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

// Takes the row that begins at `start` away again when it passes the limit. Whether it may stay.
bool Fits(std::string& page, std::size_t start, std::size_t limit) {
  if (page.size() <= limit) return true;
  page.resize(start);
  return false;
}

}  // namespace

std::string cls_DirListing::GetDirListing(std::string& LocalDir, std::string& UrlPath, const std::string& ServerName) {
  if (!LocalDir.ends_with('\\')) LocalDir += '\\';
  const std::string heading = ServerName + " - " + UrlPath;
  std::string page;
  page.reserve(kUsualPageBytes);
  page.append(kBeforeTitle).append(heading).append(kBeforeHeading).append(heading).append(kBehindHeading);
  if (UrlPath.ends_with('/')) UrlPath.pop_back();
  AppendParentRow(page, UrlPath);
  const Rows rows(page, LocalDir, UrlPath, kMaxListingBytes - kEnd.size());
  AppendSubDirectories(rows);
  AppendFiles(rows);
  return page.append(kEnd);
}

std::string cls_DirListing::ListSubDirectories(std::string& LocalDir, std::string& UrlPath, const std::string&) {
  std::string rows;
  AppendSubDirectories(Rows(rows, LocalDir, UrlPath, kMaxListingBytes));
  return rows;
}

std::string cls_DirListing::ListFiles(std::string& LocalDir, std::string& UrlPath, const std::string&) {
  std::string rows;
  AppendFiles(Rows(rows, LocalDir, UrlPath, kMaxListingBytes));
  return rows;
}

cls_DirListing::Rows::Rows(std::string& rowsGoTo, std::string_view folder, std::string_view urlPath, std::size_t most)
    : page(rowsGoTo), localDir(folder), limit(most) {
  begin.append(kRowBegin).append(urlPath).append("/");
}

void cls_DirListing::Rows::Expect(std::size_t entries) const {
  const std::size_t bytes = page.size() + entries * (begin.size() + kUsualRowBytes) + kEnd.size();
  page.reserve(std::min(bytes, kMaxListingBytes));
}

void cls_DirListing::AppendSubDirectories(const Rows& rows) {
  DirectoryReader folders(directory_, EntryKind::kDirectory, names_);
  RowEnd end(fileInfo_, kSizeOfFolder);
  rows.Expect(folders.ExpectedEntries());
  std::int32_t left = kMaxEntries;
  while (const auto entry = folders.Next()) {
    if (left-- == 0) return;
    if (entry->name.starts_with('.') || !IsListed(*entry)) continue;
    fileInfo_.SetEntry(rows.localDir, entry->name, entry->facts);
    const std::size_t start = rows.page.size();
    rows.page.append(rows.begin).append(URLEncode(entry->name, false)).append(">").append(entry->name);
    rows.page.append(kNameEnd).append(end.For(entry->facts));
    if (!Fits(rows.page, start, rows.limit)) return;
  }
}

void cls_DirListing::AppendFiles(const Rows& rows) {
  DirectoryReader files(directory_, EntryKind::kFile, names_);
  RowEnd end(fileInfo_, kSizeOfFileEnd);
  rows.Expect(files.ExpectedEntries());
  std::int32_t left = kMaxEntries;
  while (const auto entry = files.Next()) {
    if (left-- == 0) return;
    if (entry->name == rules_.authFileName || entry->facts.identity == rules_.neverListed || !IsListed(*entry))
      continue;
    fileInfo_.SetEntry(rows.localDir, entry->name, entry->facts);
    if (fileInfo_.attrHidden()) continue;
    const std::size_t start = rows.page.size();
    rows.page.append(rows.begin).append(entry->name).append(">").append(entry->name).append(kNameEnd);
    rows.page.append(fileInfo_.FormatFileSize(fileInfo_.FileSize())).append(end.For(entry->facts));
    if (!Fits(rows.page, start, rows.limit)) return;
  }
}

// A link that cannot be followed just now, for want of descriptors, is not listed.
bool cls_DirListing::IsListed(const DirectoryEntry& entry) {
  if (!entry.isLink) return true;
  if (links_ == kMaxLinks) return false;
  ++links_;
  try {
    return rules_.linkIsServed && rules_.linkIsServed(std::string(entry.name), entry.facts.identity);
  } catch (const Error&) {
    return false;
  }
}

}  // namespace TesselServer
