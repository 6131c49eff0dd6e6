#include "control/internal/Authentication.h"

#include <algorithm>
#include <optional>

#include "support/PathText.h"
#include "support/Text.h"

namespace TesselServer {

namespace {

constexpr std::string_view kRealmKey = "realm:";

// The password file that guards the target, "" for none. Nothing when that cannot be told.
std::optional<std::string> PasswordFileFor(const FoundEntry& target, const Settings& settings,
                                           const std::string& folderFile) {
  switch (settings.AuthenticationSource) {
    case e_AuthSource::GolbalFile:
      return settings.AuthenticationSourceFile;
    case e_AuthSource::DirectoryFile: {
      const std::string path = target.file.CanonicalPath();
      if (path.empty()) return std::nullopt;
      return (target.kind == EntryKind::kDirectory ? path + "/" : std::string(FolderOf(path))) + folderFile;
    }
    default:
      return "";
  }
}

bool IsThere(const std::string& path) {
  if (path.empty() || IdentifyPath(path).state == PathIdentity::State::kMissing) return false;
  return KindOfPath(path) != EntryKind::kDirectory;
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

}  // namespace

bool HoldsPassword(std::string_view text, const std::string& user, const std::string& password) {
  return !user.empty() && FindNoCase(text, user + ":" + password) != std::string_view::npos;
}

std::string RealmOf(std::string_view text) {
  const std::size_t key = FindNoCase(text, kRealmKey);
  if (key == std::string_view::npos) return std::string(kDefaultRealm);
  const std::string_view behind = text.substr(key + kRealmKey.size());
  std::string realm(Trim(behind.substr(0, behind.find_first_of("\r\n"))));
  realm.erase(std::remove_if(realm.begin(), realm.end(), IsControl), realm.end());
  return realm.empty() ? std::string(kDefaultRealm) : realm;
}

Admission AdmissionTo(const FoundEntry& target, const Settings& settings, const std::string& folderFile,
                      const std::string& user, const std::string& password) {
  const std::optional<std::string> path = PasswordFileFor(target, settings, folderFile);
  if (!path) return {false, std::string(kDefaultRealm)};
  if (!IsThere(*path)) return {};
  const OpenFile file = OpenPath(*path);
  std::string text;
  const bool isRead = file.Kind() == EntryKind::kFile && file.ReadAll(text, kMaxPasswordFileBytes);
  if (!isRead) text.clear();
  return {isRead && HoldsPassword(text, user, password), RealmOf(text)};
}

}  // namespace TesselServer
