// Files beneath one root that were read before, with their contents, so that a file that has not changed is served
// without being opened. The system is asked whether it is the same still (stat(2)): which file it is, its length,
// permissions and times, the change time among them, which nobody can set back; and whether what leads to it from the
// root are folders still, for a link might leave the root. Which folders they are does not matter: what is found by
// this way is what opening the file by it would find.
//
// Only files without a link on their way are remembered, and only such are remembered as the system can be trusted
// with: on a file system that keeps change times, not changed within the last two seconds (the next change might bear
// the same time), no longer than kMaxFileBytes, and in a folder that knows each name in one spelling alone. What no
// time tells of (this process's rights, a program that writes through a shared mapping) counts after
// kOpenAgainMilliseconds at the latest, since each file is then opened and read anew.
//
// Thread:    the host's thread only.
// Ownership: a file that was found lives as long as somebody holds it.
// Errors:    none; null for a file that is not remembered or has changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/FileStamp.h"
#include "platform/files/FileSystem.h"
#include "platform/files/RecentlyUsed.h"

namespace TesselServer {

// Its paths are as the system takes them.
struct KnownFile {
  std::string path;
  std::vector<std::string> way;  // the root and the folders below it, down to the one that the file lies in
  FileIdentity folder;           // which that one was
  FileStamp stamp;
  std::shared_ptr<const std::string> contents;
  std::int64_t openedAt = 0;  // milliseconds of the monotonic clock
};

class KnownFiles {
 public:
  // What all remembered files may take; those that were not asked for longest go first.
  static constexpr std::size_t kMaxBytes = 16 * 1024 * 1024;
  // The length up to which a file's contents are kept.
  static constexpr std::int64_t kMaxFileBytes = 64 * 1024;
  static constexpr std::int64_t kOpenAgainMilliseconds = 1000;

  // `rootPath` as the system takes it, "" for none.
  explicit KnownFiles(const std::string& rootPath) : rootPath_(rootPath) {}

  // The file `name` ("/" separators) below the root, when it is remembered and still the same.
  std::shared_ptr<const KnownFile> Find(std::string_view name);

  // Reads and remembers `file`, which was opened by exactly this name. Null when it cannot be remembered, for want of
  // memory among others.
  std::shared_ptr<const KnownFile> Remember(std::string_view name, const OpenFile& file);

  // What all of them take.
  std::size_t Bytes() const { return files_.Bytes(); }

 private:
  std::shared_ptr<const KnownFile> Read(std::string_view name, const OpenFile& file) const;

  std::string rootPath_;
  RecentlyUsed<std::shared_ptr<const KnownFile>> files_{kMaxBytes};
};

}  // namespace TesselServer
