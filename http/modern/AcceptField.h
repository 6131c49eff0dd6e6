// Which form of an answer a client likes best (RFC 9110 section 12.5.1).
//
// Thread:    any; pure.
// Ownership: views given are read during the call.
// Errors:    none; an element that cannot be read counts as not there.
#pragma once

#include <string_view>

namespace TesselServer::Modern {

// Whether a client that sent `accept`, all its Accept fields joined, "" for none, likes "application/json" more than
// "text/html". Where it likes them equally, or takes neither, it does not. Of the ranges that a type is in the most
// specific one counts.
//
//   PrefersJson("application/json");                // true
//   PrefersJson("text/html, application/json");     // false: equally
//   PrefersJson("*/*, text/html;q=0.5");            // true: JSON by "*/*", with 1
bool PrefersJson(std::string_view accept);

}  // namespace TesselServer::Modern
