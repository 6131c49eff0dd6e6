// Reads the request line of a request: which resource it names.
//
// Thread:    any; pure text in, fields out.
// Errors:    none; a line that names no resource leaves the path fields empty.
#pragma once

#include <string_view>

#include "control/connection/RequestFields.h"

namespace TesselServer {

// Fills RequestLine, DocumentURI, RequestPath and RequestQuery from `text`, which begins with a request line. The line
// ends at the first CR LF, bare CR or bare LF, or where the text ends. The URL is the text between the line's first
// blank and its next one, so a line with two blanks after its method names the URL "". Nothing is percent-decoded.
//
//   "GET /docs/a.htm?x=1 HTTP/1.0"     -> "/docs/a.htm", "docs/a.htm", "x=1"
//   "GET http://host:80/a.htm"         -> "/a.htm", "a.htm", ""
//   "GET HTTPS://host?x=1 HTTP/1.0"    -> "/", "/", "x=1"
//   "GET  HTTP/1.0"                    -> "", "", ""
void ReadRequestLine(std::string_view text, RequestFields& fields);

}  // namespace TesselServer
