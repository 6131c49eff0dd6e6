// Reading an open file without waiting for its disk. The system is asked in a manner that says when it would have to be
// waited for (RWF_NOWAIT, preadv2(2)), where the file system can tell. Where it cannot (overlayfs is one), the file is
// read all the same when it lies on a file system whose names are taken to be there at once (SlowDisk.h), and counts as
// one that has to be waited for on every other.
//
// That a file system cannot tell is remembered, for asking it each time costs two calls beside the one that reads:
// ReadManners, for a minute, since the number of a device may come back for another file system.
//
// Thread:    the loop's thread.
// Ownership: descriptors stay the caller's; what is remembered outlives the readers.
// Errors:    negative errno values.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace TesselServer {

class World;

enum class ReadManner {
  kAsking,  // what would have to be waited for is refused
  kAtOnce,  // it cannot tell, and is taken never to wait
  kBeside,  // it cannot tell, and may wait each time
};

// The manners of the file systems that were last read from and cannot tell.
class ReadManners {
 public:
  static constexpr std::size_t kDevices = 4;
  static constexpr std::int64_t kMaxAgeMilliseconds = 60'000;

  explicit ReadManners(const World& world) : world_(world) {}

  // That of the device (FileIdentity), kAsking where it is not remembered.
  ReadManner Of(std::uint64_t device) const;
  void Learn(std::uint64_t device, ReadManner manner);

 private:
  struct Known {
    std::uint64_t device = 0;
    ReadManner manner = ReadManner::kAsking;
    std::int64_t until = 0;  // World::MonotonicMilliseconds
  };

  const World& world_;
  std::array<Known, kDevices> known_;
  std::size_t next_ = 0;  // the place of the one that is learned next
};

class ImmediateReader {
 public:
  // `mayWait`: whether its file system may keep each call waiting (SlowDisk.h), where that is known. Where it is not
  // the system is asked, which may have to wait on such a one.
  explicit ImmediateReader(int descriptor, std::optional<bool> mayWait = std::nullopt)
      : descriptor_(descriptor), mayWait_(mayWait) {}
  // One that knows, and learns, how files on this device are read.
  ImmediateReader(int descriptor, std::uint64_t device, ReadManners& known, std::optional<bool> mayWait = std::nullopt)
      : descriptor_(descriptor), mayWait_(mayWait), device_(device), known_(&known), manner_(known.Of(device)) {}

  // Reads at byte `offset`: how many bytes have come, fewer than there are where the next one would have to be waited
  // for; 0 at the end, or a negative errno value; -EAGAIN where the first one would have to be waited for.
  ssize_t Read(char* to, std::size_t bytes, std::int64_t offset);

  // Whether reading the byte at `offset` would have to wait.
  bool WouldWait(std::int64_t offset);

  // Whether what was read a moment ago may have to be waited for again.
  bool AlwaysWaits() const { return manner_ == ReadManner::kBeside; }

 private:
  ssize_t Ask(char* to, std::size_t bytes, std::int64_t offset);

  int descriptor_;
  std::optional<bool> mayWait_;
  std::uint64_t device_ = 0;
  ReadManners* known_ = nullptr;
  ReadManner manner_ = ReadManner::kAsking;
};

// pread(2), with a negative errno value for a failure; may wait. Any thread.
ssize_t ReadPatiently(int descriptor, char* to, std::size_t bytes, std::int64_t offset);

}  // namespace TesselServer
