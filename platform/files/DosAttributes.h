// The attributes that Linux has no permission bit for, kept in the extended attribute "user.DOSATTRIB", where file
// sharing with other systems keeps them: "0x" and hexadecimal digits, with other bytes after them or not.
//
// Thread:    any.
// Ownership: values; descriptors stay the caller's.
// Errors:    none: a file without the attribute, a file system without extended attributes and a value of another form
//            are all no attribute, 0.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TesselServer {

// The number in a value of the extended attribute.
std::uint32_t ParseDosAttributes(std::string_view value);

// The number that the open file, or the file at `path` (a link's target), has.
std::uint32_t DosAttributesOf(int descriptor);
std::uint32_t DosAttributesOf(const std::string& path);

// The result for the file `name` in the open folder `folder` (a link's target). A kernel that has no getxattrat(2),
// before Linux 6.13, and a sandbox that refuses it need /proc.
struct DosAttributesAnswer {
  std::uint32_t attributes = 0;
  bool isCertain = false;   // the file has them, or has none; not refused for want of permission, for one
  bool isSupported = true;  // false: its file system keeps none: a caller with more files of it need not ask
};
DosAttributesAnswer AskDosAttributes(int folder, const char* name);

// Writes the number to the file at `path`. An existing value is replaced, the bytes after the number too, since they
// may repeat the old number. False when the file system or the file's permissions refuse.
bool WriteDosAttributes(const std::string& path, std::uint32_t attributes);

}  // namespace TesselServer
