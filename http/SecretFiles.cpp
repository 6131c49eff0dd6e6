#include "http/SecretFiles.h"

#include "platform/world/AsciiCase.h"
#include "support/PathText.h"

namespace TesselServer {

bool SecretFiles::Contains(const FoundEntry& entry) const {
  if (EqualNoCase(LastComponent(entry.name), folderFile_)) return true;
  if (!entry.readable) return false;
  if (!entry.isOwnName) {  // a link may have led to it
    const std::string canonical = entry.file.CanonicalPath();
    if (canonical.empty() && source_ == e_AuthSource::DirectoryFile) return true;
    if (EqualNoCase(LastComponent(canonical), folderFile_)) return true;
  }
  if (sourceFile_.empty()) return false;
  const PathIdentity passwords = IdentifyPath(sourceFile_);
  if (passwords.state == PathIdentity::State::kUnknown) return true;
  return passwords.state == PathIdentity::State::kFound && passwords.identity == entry.file.Identity();
}

}  // namespace TesselServer
