// The page that shows a folder, whatever its form, written piece by piece, so that a long one may be made in turns.
//
//   page.Begin(text);
//   for (...) page.AppendRow(text, entry);   // in the order of the page
//   page.End(text, true);
//
// Thread:    any one at a time; pure.
// Ownership: keeps its own copy of what it is made with; an entry is read during the call.
// Errors:    none but those of memory running out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "http/modern/ListingOrder.h"

namespace TesselServer::Modern {

class ListingPage {
 public:
  // What a row takes at most: a name of 255 bytes as text (six bytes for one, "&quot;" or "\u0001") and as a link
  // (three), and what is around it.
  static constexpr std::size_t kMaxRowBytes = 255 * 9 + 512;

  ListingPage() = default;
  ListingPage(const ListingPage&) = delete;
  ListingPage& operator=(const ListingPage&) = delete;
  virtual ~ListingPage() = default;

  // Its content type, with the charset where the type has one.
  virtual std::string_view Type() const = 0;

  virtual void Begin(std::string& to) = 0;
  virtual void AppendRow(std::string& to, const ListedEntry& entry) = 0;
  // `isWhole`: every entry has a row.
  virtual void End(std::string& to, bool isWhole) = 0;
};

// Whether a listing has a link for the name: no request leads to one with a control or a "\".
bool HasLink(std::string_view name);

// Appends the link from a folder's page to its entry: every byte but the unreserved ones encoded (RFC 3986 section
// 2.3), so that nothing in a name can mean something else, and a slash behind a folder.
//
//   AppendLink(to, {"50% a:b", true});  // "50%25%20a%3Ab/"
void AppendLink(std::string& to, const ListedEntry& entry);
// Appends so encoded `text`, but for the slashes in it.
void AppendEncoded(std::string& to, std::string_view text);

// Appends the moment as "2026-11-22T17:05:09Z" (RFC 3339), and as "2026-11-22 17:05". One before the year 0 or after
// 9999, which neither can say, is moved to the nearer end.
void AppendTimestamp(std::string& to, std::int64_t utcSeconds);
void AppendMinute(std::string& to, std::int64_t utcSeconds);

}  // namespace TesselServer::Modern
