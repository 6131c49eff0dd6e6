// A folder's listing for programs: a JSON array (RFC 8259), one object a line.
//
//   [
//   {"name":"music","link":"music/","type":"folder","size":null,"modified":"2026-11-22T17:05:09Z"},
//   {"name":"a b.txt","link":"a%20b.txt","type":"file","size":12345,"modified":"2026-11-22T17:05:09Z"}
//   ]
//
// `name` is the name itself, with U+FFFD for each byte sequence that is no UTF-8; `link`, relative to the folder, has
// its true bytes, and is null where no request leads to the entry. A size is in bytes, null for a folder.
//
// Thread:    any one at a time; pure.
// Ownership: an entry is read during the call.
// Errors:    none but those of memory running out. A list that is not whole does not show it.
#pragma once

#include "http/modern/ListingPage.h"

namespace TesselServer::Modern {

class JsonListing final : public ListingPage {
 public:
  std::string_view Type() const override { return "application/json"; }
  void Begin(std::string& to) override { to += '['; }
  void AppendRow(std::string& to, const ListedEntry& entry) override;
  void End(std::string& to, bool isWhole) override;

 private:
  bool isEmpty_ = true;
};

}  // namespace TesselServer::Modern
