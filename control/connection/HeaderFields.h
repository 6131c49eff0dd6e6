// Reads the header fields of a request that the server knows. They are looked for as plain text in everything that
// came with the request's start, as this server has always done it: no line is taken apart, and the case rules differ
// from field to field.
//
// Thread:    any; pure text in, values out.
// Errors:    none; a field that is missing or unusable is "".
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "control/connection/RequestFields.h"

namespace TesselServer {

// Base64 credentials longer than this are not decoded: the request carries none.
inline constexpr std::size_t kMaxCredentialBytes = 8 * 1024;

// Fills RequestHeader, RequestAccept, RequestReferer, RequestUserAgent, RequestContentType, AuthUser, AuthPassword and
// ExpectsContinue from `text`, the start of a request without blanks around it, whose first CR LF CR LF is at
// `blankLine` (npos for none). A value goes to the next CR LF or to the end of the text, without the blanks around it;
// one that holds a NUL is dropped, since a later reader could take the part before it for the whole. Costs one pass
// over the text and one for each value.
//
// Returns the announced length, the number at the first "Content-Length:", in any case: its leading decimal digits,
// what follows them is ignored. A number too large for the type is its largest. Nothing when there is no such
// field or its value does not begin with a digit.
//
// kept: "referer:" and "accept:" are found in any case and anywhere, "X-Accept:" included; "User-Agent:",
// "Authorization:" and "Basic" only in that spelling.
//
// kept: the values of all "accept:" are joined with ", ", but the search for the next field starts as many bytes after
// the position of the last one as have been collected so far (each value with its ", "), not at the end of its line. A
// field that begins within these bytes is skipped.
//
//   "Accept: a\r\nAccept: b\r\nAccept: c\r\n\r\n"            -> "a, b, c"
//   "Accept: text/plain\r\nAccept: a/b\r\nAccept: c/d\r\n"   -> "text/plain, a/b": 17 after the second is past the
//   third
std::optional<std::int64_t> ReadHeaderFields(std::string_view text, std::size_t blankLine, RequestFields& fields);

}  // namespace TesselServer
