// The authority of a request: the name of a host and a port, as the field Host and the targets of requests have it
// (RFC 9110 7.2, RFC 3986 3.2).
//
// Thread:    any.
// Ownership: views given are read during the call.
// Errors:    none.
#pragma once

#include <string_view>

namespace TesselServer::Modern {

// Whether `text` is a host, with or without a port: "example.com", "example.com:", "127.0.0.1:80", "[::1]:8080". The
// host is not empty, a port at most 65535. Not valid are user names, blanks, addresses of a later version than IPv6 in
// brackets, and a comma, though names may have it: a list of two hosts can be understood as either.
bool IsAuthority(std::string_view text);

// The same, with a port.
bool IsAuthorityWithPort(std::string_view text);

}  // namespace TesselServer::Modern
