#include "platform/files/SlowDisk.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "platform/files/FileStamp.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

ssize_t ReadNow(int descriptor, char* to, std::size_t bytes, std::int64_t offset) {
  ssize_t got = -1;
  do {
    got = pread(descriptor, to, bytes, static_cast<off_t>(offset));
  } while (got < 0 && errno == EINTR);
  return got < 0 ? -errno : got;
}

}  // namespace

bool MayWait(int descriptor) { return !KeepsChangeTimes(descriptor, ReadFrom::kNames); }

bool MayWaitAt(const std::string& path) { return !KeepsChangeTimesAt(path, ReadFrom::kNames).value_or(true); }

// What a thread works with. It may go on with it when the reader is gone.
struct PatientReader::Shared {
  UniqueDescriptor file{-1};
  std::unique_ptr<char[]> piece;
};

ssize_t PatientReader::ReadAtOnce(char* to, std::size_t bytes, std::int64_t offset) {
  if (manner_ == Manner::kAsking) return ReadAsking(to, bytes, offset);
  return manner_ == Manner::kAtOnce ? ReadNow(descriptor_, to, bytes, offset) : -EAGAIN;
}

ssize_t PatientReader::ReadAsking(char* to, std::size_t bytes, std::int64_t offset) {
  const iovec room{to, bytes};
  const ssize_t got = preadv2(descriptor_, &room, 1, static_cast<off_t>(offset), RWF_NOWAIT);
  if (got >= 0) return got;
  if (errno == EINTR) return -EAGAIN;
  if (errno != EOPNOTSUPP && errno != ENOSYS) return -errno;
  manner_ = MayWait(descriptor_) ? Manner::kBeside : Manner::kAtOnce;
  return ReadAtOnce(to, bytes, offset);
}

Task<ssize_t> PatientReader::ReadBeside(char* to, std::size_t bytes, std::int64_t offset) {
  if (!shared_) {
    shared_ = std::make_shared<Shared>();
    shared_->file = UniqueDescriptor(fcntl(descriptor_, F_DUPFD_CLOEXEC, 0));
    shared_->piece = std::make_unique_for_overwrite<char[]>(kPieceBesideBytes);
  }
  if (!shared_->file.IsOpen()) co_return ReadNow(descriptor_, to, bytes, offset);  // no descriptor is left for it
  const std::size_t most = std::min(bytes, kPieceBesideBytes);
  const std::function<ssize_t()> read = [shared = shared_, most, offset] {
    return ReadNow(shared->file.Get(), shared->piece.get(), most, offset);
  };
  auto reading = turns_.Beside().Do(Workers::Kind::kFiles, read);
  const ssize_t got = co_await reading;
  if (got > 0) std::copy_n(shared_->piece.get(), got, to);
  co_return got;
}

}  // namespace TesselServer
