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

// Whether a tag of the server's may begin anywhere in `text`. One that has none stays as it is.
inline bool HoldsTags(std::string_view text) {
  return FindOpener(text, kDirectiveStart) != std::string_view::npos ||
         FindOpener(text, kScriptStart) != std::string_view::npos;
}

}  // namespace TesselServer
