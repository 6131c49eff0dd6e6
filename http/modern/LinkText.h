// Paths and queries as parts of links: in the pages that list folders, and in the Location of an answer.
//
// Thread:    any; pure.
// Ownership: views given are read during the call.
// Errors:    none.
#pragma once

#include <string>
#include <string_view>

namespace TesselServer::Modern {

// Appends `path`, any bytes, to `to` so that a client asks for exactly these bytes again: letters, digits and - . _ ~ /
// ! $ ( ) * , ; = @ as they are, every other byte as "%" and two upper-case hexadecimal digits. Among those are ":",
// which would make "a:b" an address of the scheme "a", "&" and "'", which pages write otherwise, "+", which some take
// for a blank, and "\", which browsers take for "/".
void AppendPathText(std::string& to, std::string_view path);

//   PathText("/a b/100%");  // "/a%20b/100%25"
std::string PathText(std::string_view path);

// The value of Location that leads to `path` on the same server: encoded, with exactly one slash in front ("//host/"
// would lead to another server), and with `query` behind a "?" when `hasQuery`. The query was sent by the client; what
// may not be in a link (blanks, controls, quotes, "<", ">", "#", bytes from 0x80) is encoded, percent codes stay.
std::string LocationText(std::string_view path, std::string_view query, bool hasQuery);

}  // namespace TesselServer::Modern
