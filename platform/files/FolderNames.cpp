#include "platform/files/FolderNames.h"

#include <algorithm>

#include "platform/world/AsciiCase.h"

namespace TesselServer {
namespace {

int CompareNoCase(std::string_view a, std::string_view b) {
  const std::size_t shorter = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < shorter; ++i) {
    const auto one = static_cast<unsigned char>(UpperAscii(a[i]));
    const auto other = static_cast<unsigned char>(UpperAscii(b[i]));
    if (one != other) return one < other ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

}  // namespace

FolderNames::FolderNames(const std::vector<std::string>& names) {
  std::size_t length = 0;
  for (const std::string& name : names) length += name.size();
  text_.reserve(length);
  places_.reserve(names.size());
  for (const std::string& name : names) {
    places_.push_back({static_cast<std::uint32_t>(text_.size()), static_cast<std::uint32_t>(name.size())});
    text_ += name;
  }
  std::sort(places_.begin(), places_.end(), [this](Place a, Place b) {
    const int order = CompareNoCase(At(a), At(b));
    return order != 0 ? order < 0 : At(a) < At(b);
  });
}

std::string_view FolderNames::FirstEqual(std::string_view name) const {
  const auto place =
      std::lower_bound(places_.begin(), places_.end(), name,
                       [this](Place each, std::string_view wanted) { return CompareNoCase(At(each), wanted) < 0; });
  return place != places_.end() && EqualNoCase(At(*place), name) ? At(*place) : std::string_view();
}

}  // namespace TesselServer
