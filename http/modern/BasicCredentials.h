// The name and the password of a request (RFC 7617).
//
// Thread:    any.
// Ownership: values.
// Errors:    none; what cannot be read is no name.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace TesselServer::Modern {

// A longer field is not read; no person types more.
inline constexpr std::size_t kMaxCredentialsText = 8192;

struct BasicCredentials {
  std::string user;  // "" for none: there is no password then
  std::string password;
};

// Reads the value of an Authorization field: "Basic" in any case, and Base64 of "user:password" (RFC 4648, with its
// padding or without). The first colon ends the name. None: another scheme, what is not Base64, no colon, an empty
// name, a control character in either, a value above kMaxCredentialsText.
BasicCredentials ReadBasicCredentials(std::string_view value);

}  // namespace TesselServer::Modern
