// The header block in front of every answer, and the reason phrases of status codes.
//
// Thread:    any.
// Errors:    none.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TesselServer {

struct HeaderFields {
  std::string_view statusCode;     // decimal text; cut at the first CR or LF
  std::string_view software;       // cut at the first CR or LF
  std::int64_t utcSeconds = 0;     // the moment that the Date line shows
  std::string_view contentType;    // cut at the first CR or LF; blank for no line
  std::string_view extraHeaders;   // whole lines, each with its CR LF; blank for none
  std::int64_t contentLength = 0;  // 0 for no line
  bool endHeader = true;           // whether the blank line follows
};

// The header block of `fields`; see cls_HTTP::BuildHeader.
std::string HeaderText(const HeaderFields& fields);

// The reason phrase of a status code, compared byte for byte; "Undefined Status Code" for one not in the table.
std::string_view ReasonPhrase(std::string_view statusCode);

}  // namespace TesselServer
