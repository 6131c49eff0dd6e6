// In which order a folder is listed, as its client chooses it: "?sort=name|size|time&order=asc|desc".
//
// Thread:    any; pure.
// Ownership: a value; an entry's name is a view.
// Errors:    none; what a query does not say, or says in other words, is the default: by name, ascending.
#pragma once

#include <cstdint>
#include <string_view>

namespace TesselServer::Modern {

// One entry of a folder.
struct ListedEntry {
  std::string_view name;      // as on disk, 1 to 255 bytes
  bool isFolder = false;      // else a file
  std::int64_t size = 0;      // bytes; 0 for a folder
  std::int64_t modified = 0;  // seconds since 1 January 1970 UTC
};

enum class ListingKey { kName, kSize, kTime };

struct ListingOrder {
  ListingKey key = ListingKey::kName;
  bool isDescending = false;

  // Of several `sort` or `order` the first one that says something counts.
  //
  //   ListingOrder::Of("order=desc&sort=size");  // by size, the largest first
  static ListingOrder Of(std::string_view query);

  // Whether `a` is listed before `b`. Folders come first in every order; what is equal by the key goes by its name,
  // ascending, byte by byte.
  bool IsBefore(const ListedEntry& a, const ListedEntry& b) const;

  bool operator==(const ListingOrder&) const = default;
};

// How a query names it.
std::string_view NameOf(ListingKey key);

}  // namespace TesselServer::Modern
