#include "http/SecretFiles.h"

#include "platform/world/AsciiCase.h"
#include "support/PathText.h"

namespace TesselServer {
namespace {

bool IsOrMayBe(const PathIdentity& passwords, const FileIdentity& entry) {
  if (passwords.state == PathIdentity::State::kUnknown) return true;
  return passwords.state == PathIdentity::State::kFound && passwords.identity == entry;
}

}  // namespace

// Nothing where it depends on which file the control's own is.
std::optional<bool> SecretFiles::ContainsByName(const FoundEntry& entry) const {
  if (EqualNoCase(LastComponent(entry.name), folderFile_)) return true;
  if (!entry.readable) return false;
  if (!entry.isOwnName) {  // a link may have led to it
    const std::string canonical = entry.file.CanonicalPath();
    if (canonical.empty() && source_ == e_AuthSource::DirectoryFile) return true;
    if (EqualNoCase(LastComponent(canonical), folderFile_)) return true;
  }
  return sourceFile_.empty() ? std::optional(false) : std::nullopt;
}

std::optional<bool> SecretFiles::ContainsAtOnce(const FoundEntry& entry) const {
  if (const auto contains = ContainsByName(entry)) return contains;
  const auto passwords = IdentifyAtOnce(sourceFile_);
  return passwords ? std::optional(IsOrMayBe(*passwords, entry.file.Identity())) : std::nullopt;
}

Task<bool> SecretFiles::ContainsInTurns(const FoundEntry& entry, Turns* turns) const {
  if (const auto contains = ContainsByName(entry)) co_return *contains;
  auto identified = IdentifyInTurns(sourceFile_, turns);
  const PathIdentity passwords = co_await identified;
  co_return IsOrMayBe(passwords, entry.file.Identity());
}

}  // namespace TesselServer
