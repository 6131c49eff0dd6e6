// An answer on its way into a socket: what is left of it, and the next step to send.
//
// Thread:    the loop's thread.
// Ownership: owns the answer; the socket's descriptor is the caller's.
// Errors:    returned in the result; never raises a SIGPIPE.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/sockets/Answer.h"
#include "platform/sockets/OutgoingFile.h"

namespace TesselServer {

class Outgoing {
 public:
  // What one call of Step may hand to the kernel, so that one large answer does not hold up the others.
  static constexpr std::int64_t kBytesPerStep = 256 * 1024;
  // A file no longer than this is read and goes out with the head in one system call.
  static constexpr std::int64_t kMaxReadFileBytes = 64 * 1024;

  enum class Result {
    kDone,          // the kernel has taken the last byte
    kBlocked,       // the kernel takes no more for now
    kAgain,         // some went out; there is more
    kWaitsForDisk,  // the next bytes of its file would have to be waited for: Fetch them
    kFailed,        // see Error()
  };

  // `closeFollows`: the socket is closed, or its write side shut down, as soon as the last byte is taken. The kernel
  // then keeps back the last bytes of a text until the close, so that they and the end leave in one segment (MSG_MORE,
  // send(2)); it keeps them 200 ms at most.
  // With `disk`, which outlives it, no step waits for a file to be read; with none, it is read in the call.
  explicit Outgoing(Answer answer, bool closeFollows = false, DiskAccess* disk = nullptr);

  Outgoing(Outgoing&&) = default;
  ~Outgoing();

  // Sends what the kernel takes.
  Result Step(int socket);

  // After kWaitsForDisk: has the next bytes read beside the loop. This is not moved until the task is done or
  // destroyed.
  Task<> Fetch() { return file_->Fetch(OffsetInFile(), total_ - sent_); }

  std::int64_t SentBytes() const { return sent_; }

  // The errno(3) of the last kFailed. A file that became shorter than announced is ECONNABORTED.
  int Error() const { return error_; }

 private:
  void Open(DiskAccess* disk);
  Result SendText(int socket);
  Result SendFile(int socket);
  Result Failed(int error);
  std::int64_t OffsetInFile() const { return firstOfFile_ + sent_ - textSize_; }

  Answer answer_;
  std::optional<OutgoingFile> file_;  // a body that is sent from its file
  bool closeFollows_;
  std::int64_t firstOfFile_ = 0;
  std::int64_t headSize_ = 0;
  std::int64_t textSize_ = 0;  // head and a body of text
  std::int64_t sent_ = 0;
  std::int64_t total_ = 0;
  int error_ = 0;
};

}  // namespace TesselServer
