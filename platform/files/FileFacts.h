// What can be said of a file or folder without opening it, and what of it can be written: attributes and times.
//
// In paths "\" and "/" both separate; each is tried in the spelling given, then with the case rule of
// RootFolder::Find. Links are followed. A file's name with a separator after it is not found.
//
// Thread:    the host's thread only.
// Ownership: values.
// Errors:    none; what is not there is EntryKind::kNone, what cannot be written is false.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/files/FileStamp.h"

namespace TesselServer {

// Bits of FileFacts::attributes.
namespace FileAttribute {
inline constexpr std::uint32_t kReadOnly = 1;     // the file's owner has no permission to write
inline constexpr std::uint32_t kHidden = 2;       // kept in the extended attribute "user.DOSATTRIB"
inline constexpr std::uint32_t kSystem = 4;       // kept there too
inline constexpr std::uint32_t kDirectory = 16;   // it is a folder
inline constexpr std::uint32_t kArchive = 32;     // it is a file
inline constexpr std::uint32_t kTemporary = 256;  // kept in the extended attribute
}  // namespace FileAttribute

struct FileFacts {
  EntryKind kind = EntryKind::kNone;
  std::uint32_t attributes = 0;  // FileAttribute bits
  std::int64_t size = 0;         // bytes; 0 for a folder
  std::int64_t modified = 0;     // last write, in whole seconds since 1 January 1970 UTC
  FileIdentity identity;
};

// Platform only: the facts of an entry with this status and this number in its extended attribute.
FileFacts FactsOfStatus(const struct stat& status, std::uint32_t dosAttributes);

// What is at a path.
struct PathFacts {
  std::string spelling;  // the path as it is spelled on disk, links on the way keeping their names; "" = nothing there
  FileFacts facts;
};
PathFacts FactsOfPath(std::string_view path);

// Gives the entry at `path` the attributes read-only, hidden, system and temporary that `attributes` has, and takes
// away those it has not. The other bits follow from what the entry is and are ignored. Read-only removes every
// permission to write; not read-only gives it to the owner. True when all of it has been written; when the extended
// attribute is refused (a file system that has none, for one) the permissions stay as they were. It is not touched when
// it would not change.
bool WriteFileAttributes(std::string_view path, std::uint32_t attributes);

// Sets one time of the entry at `path` to a whole second since 1 January 1970 UTC and leaves the other as it is. Times
// that the file system cannot keep are moved into its range. The process must be able to open a file for writing and
// reading, or a folder for reading, and must own it. Linux has no call that sets the time of creation.
enum class FileTime { kLastAccess, kLastWrite };
bool WriteFileTime(std::string_view path, FileTime which, std::int64_t utcSeconds);

// The full path that `text` means, nothing being looked up: the working folder in front of it unless it begins with a
// separator, "/" for "\", no empty component, no "."; ".." takes the component before it away and stays in "/" at the
// top. A separator at the end stays. "" for an empty text, one with a NUL, a path longer than
// RootFolder::kMaxPathBytes - 1, and a relative one while the working folder cannot be determined.
//
//   FullPathOf("docs\\..\\a.htm");  // "/srv/www/a.htm", when "/srv/www" is the working folder
std::string FullPathOf(std::string_view text);

}  // namespace TesselServer
