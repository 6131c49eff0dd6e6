// What is remembered of everything beneath one root: files with their contents, and the names in folders.
//
// Thread:    the host's thread only.
#pragma once

#include <string>
#include <string_view>

#include "platform/files/KnownFiles.h"
#include "platform/files/KnownFolders.h"

namespace TesselServer {

class KnownBeneath {
 public:
  // `rootPath` as the system takes it, "" for none.
  explicit KnownBeneath(const std::string& rootPath) : files(rootPath), folders(rootPath) {}

  // Whether nothing can stand at `path`, in any spelling: the deepest folder on the way whose names are known lacks the
  // next one.
  bool Lacks(std::string_view path) {
    for (std::string_view folder = path; !folder.empty();) {
      const std::size_t cut = folder.rfind('/');
      const std::size_t next = cut == std::string_view::npos ? 0 : cut + 1;
      folder = folder.substr(0, next == 0 ? 0 : cut);
      if (const FolderNames* names = folders.Find(folder)) {
        const std::string_view rest = path.substr(next);
        return names->FirstEqual(rest.substr(0, rest.find('/'))).empty();
      }
    }
    return false;
  }

  KnownFiles files;
  KnownFolders folders;
};

}  // namespace TesselServer
