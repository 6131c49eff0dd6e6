// The search through a password file for one user and for the realm, as its text comes, stretch by stretch.
//
//   PasswordSearch search("ann", "secret");
//   search.Take("realm: Mem");
//   search.Take("bers\nann:sec");
//   search.Take("ret\n");
//   search.Holds();                          // true
//   search.Realm();                          // "Members"
//
// Thread:    one.
// Ownership: keeps what it needs; the pair is overwritten before its memory is given back. Of the text only the realm
//            is kept.
// Errors:    none but those of memory running out.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "support/NoCaseSearch.h"

namespace TesselServer {

// The realm of a password file that names none.
inline constexpr std::string_view kDefaultRealm = "Tessel";

class PasswordSearch {
 public:
  // As much of the text as is searched in some 50 us.
  static constexpr std::size_t kStretchBytes = 16 * 1024;

  PasswordSearch(const std::string& user, const std::string& password);
  PasswordSearch(const PasswordSearch&) = delete;
  PasswordSearch& operator=(const PasswordSearch&) = delete;

  // The next bytes of the text.
  void Take(std::string_view stretch);

  // Whether the user and the password open a file with the text so far; never where there is no user.
  // kept: "user:password" may be anywhere in it, also as a part of a longer entry, in any case.
  bool Holds() const { return holds_; }

  // What follows "realm:" (any case) on the first line that begins with it, after blanks or none, trimmed and without
  // control characters; kDefaultRealm when that is nothing.
  std::string Realm() const;

 private:
  enum class Line { kStart, kOther, kRealm, kAfterRealm };

  void SearchRealm(std::string_view stretch);
  void StepInLine(char c);

  std::optional<NoCaseSearch> pair_;  // "user:password"; none without a user
  bool holds_ = false;
  Line line_ = Line::kStart;
  std::size_t matched_ = 0;  // how much of the realm's key the line has begun with
  std::string realm_;        // the rest of its line
};

}  // namespace TesselServer
