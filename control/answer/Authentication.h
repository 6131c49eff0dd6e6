// Whether the client of a request may see what was found for it.
//
// Thread:    the host's thread.
// Ownership: values only. The target that a task is about outlives it.
// Errors:    the socket errors 10024 and 10055 when the process has run out of descriptors or memory. A password file
//            that cannot be read, or whose existence cannot be determined, admits no client.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "control/life/Settings.h"
#include "platform/files/FileSystem.h"
#include "platform/tasks/Turns.h"

namespace TesselServer {

// What a request has to do with a password file.
struct Admission {
  bool granted = true;
  std::string realm;        // the realm named in the 401 answer
  bool byPassword = false;  // it was asked for a password, and knew one
};

// A password file longer than this admits no client: it is read for every request, and real ones are far smaller.
inline constexpr std::int64_t kMaxPasswordFileBytes = 16 * 1024 * 1024;

// Which password file guards a target.
struct PasswordSource {
  e_AuthSource source = e_AuthSource::GolbalFile;
  std::string siteFile;    // for GolbalFile: its path, "" for none
  std::string folderFile;  // for DirectoryFile: its name in the folder in which the target really lies
};

// Whether there is a password file to look for. Where there is none every client is admitted, and with the sources
// LocalACL and DomainACL too.
inline bool MayGuard(e_AuthSource source, const std::string& siteFile) {
  return source == e_AuthSource::DirectoryFile || (source == e_AuthSource::GolbalFile && !siteFile.empty());
}

// Decides on `target` by the password file of the source. The file is read anew each time. Where there is no such file
// every client is admitted.
Task<Admission> AdmissionTo(const FoundEntry& target, PasswordSource source, std::string user, std::string password,
                            Turns* turns);

}  // namespace TesselServer
