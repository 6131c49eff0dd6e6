// The search through a password file for the client of a request, as its text comes, stretch by stretch.
//
//   realm: Members
//   ann:secret
//   bob:$6$salt$...
//
// Each line is one of three, whole and exactly, ended by LF, CR LF or the end of the text:
//   realm:NAME       the name of what is guarded; the first one counts, and none of them is a user
//   user:password    the first colon ends the name; an empty password lets no client in
//   user:hash        what IsPasswordHash says is one: it is no password itself
//
// Every line is looked at in the same way, right or not, and compared in a time that depends on the file alone.
//
// Thread:    one.
// Ownership: keeps what it needs of the text; secrets are overwritten before their memory is given back.
// Errors:    none but those of memory running out.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/access/PasswordHash.h"

namespace TesselServer::Modern {

// The realm of a password file that names none, or that cannot be read.
inline constexpr std::string_view kUnnamedRealm = "Tessel";

class PasswordFile {
 public:
  // As much of the text as is searched in some 50 us.
  static constexpr std::size_t kStretchBytes = 16 * 1024;
  // A longer line is no user, for no request has room for such a name and password; of a longer realm the beginning
  // counts.
  static constexpr std::size_t kMaxLineBytes = 8192;
  // So many hashes of one user are looked at: each costs as much as a password is meant to cost.
  static constexpr std::size_t kMaxHashes = 4;

  // With an empty `user` or `password` no line is right.
  PasswordFile(std::string_view user, std::string_view password);
  PasswordFile(const PasswordFile&) = delete;
  PasswordFile& operator=(const PasswordFile&) = delete;
  ~PasswordFile();

  // The next bytes of the text, and its end.
  void Take(std::string_view stretch);
  void End();

  // Whether a line is the user with the password itself.
  bool Holds() const { return holds_; }

  // The hashes to be checked, once Holds is known to be False: those of the user, `areOfUser`; where there are none,
  // one of another user, so that the time does not say which users there are. Empty where no password can be right.
  struct Hashes {
    std::array<std::string, kMaxHashes> texts;
    std::size_t count = 0;
    bool areOfUser = false;
  };
  Hashes ToCheck() const;

  // Trimmed and without control characters; kUnnamedRealm when that is nothing.
  std::string Realm() const;

 private:
  void TakePiece(std::string_view piece);
  void TakeLine(std::string_view line);
  void TakeHash(std::string_view user, std::string_view hash);

  std::string user_;
  std::string pair_;  // "user:password", "" where no line is right
  std::string line_;  // what has come of a line that is not over, at most kMaxLineBytes and one more
  bool isFirstLine_ = true;
  bool holds_ = false;
  bool hasRealm_ = false;
  std::string realm_;
  std::array<std::string, kMaxHashes + 1> hashes_;  // the user's; the next one is the latest of anybody
  std::size_t hashCount_ = 0;
  std::string anyHash_;  // the first in the file, of any user
};

}  // namespace TesselServer::Modern
