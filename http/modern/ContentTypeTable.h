// Content types by file extension. The table was made once from the public domain list of the Debian package
// media-types 10.0.0 (its first type where it has several for an extension, without extensions of more than one part).
// Beyond that it has what browsers and servers use and that list lacks (.cjs .log .map .weba .yaml ...), what this
// library always knew, and three other types: .mid audio/midi, .rss application/rss+xml, and .ts video/mp2t, which
// players need.
//
// Thread:    any.
// Ownership: views into the table, or into the entries of the caller.
// Errors:    none; what is not found is "".
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer::Modern {

struct KnownContentType {
  std::string_view extension;  // lower case, without its dot
  std::string_view type;
};

// The table, sorted by extension, in two parts: up to "l...", and from "m..." on.
inline constexpr std::size_t kTypesToL = 674;
inline constexpr std::size_t kTypesFromM = 930;
extern const std::array<KnownContentType, kTypesToL> kContentTypesToL;
extern const std::array<KnownContentType, kTypesFromM> kContentTypesFromM;

// The type of the table for `extension`, without its dot and in any case.
//
//   KnownTypeOf("HTML");  // "text/html"
//   KnownTypeOf("");      // ""
std::string_view KnownTypeOf(std::string_view extension);

// The same, but where `entries` (the lines "extension,type" of a host's file) names one, it wins.
std::string_view TypeOf(const std::vector<std::string>& entries, std::string_view extension);

// How files with this extension are packed, for Content-Encoding: "gzip" of "svgz", whose type is that of what is in
// it. Others are sent as what they are: who loads "a.tar.gz" wants a packed file.
std::string_view ContentEncodingOf(std::string_view extension);

}  // namespace TesselServer::Modern
