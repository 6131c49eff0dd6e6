#include "control/answer/Authentication.h"

#include <algorithm>
#include <functional>

#include "platform/files/NeighbourFile.h"
#include "platform/world/AsciiCase.h"
#include "support/Text.h"
#include "support/Wipe.h"

namespace TesselServer {

namespace {

constexpr std::string_view kRealmKey = "realm:";

// The passwords that guard a target: none, a text, or a file that admits no client.
struct Passwords {
  enum class State { kNone, kRead, kClosed };
  State state = State::kNone;
  std::string text;

  Passwords() = default;
  Passwords(Passwords&&) = default;
  Passwords& operator=(Passwords&&) = delete;
  ~Passwords() { Wipe(text); }
};

Passwords ReadPasswords(const OpenFile& file) {
  Passwords passwords;
  const bool isRead = file.Kind() == EntryKind::kFile && file.Size() <= kMaxPasswordFileBytes &&
                      file.ReadAll(passwords.text, kMaxPasswordFileBytes);
  passwords.state = isRead ? Passwords::State::kRead : Passwords::State::kClosed;
  return passwords;
}

Passwords PasswordsOfSite(const std::string& path) {
  if (path.empty() || IdentifyPath(path).state == PathIdentity::State::kMissing) return {};
  if (KindOfPath(path) == EntryKind::kDirectory) return {};
  return ReadPasswords(OpenPath(path));
}

Passwords PasswordsOfFolder(const FoundEntry& target, const std::string& folderFile) {
  const NeighbourFile found = FindBeside(target.file, folderFile);
  if (found.state == NeighbourFile::State::kMissing) return {};
  return ReadPasswords(found.file);
}

Passwords PasswordsFor(const FoundEntry& target, const Settings& settings, const std::string& folderFile) {
  switch (settings.AuthenticationSource) {
    case e_AuthSource::GolbalFile:
      return PasswordsOfSite(settings.AuthenticationSourceFile);
    case e_AuthSource::DirectoryFile:
      return PasswordsOfFolder(target, folderFile);
    default:
      return {};
  }
}

}  // namespace

bool HoldsPassword(std::string_view text, const std::string& user, const std::string& password) {
  if (user.empty()) return false;
  const std::string wanted = Lower(user + ":" + password);
  std::string searched = Lower(text);
  const WipeAtEnd searchedGoes(searched);
  // linear whatever the client sends; a plain search is not, where the file repeats itself
  const std::boyer_moore_searcher search(wanted.begin(), wanted.end());
  return std::search(searched.begin(), searched.end(), search) != searched.end();
}

std::string RealmOf(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    const std::string_view line = Trim(text.substr(0, end));
    if (EqualNoCase(line.substr(0, kRealmKey.size()), kRealmKey)) {
      std::string realm(Trim(line.substr(kRealmKey.size())));
      realm.erase(std::remove_if(realm.begin(), realm.end(), IsControl), realm.end());
      return realm.empty() ? std::string(kDefaultRealm) : realm;
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return std::string(kDefaultRealm);
}

Admission AdmissionTo(const FoundEntry& target, const Settings& settings, const std::string& folderFile,
                      const std::string& user, const std::string& password) {
  const Passwords passwords = PasswordsFor(target, settings, folderFile);
  if (passwords.state == Passwords::State::kNone) return {};
  if (passwords.state == Passwords::State::kClosed) return {false, std::string(kDefaultRealm), false};
  const bool holds = HoldsPassword(passwords.text, user, password);
  return {holds, RealmOf(passwords.text), holds};
}

}  // namespace TesselServer
