#include "platform/files/SlowDisk.h"

#include <fcntl.h>

#include <algorithm>
#include <functional>

#include "platform/files/FileStamp.h"
#include "platform/files/FileSystem.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

bool MayWait(int descriptor) { return !KeepsChangeTimes(descriptor, ReadFrom::kNames); }

bool MayWaitAt(const std::string& path) { return !KeepsChangeTimesAt(path, ReadFrom::kNames).value_or(true); }

bool MayWait(const OpenFile& file) {
  const auto known = file.MayWait();
  return known ? *known : MayWait(file.Descriptor());
}

// What a thread works with. It may go on with it when the reader is gone.
struct PatientReader::Shared {
  UniqueDescriptor file{-1};
  std::unique_ptr<char[]> piece;
};

Task<ssize_t> PatientReader::ReadBeside(char* to, std::size_t bytes, std::int64_t offset) {
  if (!shared_) {
    shared_ = std::make_shared<Shared>();
    shared_->file = UniqueDescriptor(fcntl(descriptor_, F_DUPFD_CLOEXEC, 0));
    shared_->piece = std::make_unique_for_overwrite<char[]>(kPieceBesideBytes);
  }
  if (!shared_->file.IsOpen()) co_return ReadPatiently(descriptor_, to, bytes, offset);  // no descriptor is left for it
  const std::size_t most = std::min(bytes, kPieceBesideBytes);
  const std::function<ssize_t()> read = [shared = shared_, most, offset] {
    return ReadPatiently(shared->file.Get(), shared->piece.get(), most, offset);
  };
  auto reading = turns_.Beside().Do(Workers::Kind::kFiles, read);
  const ssize_t got = co_await reading;
  if (got > 0) std::copy_n(shared_->piece.get(), got, to);
  co_return got;
}

}  // namespace TesselServer
