// Text made fit for a link.
//
// Thread:    any.
// Ownership: the view given is read during the call.
// Errors:    none.
#pragma once

#include <string>
#include <string_view>

namespace TesselServer {

// `text` with every byte but "0"-"9", "A"-"Z" and "a"-"z" as "%" and its number in upper-case hexadecimal; ".", "-",
// "_" and "/" too. A blank is "+" when `spaceAsPlus`, else "%20".
// kept: no leading zero, so a tab is "%9".
//
//   URLEncode("a b/c", false);  // "a%20b%2Fc"
std::string URLEncode(std::string_view text, bool spaceAsPlus);

}  // namespace TesselServer
