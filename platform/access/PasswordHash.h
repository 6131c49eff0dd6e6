// Passwords that are kept as hashes, in the forms of crypt(3).
//
//   IsPasswordHash("$6$salt$...");                 // true: it is never the password itself
//   CheckPasswordHash("secret", "$6$salt$...");    // takes some milliseconds up to a second, and is meant to
//
// Thread:    any.
// Ownership: copies of secrets that are made here are overwritten before their memory is given back.
// Errors:    those of memory running out; what cannot be checked is no right password.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace TesselServer {

// A longer password is never right (CRYPT_MAX_PASSPHRASE_SIZE with its end).
inline constexpr std::size_t kMaxHashedPasswordBytes = 511;

// A longer text is no hash: the longest of crypt(3) has 384 bytes with its end.
inline constexpr std::size_t kMaxPasswordHashBytes = 383;

// Whether this was built with crypt(3). Without it no hash can be checked.
bool CanCheckPasswordHashes();

// Whether `text` has the form of a hash: "$", an identifier that hashes have, "$" and more. Also for identifiers that
// this system's crypt(3) does not know, so that a hash can never be used as a password.
bool IsPasswordHash(std::string_view text);

enum class HashCheck {
  kRight,
  kWrong,
  kImpossible,  // the system knows no such hash, or it is damaged
};

// Whether `password` is the one that `hash` was made of. The time does not depend on how much of it is right. Of what
// bcrypt does not look at (its bytes from the 73rd on) there must be none: the beginning of a password is not enough,
// and neither is one with something behind it.
HashCheck CheckPasswordHash(const std::string& password, const std::string& hash);

}  // namespace TesselServer
