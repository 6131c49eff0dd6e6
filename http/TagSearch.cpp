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

// The beginning of `text` in which `searched` may begin at `window` places from `from` on.
std::string_view PartWith(std::string_view text, std::string_view searched, std::size_t from, std::size_t window) {
  const std::size_t left = text.size() - from;
  return left < window + searched.size() ? text : text.substr(0, from + window + searched.size() - 1);
}

// `found`, and in `from` where a search goes on that has found nothing in that part.
std::size_t Passed(std::size_t found, std::string_view text, std::string_view part, std::size_t& from,
                   std::size_t window) {
  if (found == std::string_view::npos) from = part.size() == text.size() ? text.size() : from + window;
  return found;
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

std::size_t FindOpenerInWindow(std::string_view text, std::string_view opener, std::size_t& from, std::size_t window) {
  const std::string_view part = PartWith(text, opener, from, window);
  return Passed(FindOpener(part, opener, from), text, part, from, window);
}

std::size_t FindInWindow(std::string_view text, std::string_view searched, std::size_t& from, std::size_t window) {
  const std::string_view part = PartWith(text, searched, from, window);
  return Passed(part.find(searched, from), text, part, from, window);
}

}  // namespace TesselServer
