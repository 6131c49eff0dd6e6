// Values of header fields that are made from settings.
//
// Thread:    any; pure.
// Ownership: views given are read during the call.
// Errors:    none; what may not be in a field is left out.
#pragma once

#include <string>
#include <string_view>

namespace TesselServer::Modern {

// Whether "; charset=" belongs behind the content type `type`: it is a text ("text/...") that says no charset itself.
bool TakesCharset(std::string_view type);

// `type`, with `charset` where it belongs there; one that is no token (RFC 9110 section 8.3.2) or "" adds nothing.
//
//   WithCharset("text/css", "utf-8");                   // "text/css; charset=utf-8"
//   WithCharset("image/png", "utf-8");                  // "image/png"
//   WithCharset("text/plain;charset=latin1", "utf-8");  // as it is
std::string WithCharset(std::string_view type, std::string_view charset);

// `text` as a quoted string (RFC 9110 section 5.6.4): quotes and backslashes behind a backslash, controls but tabs left
// out, all other bytes as they are.
std::string QuotedString(std::string_view text);

// The value of WWW-Authenticate that asks for the passwords of `realm` (RFC 7617).
//
//   BasicChallenge("Den");  // Basic realm="Den", charset="UTF-8"
std::string BasicChallenge(std::string_view realm);

}  // namespace TesselServer::Modern
