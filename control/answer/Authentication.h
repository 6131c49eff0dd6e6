// Whether the client of a request may see what was found for it.
//
// Thread:    the host's thread.
// Ownership: values only.
// Errors:    the socket errors 10024 and 10055 when the process has run out of descriptors or memory. A password file
//            that cannot be read, or whose existence cannot be determined, admits no client.
#pragma once

#include <string>
#include <string_view>

#include "control/life/Settings.h"
#include "platform/files/FileSystem.h"

namespace TesselServer {

// What a request has to do with a password file.
struct Admission {
  bool granted = true;
  std::string realm;        // the realm named in the 401 answer
  bool byPassword = false;  // it was asked for a password, and knew one
};

// A password file longer than this admits no client: it is read for every request, and real ones are far smaller.
inline constexpr std::int64_t kMaxPasswordFileBytes = 16 * 1024 * 1024;

// The realm of a password file that names none.
inline constexpr std::string_view kDefaultRealm = "Tessel";

// Decides on `target` by the password file of the settings: AuthenticationSourceFile, or the one named `folderFile` in
// the folder in which the target really lies, whatever name led to it. The file is read anew each time. Where there is
// no such file every client is admitted, and with the sources LocalACL and DomainACL too.
Admission AdmissionTo(const FoundEntry& target, const Settings& settings, const std::string& folderFile,
                      const std::string& user, const std::string& password);

// Whether `user` and `password` open a file with that text.
// kept: "user:password" may be anywhere in it, also as a part of a longer entry, in any case.
bool HoldsPassword(std::string_view text, const std::string& user, const std::string& password);

// What follows "realm:" (any case) on the first line that begins with it, trimmed and without control characters;
// kDefaultRealm when that is nothing.
std::string RealmOf(std::string_view text);

}  // namespace TesselServer
