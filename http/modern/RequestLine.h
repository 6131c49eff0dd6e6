// The first line of a request and the forms of its target (RFC 9112 3).
//
// Thread:    any.
// Ownership: the views returned look into the view that was given.
// Errors:    none; a line or target that is refused has a status.
#pragma once

#include <string_view>

namespace TesselServer::Modern {

struct RequestLine {
  int refusal = 0;          // 400 or 505 where the line is refused; then only the method counts
  std::string_view method;  // empty where the line does not begin with one
  std::string_view target;
  int minorVersion = 0;  // 0 or 1; a later version of HTTP/1 is read as 1.1
};

// Takes the line apart: a token, one blank, the target, one blank, "HTTP/1." and a digit. `line` comes without its end.
RequestLine ParseRequestLine(std::string_view line);

struct RequestTarget {
  bool isValid = false;        // false: the request is refused with 400
  bool isAsterisk = false;     // the server itself is meant, not a resource of it
  std::string_view authority;  // as the target names it: of an absolute form, and of CONNECT. Empty: none named
  std::string_view path;       // as sent; empty of an asterisk, of CONNECT, and where an absolute form has none
  std::string_view query;      // as sent, without "?"
  bool hasQuery = false;
};

// Reads `target` as `method` allows: a path; an absolute form with the scheme http; "*" for OPTIONS; host and port for
// CONNECT. `isValid` does not say whether the path can be decoded.
RequestTarget ParseTarget(std::string_view method, std::string_view target);

}  // namespace TesselServer::Modern
