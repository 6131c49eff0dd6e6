// The names in one folder, found without regard to ASCII case.
//
// Thread:    any.
// Ownership: a value; returned views live as long as it does.
// Errors:    none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer {

//   FolderNames names({"b.htm", "A.htm"});
//   names.FirstEqual("a.HTM");  // "A.htm"
//   names.FirstEqual("c.htm");  // ""
class FolderNames {
 public:
  explicit FolderNames(const std::vector<std::string>& names);

  // The first name in byte order that is equal to `name` without regard to ASCII case, "" when there is none.
  std::string_view FirstEqual(std::string_view name) const;

  // What it keeps in memory.
  std::size_t Bytes() const { return text_.size() + places_.size() * sizeof(Place); }

 private:
  struct Place {
    std::uint32_t begin, length;
  };
  std::string_view At(Place place) const { return std::string_view(text_).substr(place.begin, place.length); }

  std::string text_;           // all names, one after the other
  std::vector<Place> places_;  // by name without regard to case, equal ones in byte order
};

}  // namespace TesselServer
