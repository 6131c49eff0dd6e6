// The raw entries of an open folder, one after the other, through a descriptor of its own: the position of the one
// that was given is not moved. Platform only.
//
// Thread:    the host's thread only.
// Ownership: owns its descriptor; the folder's stays the caller's.
// Errors:    none; see Next and EndedWell.
#pragma once

#include <dirent.h>

#include <memory>

namespace TesselServer {

class FolderStream {
 public:
  explicit FolderStream(int folder);

  // False when the folder could not be opened once more.
  bool IsOpen() const { return entries_ != nullptr; }

  // The next entry in the system's own order, until the call after; nullptr at the end, or where reading fails.
  const dirent* Next();

  // Behind the last entry: whether the folder has been read to its end.
  bool EndedWell() const { return !failed_; }

 private:
  struct CloseEntries {
    void operator()(DIR* entries) const { closedir(entries); }
  };

  std::unique_ptr<DIR, CloseEntries> entries_;
  bool failed_ = false;
};

}  // namespace TesselServer
