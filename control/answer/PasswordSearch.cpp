#include "control/answer/PasswordSearch.h"

#include <algorithm>

#include "platform/world/AsciiCase.h"
#include "support/Text.h"
#include "support/Wipe.h"

namespace TesselServer {

namespace {

constexpr std::string_view kRealmKey = "realm:";

bool EndsLine(char c) { return c == '\r' || c == '\n'; }

}  // namespace

PasswordSearch::PasswordSearch(const std::string& user, const std::string& password) {
  if (user.empty()) return;
  std::string wanted = user + ":" + password;
  const WipeAtEnd wantedGoes(wanted);
  pair_.emplace(wanted);
}

void PasswordSearch::Take(std::string_view stretch) {
  if (pair_ && !holds_) holds_ = pair_->Take(stretch) != kNpos;
  SearchRealm(stretch);
}

void PasswordSearch::SearchRealm(std::string_view stretch) {
  while (!stretch.empty() && line_ != Line::kAfterRealm) {
    const bool mayBeKey = line_ == Line::kStart;
    const auto end = mayBeKey ? stretch.cbegin() : std::find_if(stretch.cbegin(), stretch.cend(), EndsLine);
    const auto length = static_cast<std::size_t>(end - stretch.cbegin());
    if (line_ == Line::kRealm) realm_ += stretch.substr(0, length);
    stretch.remove_prefix(length);
    if (stretch.empty()) return;
    StepInLine(stretch.front());
    stretch.remove_prefix(1);
  }
}

// One byte at the beginning of a line or at its end.
void PasswordSearch::StepInLine(char c) {
  if (EndsLine(c)) {
    line_ = line_ == Line::kRealm ? Line::kAfterRealm : Line::kStart;
    matched_ = 0;
  } else if (LowerAscii(c) == kRealmKey[matched_]) {
    if (++matched_ == kRealmKey.size()) line_ = Line::kRealm;
  } else if (c != ' ' || matched_ > 0) {
    line_ = Line::kOther;
  }
}

std::string PasswordSearch::Realm() const {
  std::string realm(Trim(realm_));
  realm.erase(std::remove_if(realm.begin(), realm.end(), IsControl), realm.end());
  return realm.empty() ? std::string(kDefaultRealm) : realm;
}

}  // namespace TesselServer
