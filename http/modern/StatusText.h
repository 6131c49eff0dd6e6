// The reason phrases of status codes.
//
// Thread:    any; pure.
// Errors:    none.
#pragma once

#include <string_view>

namespace TesselServer::Modern {

// The phrase that RFC 9110 section 15 or the RFC that brought the code gives it. A code without one has that of the
// first code of its class, as which clients treat it: 299 is "OK", 499 "Bad Request". What is outside 100 to 599 is an
// error of the server.
std::string_view StatusText(int code);

// Whether answers with `code` never have a body: 1xx, 204, 205, 304.
constexpr bool NeverHasBody(int code) { return code < 200 || code == 204 || code == 205 || code == 304; }

}  // namespace TesselServer::Modern
