// An open file on its way into a socket. Where its bytes are in memory the kernel sends them from there (sendfile(2)),
// so that a file of any size costs no memory. Where the disk would have to be waited for they are read beside the loop
// first: into memory, or, on a file system that may have to be waited for all the same (SlowDisk.h), into a piece of
// text that is sent then.
//
// Whether they are in memory is asked of the last byte of each step, and of the first one where the step does not
// follow on from one that was asked about: one call a step, some 0.3 microseconds beside the 50 and more that sending
// 256 KiB takes. Where just the bytes between them have left the memory, the loop waits for the disk.
//
// Thread:    the loop's thread.
// Ownership: owns the file, together with the thread that reads it: that goes on when this is destroyed, and the file
//            is closed when the last of the two is done with it. What `disk` refers to outlives this.
// Errors:    negative errno values; never raises a SIGPIPE.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/files/FileSystem.h"
#include "platform/files/ImmediateReader.h"
#include "platform/tasks/Task.h"
#include "platform/tasks/Turns.h"

namespace TesselServer {

// What the connections of one owner share, so that no file that they send keeps the loop waiting.
struct DiskAccess {
  DiskAccess(Turns& given, const World& world) : turns(given), manners(world) {}

  Turns& turns;
  ReadManners manners;
};

class OutgoingFile {
 public:
  // What is read beside the loop at a time, and is held in memory then, where it is sent as text.
  static constexpr std::int64_t kBytesPerReading = 128 * 1024;

  // With no `disk`, all is read in the call. `reader` is one of this file; `waits`: it is known that the first step
  // would have to wait.
  OutgoingFile(OpenFile file, ImmediateReader reader, DiskAccess* disk, bool waits = false)
      : file_(std::make_shared<const OpenFile>(std::move(file))), reader_(reader), disk_(disk), waits_(waits) {}

  // Whether sending `bytes` bytes from `offset` on would have to wait for the disk: Fetch them first.
  bool WouldWait(std::int64_t offset, std::int64_t bytes);

  // Sends of these bytes what the kernel takes. `more`: others follow, or the end of the connection, so that text that
  // does not fill a segment may wait for them. How many it took, 0 where the file has ended,
  // -EAGAIN where it takes none for now.
  ssize_t Send(int socket, std::int64_t offset, std::int64_t bytes, bool more);

  // Has the first of these bytes read beside the loop, kBytesPerReading at most; a failure is what Send returns then.
  // This stays where it is, alive, until the task is done or destroyed.
  Task<> Fetch(std::int64_t offset, std::int64_t bytes);

 private:
  // Bytes that were waited for.
  struct Fetched {
    std::int64_t offset = 0;
    ssize_t count = 0;  // or a negative errno value
    std::string bytes;  // where they are sent from here
  };

  static Fetched Read(const OpenFile& file, std::int64_t offset, std::int64_t bytes, bool keeps);
  ssize_t SendText(int socket, std::int64_t offset, bool more);
  ssize_t SendFromMemory(int socket, std::int64_t offset, std::int64_t bytes);

  std::shared_ptr<const OpenFile> file_;
  ImmediateReader reader_;
  DiskAccess* disk_;
  bool waits_;
  std::optional<Fetched> fetched_;
  bool asksForFirst_ = true;  // nothing is known of the first byte of the next step
};

}  // namespace TesselServer
