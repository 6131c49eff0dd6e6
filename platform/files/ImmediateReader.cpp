#include "platform/files/ImmediateReader.h"

#include <errno.h>
#include <sys/uio.h>
#include <unistd.h>

#include "platform/files/SlowDisk.h"
#include "platform/world/World.h"

namespace TesselServer {

ReadManner ReadManners::Of(std::uint64_t device) const {
  for (const Known& each : known_) {
    if (each.manner == ReadManner::kAsking || each.device != device) continue;
    if (world_.MonotonicMilliseconds() < each.until) return each.manner;
  }
  return ReadManner::kAsking;
}

void ReadManners::Learn(std::uint64_t device, ReadManner manner) {
  known_[next_] = {device, manner, world_.MonotonicMilliseconds() + kMaxAgeMilliseconds};
  next_ = (next_ + 1) % kDevices;
}

ssize_t ImmediateReader::Read(char* to, std::size_t bytes, std::int64_t offset) {
  if (manner_ == ReadManner::kAsking) return Ask(to, bytes, offset);
  return manner_ == ReadManner::kAtOnce ? ReadPatiently(descriptor_, to, bytes, offset) : -EAGAIN;
}

bool ImmediateReader::WouldWait(std::int64_t offset) {
  char byte = 0;
  if (manner_ == ReadManner::kAsking) return Ask(&byte, 1, offset) == -EAGAIN;
  return manner_ == ReadManner::kBeside;
}

ssize_t ImmediateReader::Ask(char* to, std::size_t bytes, std::int64_t offset) {
  const iovec room{to, bytes};
  const ssize_t got = preadv2(descriptor_, &room, 1, static_cast<off_t>(offset), RWF_NOWAIT);
  if (got >= 0) return got;
  if (errno == EINTR) return -EAGAIN;
  if (errno != EOPNOTSUPP && errno != ENOSYS && errno != EPERM) return -errno;
  if (!mayWait_) mayWait_ = MayWait(descriptor_);
  manner_ = *mayWait_ ? ReadManner::kBeside : ReadManner::kAtOnce;
  if (known_ != nullptr) known_->Learn(device_, manner_);
  return Read(to, bytes, offset);
}

ssize_t ReadPatiently(int descriptor, char* to, std::size_t bytes, std::int64_t offset) {
  ssize_t got = -1;
  do {
    got = pread(descriptor, to, bytes, static_cast<off_t>(offset));
  } while (got < 0 && errno == EINTR);
  return got < 0 ? -errno : got;
}

}  // namespace TesselServer
