// Any text as a part of an HTML page in UTF-8.
//
// Thread:    any; pure.
// Ownership: views given are read during the call.
// Errors:    none.
#pragma once

#include <string>
#include <string_view>

namespace TesselServer::Modern {

// Appends `text` to `to` with & < > " ' written as "&amp;" "&lt;" "&gt;" "&quot;" "&#39;", so that it is text between
// tags and within an attribute's quotes of either kind. Other bytes are unchanged.
void AppendHtmlText(std::string& to, std::string_view text);

//   HtmlText("a<b");  // "a&lt;b"
std::string HtmlText(std::string_view text);

// `text` as valid UTF-8: each longest beginning of a character that is broken off, and each byte that can begin none,
// is U+FFFD, as browsers show it (Unicode, "U+FFFD Substitution of Maximal Subparts"). Valid text is unchanged.
//
//   Utf8OrReplacement("a\xFF");  // "a\xEF\xBF\xBD"
std::string Utf8OrReplacement(std::string_view text);

}  // namespace TesselServer::Modern
