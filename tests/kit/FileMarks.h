// Marks on files that a listing shows or obeys: times and attributes.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstdint>
#include <ctime>
#include <stdexcept>
#include <string>
#include <string_view>

namespace TesselServer::Kit {

// Sets the time of last write of what stands at `path` (a link itself), in seconds since 1 January 1970 UTC.
inline void SetModified(const std::string& path, std::int64_t utcSeconds, long nanoseconds = 0) {
  const timespec times[2] = {{0, UTIME_OMIT}, {utcSeconds, nanoseconds}};
  if (utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) throw std::runtime_error("no time set");
}

// Writes the extended attribute that keeps hidden and system. False when the file system has none.
inline bool SetDosAttributes(const std::string& path, std::string_view value) {
  return setxattr(path.c_str(), "user.DOSATTRIB", value.data(), value.size(), 0) == 0;
}

// What stands in that extended attribute, "none" when it is not there.
inline std::string DosAttributes(const std::string& path) {
  char value[256];
  const ssize_t length = getxattr(path.c_str(), "user.DOSATTRIB", value, sizeof value);
  return length < 0 ? "none" : std::string(value, static_cast<std::size_t>(length));
}

constexpr char kNoExtendedAttributes[] = "the temporary folder's file system keeps no extended attributes";

}  // namespace TesselServer::Kit
