// Brings the tags of a page into the compact form that the processors look for.
//
// Thread:    any.
// Errors:    none.
#pragma once

#include <string>

namespace TesselServer {

// `page` without the blanks and double quotes between an opener and the next ">": first for every "<!--#",
// then for every "<%". An opener with no ">" after it ends the work for its kind.
// kept: blanks within names inside such tags are lost too.
//
//   NormaliseTags("<!--#include file = \"a b.htm\" -->");  // "<!--#includefile=ab.htm-->"
std::string NormaliseTags(std::string page);

}  // namespace TesselServer
