#include "http/TagSearch.h"

#include <cstring>

#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

// The place of the first byte that is rare in HTML; the opener's length when it has none.
std::size_t AnchorOf(std::string_view opener) {
  std::size_t at = 0;
  while (at < opener.size() && opener[at] != '#' && opener[at] != '%') ++at;
  return at;
}

}  // namespace

std::size_t FindOpener(std::string_view text, std::string_view opener, std::size_t from) {
  const std::size_t anchor = AnchorOf(opener);
  if (anchor == opener.size()) return FindNoCase(text, opener, from);
  if (from > text.size() || opener.size() > text.size() - from) return std::string_view::npos;
  const char* at = text.data() + from + anchor;
  const char* const end = text.data() + text.size() - opener.size() + anchor + 1;  // one past the last possible place
  while (at < end) {
    at = static_cast<const char*>(std::memchr(at, opener[anchor], static_cast<std::size_t>(end - at)));
    if (at == nullptr) break;
    if (EqualNoCase({at - anchor, opener.size()}, opener)) return static_cast<std::size_t>(at - anchor - text.data());
    ++at;
  }
  return std::string_view::npos;
}

}  // namespace TesselServer
