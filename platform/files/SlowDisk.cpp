#include "platform/files/SlowDisk.h"

#include <fcntl.h>

#include <algorithm>
#include <functional>

#include "platform/files/FileStamp.h"
#include "platform/files/FileSystem.h"

namespace TesselServer {

bool MayWait(int descriptor) { return !KeepsChangeTimes(descriptor, ReadFrom::kNames); }

bool MayWaitAt(const std::string& path) { return !KeepsChangeTimesAt(path, ReadFrom::kNames).value_or(true); }

bool MayWait(const OpenFile& file) {
  const auto known = file.MayWait();
  return known ? *known : MayWait(file.Descriptor());
}

// What a thread has read. It makes the room itself, so that those who wait for a thread take none.
struct PatientReader::Piece {
  std::unique_ptr<char[]> bytes;
  ssize_t count = 0;
};

Task<ssize_t> PatientReader::ReadBeside(char* to, std::size_t bytes, std::int64_t offset) {
  if (!shared_) shared_ = std::make_shared<const UniqueDescriptor>(fcntl(descriptor_, F_DUPFD_CLOEXEC, 0));
  if (!shared_->IsOpen()) co_return ReadPatiently(descriptor_, to, bytes, offset);  // no descriptor is left for it
  const std::function<Piece()> read = [file = shared_, most = std::min(bytes, kPieceBesideBytes), offset] {
    Piece piece{std::make_unique_for_overwrite<char[]>(most)};
    piece.count = ReadPatiently(file->Get(), piece.bytes.get(), most, offset);
    return piece;
  };
  auto reading = turns_.Beside().Do(Workers::Kind::kFiles, read);
  const Piece piece = co_await reading;
  if (piece.count > 0) std::copy_n(piece.bytes.get(), piece.count, to);
  co_return piece.count;
}

}  // namespace TesselServer
