// The raw entries of an open folder, one after the other. Platform only.
//
// Thread:    the host's thread only.
// Ownership: owns the descriptor that it reads through.
// Errors:    none; see Next and EndedWell.
#pragma once

#include <dirent.h>

#include <memory>
#include <string>
#include <string_view>

#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class FolderStream {
 public:
  // Reads through `folder`, which must be open for reading, or nothing is read.
  explicit FolderStream(UniqueDescriptor folder);

  // Reads the folder open as `folder` through a descriptor of its own: the position of that one is not moved.
  static FolderStream Of(int folder);

  // False when the folder could not be opened once more.
  bool IsOpen() const { return entries_ != nullptr; }

  // The next entry in the system's own order, until the call after; nullptr at the end, or where reading fails.
  const dirent* Next();

  // After the last entry: whether the folder has been read to its end.
  bool EndedWell() const { return entries_ != nullptr && !failed_; }

  // Reads on to the end: the first name in byte order that is equal to `name` without regard to ASCII case, "" when
  // there is none.
  std::string FirstEqual(std::string_view name);

 private:
  struct CloseEntries {
    void operator()(DIR* entries) const { closedir(entries); }
  };

  std::unique_ptr<DIR, CloseEntries> entries_;
  bool failed_ = false;
};

// Whether the file system of the folder open as `descriptor` itself takes names in other spellings than it lists, those
// of letters beyond ASCII included (FS_CASEFOLD_FL, ioctl_iflags(2)).
bool TakesOtherSpellings(int descriptor);

}  // namespace TesselServer
