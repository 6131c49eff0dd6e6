// Finds where the server's tags begin in a text.
//
// Thread:    any.
// Errors:    none.
#pragma once

#include <cstddef>
#include <string_view>

namespace TesselServer {

// How all tags begin, byte for byte.
inline constexpr std::string_view kDirectiveStart = "<!--#";
inline constexpr std::string_view kScriptStart = "<%";

// The first position at or after `from` where `text` has `opener`, ASCII letters being equal in either case; npos when
// there is none. The same as FindNoCase, but made for HTML, where "<" is frequent and "#" and "%" are rare: it looks
// for the first of these two in the opener.
std::size_t FindOpener(std::string_view text, std::string_view opener, std::size_t from = 0);

// How many bytes a search looks at in one go where others wait for their turn: 40 us in a page of nothing but "%".
inline constexpr std::size_t kSearchWindow = 8192;

// One step of such a search: looks at the places from `from` on for about `window` bytes, which `from` then has left
// behind. npos: none of them begins `opener`; there is none at all when `from` has come to the end of `text`.
std::size_t FindOpenerInWindow(std::string_view text, std::string_view opener, std::size_t& from,
                               std::size_t window = kSearchWindow);

// The same for any text, byte for byte.
std::size_t FindInWindow(std::string_view text, std::string_view searched, std::size_t& from, std::size_t window);

// Whether a tag of the server's may begin anywhere in `text`. One that has none stays as it is.
inline bool HoldsTags(std::string_view text) {
  return FindOpener(text, kDirectiveStart) != std::string_view::npos ||
         FindOpener(text, kScriptStart) != std::string_view::npos;
}

}  // namespace TesselServer
