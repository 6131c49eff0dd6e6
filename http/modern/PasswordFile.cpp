#include "http/modern/PasswordFile.h"

#include <algorithm>
#include <utility>

#include "platform/world/AsciiCase.h"
#include "support/ConstantTime.h"
#include "support/Text.h"
#include "support/Wipe.h"

namespace TesselServer::Modern {
namespace {

constexpr std::string_view kRealmKey = "realm:";

// What an editor puts in front of a text in UTF-8; it is no part of a name.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The text behind "realm:" of a line that begins with it, in any case, after blanks or none; null where it does not.
std::string_view RealmIn(std::string_view line) {
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  if (!EqualNoCase(line.substr(0, kRealmKey.size()), kRealmKey)) return {};
  return line.substr(kRealmKey.size());
}

}  // namespace

PasswordFile::PasswordFile(std::string_view user, std::string_view password) {
  if (user.empty() || password.empty()) return;
  user_ = user;
  pair_.reserve(user.size() + 1 + password.size());
  pair_.append(user).append(":").append(password);
  for (std::string& hash : hashes_) hash.reserve(kMaxPasswordHashBytes);
}

PasswordFile::~PasswordFile() {
  for (std::string* secret : {&pair_, &line_, &anyHash_}) Wipe(*secret);
  for (std::string& hash : hashes_) Wipe(hash);
}

void PasswordFile::Take(std::string_view stretch) {
  for (;;) {
    const std::size_t end = stretch.find('\n');
    const std::string_view piece = stretch.substr(0, end);
    if (end == std::string_view::npos) return TakePiece(piece);
    if (line_.empty()) {
      TakeLine(piece);
    } else {
      TakePiece(piece);
      TakeLine(line_);
      line_.clear();
    }
    stretch.remove_prefix(end + 1);
  }
}

// One byte more than a line may have says that it is too long.
void PasswordFile::TakePiece(std::string_view piece) {
  if (piece.empty()) return;
  if (line_.capacity() <= kMaxLineBytes) line_.reserve(kMaxLineBytes + 1);  // a copy would be left behind otherwise
  line_.append(piece.substr(0, kMaxLineBytes + 1 - line_.size()));
}

void PasswordFile::End() {
  if (!line_.empty()) TakeLine(line_);
  Wipe(line_);
}

void PasswordFile::TakeLine(std::string_view line) {
  if (std::exchange(isFirstLine_, false) && line.starts_with(kByteOrderMark)) {
    line.remove_prefix(kByteOrderMark.size());
  }
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (const std::string_view realm = RealmIn(line); realm.data() != nullptr) {
    if (!hasRealm_) realm_ = realm.substr(0, kMaxLineBytes);
    hasRealm_ = true;
    return;
  }
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || line.size() > kMaxLineBytes || pair_.empty()) return;
  const std::string_view password = line.substr(colon + 1);
  if (IsPasswordHash(password)) return TakeHash(line.substr(0, colon), password);
  holds_ |= EqualInConstantTime(line, pair_);
}

// Every user's is copied, into the place behind the last one that is kept.
void PasswordFile::TakeHash(std::string_view user, std::string_view hash) {
  if (hash.size() > kMaxPasswordHashBytes) return;
  if (anyHash_.empty()) anyHash_ = hash;
  hashes_[hashCount_] = hash;
  const bool isKept = EqualInConstantTime(user, user_) && hashCount_ < kMaxHashes;
  hashCount_ += isKept ? 1 : 0;
}

PasswordFile::Hashes PasswordFile::ToCheck() const {
  Hashes found;
  found.areOfUser = hashCount_ != 0;
  found.count = hashCount_;
  std::copy_n(hashes_.begin(), hashCount_, found.texts.begin());
  if (hashCount_ == 0 && !anyHash_.empty()) found.texts[found.count++] = anyHash_;
  return found;
}

std::string PasswordFile::Realm() const {
  std::string realm(Trim(realm_));
  std::erase_if(realm, IsControl);
  return realm.empty() ? std::string(kUnnamedRealm) : realm;
}

}  // namespace TesselServer::Modern
