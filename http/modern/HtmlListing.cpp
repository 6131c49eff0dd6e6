#include "http/modern/HtmlListing.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "http/modern/ByteClasses.h"
#include "http/modern/Utf8.h"

namespace TesselServer::Modern {
namespace {

constexpr std::string_view kListingBeforeTitle =
    "<!DOCTYPE html>\n"
    "<html lang=\"en\">\n"
    "<head>\n"
    "<meta charset=\"utf-8\">\n"
    "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
    "<meta name=\"color-scheme\" content=\"light dark\">\n"
    "<title>";

// Contrast is 4.5 to 1 at least, also of what is said quietly.
constexpr std::string_view kListingBeforePath =
    "</title>\n"
    "<style>\n"
    ":root{color-scheme:light dark;--page:#fff;--text:#1c2127;--quiet:#57606a;--line:#d8dee4;--row:#f3f6f9;"
    "--link:#0a56b5;--seen:#6f42c1}\n"
    "@media (prefers-color-scheme:dark){:root{--page:#0f1318;--text:#e4e9ee;--quiet:#9aa5b1;--line:#2a313a;"
    "--row:#181e25;--link:#79b8ff;--seen:#c3a6ff}}\n"
    "body{margin:0 auto;max-width:62rem;padding:1rem;background:var(--page);color:var(--text);"
    "font:1rem/1.4 system-ui,sans-serif}\n"
    "h1{margin:0 0 .75rem;font-size:1.25rem;font-weight:600;overflow-wrap:anywhere}\n"
    "h1 a{display:inline-block;padding:.25rem 0;max-width:100%}\n"
    "a{color:var(--link);text-decoration:none}\n"
    "tbody a:visited{color:var(--seen)}\n"
    "a:hover,a:focus-visible{text-decoration:underline}\n"
    "table{width:100%;border-collapse:collapse}\n"
    "th,td{padding:.5rem;text-align:left;vertical-align:baseline;border-bottom:1px solid var(--line)}\n"
    "thead th{padding:0;white-space:nowrap;border-bottom-width:2px}\n"
    "thead a{display:block;padding:.6rem .5rem}\n"
    "tbody th{padding:0;width:99%;font-weight:400;overflow-wrap:anywhere}\n"
    "tbody th>*{display:block;padding:.5rem}\n"
    "bdi{white-space:pre-wrap}\n"
    ".d bdi{font-weight:600}\n"
    "th+th,td{text-align:right;font-variant-numeric:tabular-nums;white-space:nowrap}\n"
    "small,thead span{color:var(--quiet);font-size:.85em;font-weight:400}\n"
    "td small{display:inline-block;min-width:5.5em}\n"
    "tbody tr:hover{background:var(--row)}\n"
    "p{color:var(--quiet)}\n"
    "@media (max-width:38rem){body{padding:.5rem}th,td,tbody th>*{padding:.5rem .35rem}thead th{padding:0}"
    "thead a{padding:.6rem .35rem}tbody th{padding:0}td{white-space:normal;font-size:.8125rem;line-height:1.5}"
    "td small,thead small{display:block;min-width:0}time{display:block;max-width:6em;margin-left:auto}}\n"
    "</style>\n"
    "</head>\n"
    "<body>\n"
    "<h1>";

constexpr std::string_view kListingBeforeHeads = "</h1>\n<table>\n<thead>\n<tr>\n";
constexpr std::string_view kListingBeforeRows = "</tr>\n</thead>\n<tbody>\n";
constexpr std::string_view kListingAfterRows = "</tbody>\n</table>\n";
constexpr std::string_view kListingEmpty = "<p>This folder is empty.</p>\n";
constexpr std::string_view kListingCut = "<p>The folder has more entries than this page can show.</p>\n";
constexpr std::string_view kListingEnd = "</body>\n</html>\n";

constexpr ByteSet kShownBytes([](char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x80 && !IsControl(c) && c != '&' && c != '<' && c != '>' && c != '"' && c != '\'';
});

void AppendShownByte(std::string& to, char c) {
  switch (c) {
    case '&':
      to += "&amp;";
      break;
    case '<':
      to += "&lt;";
      break;
    case '>':
      to += "&gt;";
      break;
    case '"':
      to += "&quot;";
      break;
    case '\'':
      to += "&#39;";
      break;
    default:
      to += kReplacement;
  }
}

// The controls U+0080 to U+009F.
bool IsHighControl(std::string_view character) {
  return character.size() == 2 && character[0] == '\xC2' && static_cast<unsigned char>(character[1]) < 0xA0;
}

void AppendName(std::string& to, std::string_view name) {
  to += "<bdi>";
  AppendShown(to, name);
  to += "</bdi>";
}

}  // namespace

void AppendShown(std::string& to, std::string_view text) {
  while (!text.empty()) {
    const auto end = std::find_if_not(text.begin(), text.end(), [](char c) { return kShownBytes.Has(c); });
    to.append(text.begin(), end);
    text.remove_prefix(static_cast<std::size_t>(end - text.begin()));
    if (text.empty()) return;
    const Utf8Piece piece = FirstUtf8(text);
    if (piece.bytes == 1 && piece.isCharacter) {
      AppendShownByte(to, text[0]);
    } else {
      const std::string_view character = text.substr(0, piece.bytes);
      to += piece.isCharacter && !IsHighControl(character) ? character : kReplacement;
    }
    text.remove_prefix(piece.bytes);
  }
}

void AppendGrouped(std::string& to, std::int64_t number) {
  const std::string digits = std::to_string(number);
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) to += ',';
    to += digits[i];
  }
}

void AppendReadableSize(std::string& to, std::int64_t bytes) {
  constexpr std::array<std::string_view, 6> kUnits = {" KiB", " MiB", " GiB", " TiB", " PiB", " EiB"};
  constexpr double kNextUnit = 1023.95;  // is shown as 1024.0
  if (bytes < 1024) return;
  double value = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  for (; value >= kNextUnit && unit + 1 < kUnits.size(); ++unit) value /= 1024;
  std::array<char, 16> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, 1);
  to.append(digits.data(), end.ptr).append(kUnits[unit]);
}

// ---- The page around the rows.

void HtmlListing::Begin(std::string& to) {
  to += kListingBeforeTitle;
  AppendShown(to, place_.path);
  to += " - ";
  AppendShown(to, RootName());
  to += kListingBeforePath;
  AppendPath(to);
  to += kListingBeforeHeads;
  AppendHead(to, ListingKey::kName, "Name", "");
  AppendHead(to, ListingKey::kSize, "Size", "bytes");
  AppendHead(to, ListingKey::kTime, "Modified", "UTC");
  to += kListingBeforeRows;
  if (IsRoot()) return;
  to += "<tr class=\"d\"><th scope=\"row\"><a href=\"";
  AppendLinkUp(to, place_.path.rfind('/', place_.path.size() - 2) + 1);
  to += "\">../ (parent folder)</a></th><td></td><td></td></tr>\n";
}

// The root and the last parts of the path, each as a link.
void HtmlListing::AppendPath(std::string& to) const {
  const std::string_view path = place_.path;
  AppendPartLink(to, 1);
  std::size_t left = static_cast<std::size_t>(std::count(path.begin(), path.end(), '/')) - 1;
  if (left > kMaxParts) to += " / \xE2\x80\xA6";
  for (std::size_t begin = 1; begin < path.size(); --left) {
    const std::size_t end = path.find('/', begin) + 1;
    if (left <= kMaxParts) {
      to += " / ";
      AppendPartLink(to, end);
    }
    begin = end;
  }
}

// The link to the folder whose path are the first `pathEnd` bytes of this one's.
void HtmlListing::AppendPartLink(std::string& to, std::size_t pathEnd) const {
  const std::string_view path = std::string_view(place_.path).substr(0, pathEnd);
  to += "<a href=\"";
  AppendLinkUp(to, pathEnd);
  to += path.size() == place_.path.size() ? "\" aria-current=\"page\">" : "\">";
  const std::string_view folder = path.substr(0, path.size() - 1);
  AppendName(to, folder.empty() ? RootName() : folder.substr(folder.rfind('/') + 1));
  to += "</a>";
}

void HtmlListing::AppendLinkUp(std::string& to, std::size_t pathEnd) const {
  const std::string_view path = place_.path;
  if (!place_.depthIsAsSent) return AppendEncoded(to, path.substr(0, pathEnd));
  const std::string_view below = path.substr(pathEnd);
  const auto levels = std::count(below.begin(), below.end(), '/');
  if (levels == 0) to += "./";
  for (auto i = levels; i > 0; --i) to += "../";
}

// The head of a column, which sorts by it, the other way round where the page is so sorted already.
void HtmlListing::AppendHead(std::string& to, ListingKey key, std::string_view text, std::string_view unit) const {
  const ListingOrder& order = place_.order;
  const bool isSorted = order.key == key;
  to += "<th scope=\"col\"";
  if (isSorted) to += order.isDescending ? " aria-sort=\"descending\"" : " aria-sort=\"ascending\"";
  to.append("><a href=\"?sort=").append(NameOf(key));
  to += isSorted && !order.isDescending ? "&amp;order=desc\">" : "&amp;order=asc\">";
  to += text;
  if (isSorted)
    to += order.isDescending ? " <span aria-hidden=\"true\">\xE2\x96\xBC</span>"
                             : " <span aria-hidden=\"true\">\xE2\x96\xB2</span>";
  if (!unit.empty()) to.append(" <small>").append(unit).append("</small>");
  to += "</a></th>\n";
}

// ---- The rows.

void HtmlListing::AppendRow(std::string& to, const ListedEntry& entry) {
  isEmpty_ = false;
  const bool hasLink = HasLink(entry.name);
  to += entry.isFolder ? "<tr class=\"d\"><th scope=\"row\">" : "<tr><th scope=\"row\">";
  to += hasLink ? "<a href=\"" : "<span>";
  if (hasLink) {
    AppendLink(to, entry);
    to += "\">";
  }
  AppendName(to, entry.name);
  if (entry.isFolder) to += '/';
  to += hasLink ? "</a></th><td>" : "</span></th><td>";
  if (!entry.isFolder) {
    AppendGrouped(to, entry.size);
    to += " <small>";
    AppendReadableSize(to, entry.size);
    to += "</small>";
  }
  to += "</td><td><time datetime=\"";
  AppendTimestamp(to, entry.modified);
  to += "\">";
  AppendMinute(to, entry.modified);
  to += "</time></td></tr>\n";
}

void HtmlListing::End(std::string& to, bool isWhole) {
  to += kListingAfterRows;
  if (!isWhole) {
    to += kListingCut;
  } else if (isEmpty_) {
    to += kListingEmpty;
  }
  to += kListingEnd;
}

}  // namespace TesselServer::Modern
