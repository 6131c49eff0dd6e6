#include "http/ValueMap.h"

#include <algorithm>
#include <new>

namespace TesselServer {

std::pair<ValueMap::Value*, bool> ValueMap::Find(std::string_view key) {
  if (map_ == nullptr) map_ = new (memory_.allocate(sizeof(Map), alignof(Map))) Map(&memory_);
  auto place = map_->lower_bound(key);
  if (place != map_->end() && place->first == key) return {&place->second, false};
  char* const copy = static_cast<char*>(memory_.allocate(key.size(), 1));
  std::copy(key.begin(), key.end(), copy);
  place = map_->emplace_hint(place, std::string_view(copy, key.size()), Value());
  return {&place->second, true};
}

}  // namespace TesselServer
