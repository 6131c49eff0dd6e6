// The values that a pass over a page has found, by their keys. It goes away at once, however many there are.
//
// Thread:    any.
// Ownership: copies the keys; the values belong to others.
// Errors:    none but those of memory running out.
#pragma once

#include <map>
#include <memory_resource>
#include <optional>
#include <string_view>
#include <utility>

namespace TesselServer {

class ValueMap {
 public:
  using Value = std::optional<std::string_view>;  // nothing: there is none

  ValueMap() = default;
  ValueMap(const ValueMap&) = delete;
  ValueMap& operator=(const ValueMap&) = delete;

  // The place of the key's value, where it stays, and whether it is a new one.
  std::pair<Value*, bool> Find(std::string_view key);

 private:
  using Map = std::pmr::map<std::string_view, Value>;

  static constexpr std::size_t kFirstBlockBytes = 512;  // for a handful

  std::pmr::monotonic_buffer_resource memory_{kFirstBlockBytes};
  Map* map_ = nullptr;  // in that memory, and gone with it: nothing in it needs to be destroyed
};

}  // namespace TesselServer
