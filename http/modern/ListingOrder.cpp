#include "http/modern/ListingOrder.h"

#include <optional>

namespace TesselServer::Modern {
namespace {

std::optional<ListingKey> KeyNamed(std::string_view name) {
  for (const ListingKey key : {ListingKey::kName, ListingKey::kSize, ListingKey::kTime}) {
    if (name == NameOf(key)) return key;
  }
  return std::nullopt;
}

std::optional<bool> DirectionNamed(std::string_view name) {
  if (name == "asc") return false;
  if (name == "desc") return true;
  return std::nullopt;
}

// Below 0, 0, above 0.
int Compare(std::int64_t a, std::int64_t b) { return a < b ? -1 : (a > b ? 1 : 0); }

int CompareBy(ListingKey key, const ListedEntry& a, const ListedEntry& b) {
  switch (key) {
    case ListingKey::kName:
      return a.name.compare(b.name);
    case ListingKey::kSize:
      return Compare(a.size, b.size);
    case ListingKey::kTime:
      return Compare(a.modified, b.modified);
  }
  return 0;
}

}  // namespace

std::string_view NameOf(ListingKey key) {
  switch (key) {
    case ListingKey::kName:
      return "name";
    case ListingKey::kSize:
      return "size";
    case ListingKey::kTime:
      return "time";
  }
  return "";
}

ListingOrder ListingOrder::Of(std::string_view query) {
  constexpr std::string_view kSort = "sort=", kOrder = "order=";
  std::optional<ListingKey> key;
  std::optional<bool> isDescending;
  while (!query.empty()) {
    const std::string_view part = query.substr(0, query.find('&'));
    query.remove_prefix(part.size() < query.size() ? part.size() + 1 : part.size());
    if (!key && part.starts_with(kSort)) key = KeyNamed(part.substr(kSort.size()));
    if (!isDescending && part.starts_with(kOrder)) isDescending = DirectionNamed(part.substr(kOrder.size()));
  }
  return {key.value_or(ListingKey::kName), isDescending.value_or(false)};
}

bool ListingOrder::IsBefore(const ListedEntry& a, const ListedEntry& b) const {
  if (a.isFolder != b.isFolder) return a.isFolder;
  const int byKey = CompareBy(key, a, b);
  if (byKey != 0) return isDescending ? byKey > 0 : byKey < 0;
  return a.name < b.name;
}

}  // namespace TesselServer::Modern
