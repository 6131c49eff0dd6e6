#include "http/TagSearch.h"

#include <cstring>

#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

TagKind Next(TagKind kind) { return static_cast<TagKind>(static_cast<unsigned>(kind) + 1); }

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

// In the order of TagKind.
constexpr std::string_view kOpeners[] = {
    "<!--#echovar=", "<!--#includefile=", "<!--#includevirtual=", "<!--#include=", "<!--#execcmd=",
    "<!--#execcgi=", "<%=Function",       kDirectiveStart,        kScriptStart};
constexpr std::size_t kWorkOfAKind = 16;  // to tell its kind, beside the bytes that are looked at; see Pace

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

std::string_view OpenerOf(TagKind kind) { return kOpeners[static_cast<unsigned>(kind)]; }

std::size_t TagScan::Step() {
  if (opener_.empty()) return 0;
  const std::size_t begin = from_;
  const std::size_t place = FindOpenerInWindow(text_, opener_, from_);
  if (place != std::string_view::npos) {
    Add(text_.substr(place));
    from_ = place + opener_.size();
  }
  const std::size_t looked = from_ - begin + (place == std::string_view::npos ? 1 : kWorkOfAKind);
  if (from_ == text_.size()) {
    opener_ = opener_ == kDirectiveStart ? kScriptStart : std::string_view();
    from_ = 0;
  }
  return looked;
}

// `tag` is that tag and what follows it.
void TagScan::Add(std::string_view tag) {
  const bool isDirective = opener_ == kDirectiveStart;
  kinds_.Add(isDirective ? TagKind::kDirective : TagKind::kScript);
  tag.remove_prefix(opener_.size());
  if (tag.empty()) return;
  const char first = LowerAscii(tag.front());
  const TagKind end = isDirective ? TagKind::kFunction : TagKind::kDirective;
  for (TagKind kind = isDirective ? TagKind::kEcho : TagKind::kFunction; kind != end; kind = Next(kind)) {
    const std::string_view rest = OpenerOf(kind).substr(opener_.size());
    if (rest.front() == first && !kinds_.Has(kind) && EqualNoCase(tag.substr(0, rest.size()), rest)) kinds_.Add(kind);
  }
}

}  // namespace TesselServer
