// The raw entries of an open folder, one after the other. Platform only.
//
// Thread:    one at a time; the host's thread, or one of Workers where reading may wait.
// Ownership: owns the descriptor that it reads through.
// Errors:    none; see Next and EndedWell.
#pragma once

#include <dirent.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "platform/tasks/Task.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class Turns;

class FolderStream {
 public:
  // What is read from the system at once: some 300 names, some 50 microseconds.
  static constexpr std::size_t kBatchBytes = 16 * 1024;

  // Reads through `folder`, which must be open for reading, or nothing is read.
  explicit FolderStream(UniqueDescriptor folder) : folder_(std::move(folder)) {}

  // Reads the folder open as `folder` through a descriptor of its own: the position of that one is not moved.
  static FolderStream Of(int folder);

  // False when the folder could not be opened once more.
  bool IsOpen() const { return folder_.IsOpen(); }

  // Reads the next batch from the system. False at the end, or where reading fails.
  bool Fill();

  // The next entry of the batch, in the system's own order, until Fill is called; nullptr when there is none left.
  const dirent* NextOfBatch();

  // The next entry, until the call after; nullptr at the end, or where reading fails.
  const dirent* Next();

  // After the last entry: whether the folder has been read to its end.
  bool EndedWell() const { return IsOpen() && !failed_; }

  // Whether Fill may have to wait (SlowDisk.h). Asks the system once.
  bool MayWait();

 private:
  UniqueDescriptor folder_;
  std::unique_ptr<char[]> batch_;
  std::size_t size_ = 0;  // bytes in the batch
  std::size_t next_ = 0;  // where its next entry begins
  std::optional<bool> mayWait_;
  bool failed_ = false;
};

// FolderStream::Fill: in the next turn where the time of this one is over, and beside the loop where it may wait.
Task<bool> FillInTurns(std::shared_ptr<FolderStream> stream, Turns* turns);

// Reads on to the end: the first name in byte order that is equal to `name` without regard to ASCII case, "" when there
// is none.
Task<std::string> FirstEqualIn(std::shared_ptr<FolderStream> stream, std::string name, Turns* turns);

// Whether the file system of the folder open as `descriptor` itself takes names in other spellings than it lists, those
// of letters beyond ASCII included (FS_CASEFOLD_FL, ioctl_iflags(2)).
bool TakesOtherSpellings(int descriptor);

}  // namespace TesselServer
