#include "http/modern/ContentTypeTable.h"

#include <algorithm>
#include <span>

#include "http/ContentTypes.h"
#include "platform/world/AsciiCase.h"

namespace TesselServer::Modern {
namespace {

constexpr std::size_t kLongestKnownExtension = 25;

// `extension` in lower case, in `room`.
std::string_view LowerInto(std::array<char, kLongestKnownExtension>& room, std::string_view extension) {
  std::transform(extension.begin(), extension.end(), room.begin(), LowerAscii);
  return {room.data(), extension.size()};
}

std::span<const KnownContentType> PartFor(std::string_view lowerExtension) {
  if (lowerExtension < kContentTypesFromM.front().extension) return kContentTypesToL;
  return kContentTypesFromM;
}

}  // namespace

std::string_view KnownTypeOf(std::string_view extension) {
  if (extension.size() > kLongestKnownExtension) return {};
  std::array<char, kLongestKnownExtension> room;
  const std::string_view lower = LowerInto(room, extension);
  const auto part = PartFor(lower);
  const auto found =
      std::lower_bound(part.begin(), part.end(), lower,
                       [](const KnownContentType& known, std::string_view wanted) { return known.extension < wanted; });
  return found != part.end() && found->extension == lower ? found->type : std::string_view();
}

std::string_view TypeOf(const std::vector<std::string>& entries, std::string_view extension) {
  const std::string_view given = FindContentType(entries, extension);
  return given.empty() ? KnownTypeOf(extension) : given;
}

std::string_view ContentEncodingOf(std::string_view extension) {
  return EqualNoCase(extension, "svgz") ? std::string_view("gzip") : std::string_view();
}

}  // namespace TesselServer::Modern
