// The path of a request's target as the name of a resource: percent codes decoded once, empty and dot segments removed.
//
// Thread:    any.
// Ownership: views given are read during the call.
// Errors:    none; a path that names nothing is kBad.
#pragma once

#include <string>
#include <string_view>

namespace TesselServer::Modern {

enum class PathForm {
  kAsSent,   // the path is what was sent, byte for byte
  kDecoded,  // the path differs from what was sent
  kBad,      // a percent code that is none; an encoded "/", "\" or control character; a path that leads beyond the root
};

// Reads `sent`, a path that begins with "/". Its form kDecoded leaves the path in `decoded`, the others change nothing
// there that counts. A final slash stays, also where a dot segment stood behind it.
//
//   "/a%20b//./c/../"  kDecoded, "/a b/"
//   "/a%2Fb"           kBad: it cannot be told from the two segments "a" and "b"
//   "/a/%2e%2e/../b"   kBad: beyond the root
PathForm ReadPath(std::string_view sent, std::string& decoded);

// Whether a segment of `path`, a path without dot segments, begins with a dot, but for ".well-known" in front of all
// others (RFC 8615).
bool HasHiddenSegment(std::string_view path);

}  // namespace TesselServer::Modern
