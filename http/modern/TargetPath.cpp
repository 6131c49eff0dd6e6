#include "http/modern/TargetPath.h"

#include <algorithm>

#include "http/modern/ByteClasses.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

// Whether nothing in `sent` can be an escape, an empty segment or a dot segment.
bool IsPlainPath(std::string_view sent) {
  for (std::size_t i = 0; i < sent.size(); ++i) {
    if (sent[i] == '%') return false;
    if (sent[i] == '/' && i + 1 < sent.size() && (sent[i + 1] == '/' || sent[i + 1] == '.')) return false;
  }
  return true;
}

// Puts `sent` into `decoded` with its percent codes decoded. False where one is not valid, or means a byte that no name
// may have.
bool DecodePath(std::string_view sent, std::string& decoded) {
  decoded.clear();
  for (std::size_t i = 0; i < sent.size(); ++i) {
    if (sent[i] != '%') {
      decoded += sent[i];
      continue;
    }
    if (sent.size() - i < 3) return false;
    const int high = HexValue(sent[i + 1]), low = HexValue(sent[i + 2]);
    if (high < 0 || low < 0) return false;
    const char byte = static_cast<char>(static_cast<unsigned char>(high * 16 + low));
    if (IsControl(byte) || byte == '/' || byte == '\\') return false;
    decoded += byte;
    i += 2;
  }
  return true;
}

// Removes empty and dot segments in place. False where the path leads beyond the root.
bool RemoveDotSegments(std::string& path) {
  std::size_t kept = 0;  // the front of the path that is done: nothing, or segments with a slash before each
  bool endsWithSlash = false;
  for (std::size_t begin = 0; begin < path.size();) {  // begin: a slash
    const std::size_t end = std::min(path.find('/', begin + 1), path.size());
    const std::string_view segment(path.data() + begin + 1, end - begin - 1);
    endsWithSlash = segment.empty() || segment == "." || segment == "..";
    if (segment == "..") {
      if (kept == 0) return false;
      kept = path.rfind('/', kept - 1);
    } else if (!endsWithSlash) {
      std::copy(path.begin() + static_cast<std::ptrdiff_t>(begin), path.begin() + static_cast<std::ptrdiff_t>(end),
                path.begin() + static_cast<std::ptrdiff_t>(kept));
      kept += end - begin;
    }
    begin = end;
  }
  path.resize(kept);
  if (endsWithSlash) path += '/';
  return true;
}

}  // namespace

PathForm ReadPath(std::string_view sent, std::string& decoded) {
  if (IsPlainPath(sent)) return PathForm::kAsSent;
  return DecodePath(sent, decoded) && RemoveDotSegments(decoded) ? PathForm::kDecoded : PathForm::kBad;
}

bool HasHiddenSegment(std::string_view path) {
  constexpr std::string_view kWellKnown = "/.well-known";
  const auto rest = path.substr(std::min(path.size(), kWellKnown.size()));
  if (path.starts_with(kWellKnown) && (rest.empty() || rest.front() == '/')) path = rest;
  return path.find("/.") != kNpos;
}

}  // namespace TesselServer::Modern
