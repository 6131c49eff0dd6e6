// The names in folders beneath one root that were read before, so that a name that is not there, or is spelled
// otherwise, is answered without reading its folder again. A folder counts as long as the system tells the same of it:
// which one it is and when its names last changed (inode(7)); what no time tells of (a folder whose encryption is
// unlocked, for one) counts after a second, since the names are then read anew (IsFresh).
//
// Thread:    the host's thread only.
// Ownership: a returned pointer holds until the next call.
// Errors:    none; null for a folder that is not remembered or has changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/FileStamp.h"
#include "platform/files/FolderNames.h"
#include "platform/files/RecentlyUsed.h"

namespace TesselServer {

class KnownFolders {
 public:
  // What all remembered names may take; those of the folder that was not asked for longest go first.
  static constexpr std::size_t kMaxBytes = 8 * 1024 * 1024;

  // `rootPath` as the system takes it, "" for none.
  explicit KnownFolders(const std::string& rootPath) : rootPath_(rootPath) {}

  // The names in the folder `folder` ("" = the root, "/" separators), when they are remembered and still hold.
  const FolderNames* Find(std::string_view folder);

  // Remembers the names that were read from the folder open as `descriptor`, which had the stamp `before` when the
  // reading began, at the moment `began` of FileClockNow; unless it changed meanwhile or a change might not show.
  void Remember(std::string_view folder, int descriptor, const FileStamp& before, std::int64_t began,
                const std::vector<std::string>& names);

  // What all of them take.
  std::size_t Bytes() const { return folders_.Bytes(); }

 private:
  struct Folder {
    std::string path;  // as the system takes it
    FileStamp stamp;
    std::int64_t began = 0;  // by FileClockNow
    FolderNames names;
  };

  std::string rootPath_;
  RecentlyUsed<Folder> folders_{kMaxBytes};
};

}  // namespace TesselServer
