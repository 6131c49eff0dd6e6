// Which file systems may keep a reader waiting, and reading that does not wait in a turn of the loop.
//
// Of ext2 to ext4, xfs, btrfs, tmpfs and overlayfs the names in a folder are taken to be there at once: they are local,
// and what is read of a folder is small. Every other file system (a network's, one in user space) may wait for each
// call, as long as it likes. Of the contents of a file the system says itself whether they would have to be waited for,
// where it can; where it cannot, the same rule decides as for names (ImmediateReader.h).
//
// What such a disk may keep waiting is not called in a turn: a path that leads to another mount than the system's root,
// or than a root of which it was asked within the last minute, is opened beside the loop, together with the question
// which file system it is (OpenPaths.h, OpenHere; FileSystem.h). Whether the system's root waits is asked once.
//
// What may wait all the same: what the host itself calls; the first look, by a path that is remembered, at what a disk
// that was mounted within the last minute now covers (FileCache.h, FolderCache.h); the closing of a file, where its
// file system does something about that; a mount that is made only when it is entered, on kernels that make it for
// RESOLVE_NO_XDEV as well.
//
// Thread:    any for MayWait; the loop's thread for the class.
// Ownership: descriptors stay the caller's.
// Errors:    none; what cannot be determined may wait.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/files/ImmediateReader.h"
#include "platform/tasks/Task.h"
#include "platform/tasks/Turns.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class OpenFile;

// Whether reading what is open as `descriptor` may have to wait, and what lies at `path`. A path where nothing is does
// not.
bool MayWait(int descriptor);
bool MayWaitAt(const std::string& path);

// The same of an open file: what is known of it, or what the system says.
bool MayWait(const OpenFile& file);

// Reads an open file piece by piece.
class PatientReader {
 public:
  // What is read in a turn at once, some 20 microseconds; and beside the loop, as much as a file system in user space
  // is usually asked for.
  static constexpr std::size_t kPieceBytes = 64 * 1024;
  static constexpr std::size_t kPieceBesideBytes = 128 * 1024;

  // The descriptor stays open, and `turns` alive, as long as this is.
  // `mayWait`: as ImmediateReader has it.
  PatientReader(int descriptor, Turns& turns, std::optional<bool> mayWait = std::nullopt)
      : descriptor_(descriptor), atOnce_(descriptor, mayWait), turns_(turns) {}
  PatientReader(const PatientReader&) = delete;
  PatientReader& operator=(const PatientReader&) = delete;

  // Reads at byte `offset`: how many bytes have come, 0 at the end, or a negative errno value; -EAGAIN where it would
  // have to wait.
  ssize_t ReadAtOnce(char* to, std::size_t bytes, std::int64_t offset) { return atOnce_.Read(to, bytes, offset); }

  // The same beside the loop, kPieceBesideBytes at most. `to` stays good until the task is done; the bytes are written
  // there by the loop's thread.
  Task<ssize_t> ReadBeside(char* to, std::size_t bytes, std::int64_t offset);

 private:
  struct Piece;

  int descriptor_;
  ImmediateReader atOnce_;
  Turns& turns_;
  // The file, with the threads: they may go on with it when this is gone. Null until there is something to wait for.
  std::shared_ptr<const UniqueDescriptor> shared_;
};

}  // namespace TesselServer
