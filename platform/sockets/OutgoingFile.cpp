#include "platform/sockets/OutgoingFile.h"

#include <sys/sendfile.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <functional>
#include <string_view>
#include <utility>

#include "platform/sockets/NoPipeSignal.h"

namespace TesselServer {

bool OutgoingFile::WouldWait(std::int64_t offset, std::int64_t bytes) {
  if (disk_ == nullptr || fetched_) return false;
  asksForFirst_ = std::exchange(waits_, false) || (asksForFirst_ && reader_.WouldWait(offset)) ||
                  reader_.WouldWait(offset + bytes - 1);
  return asksForFirst_;
}

ssize_t OutgoingFile::Send(int socket, std::int64_t offset, std::int64_t bytes, bool more) {
  if (!fetched_) return SendFromMemory(socket, offset, bytes);
  if (fetched_->count <= 0) return fetched_->count;
  if (!fetched_->bytes.empty()) {
    return SendText(socket, offset, more || fetched_->offset + fetched_->count < offset + bytes);
  }
  const std::int64_t inMemory = std::exchange(fetched_, std::nullopt)->count;
  return SendFromMemory(socket, offset, std::min(bytes, inMemory));
}

ssize_t OutgoingFile::SendText(int socket, std::int64_t offset, bool more) {
  const auto left = std::string_view(fetched_->bytes).substr(static_cast<std::size_t>(offset - fetched_->offset));
  ssize_t count = 0;
  do {
    count = send(socket, left.data(), left.size(), MSG_NOSIGNAL | MSG_DONTWAIT | (more ? MSG_MORE : 0));
  } while (count < 0 && errno == EINTR);
  if (count < 0) return -errno;
  if (static_cast<std::size_t>(count) == left.size()) fetched_.reset();
  return count;
}

ssize_t OutgoingFile::SendFromMemory(int socket, std::int64_t offset, std::int64_t bytes) {
  const NoPipeSignal noPipeSignal;
  off_t next = offset;
  ssize_t count = 0;
  do {
    count = sendfile(socket, file_->Descriptor(), &next, static_cast<std::size_t>(bytes));
  } while (count < 0 && errno == EINTR);
  return count < 0 ? -errno : count;
}

Task<> OutgoingFile::Fetch(std::int64_t offset, std::int64_t bytes) {
  try {
    const std::int64_t most = std::min(bytes, kBytesPerReading);
    const std::function<Fetched()> read = [file = file_, offset, most, keeps = reader_.AlwaysWaits()] {
      return Read(*file, offset, most, keeps);
    };
    auto reading = disk_->turns.Beside().Do(Workers::Kind::kFiles, read);
    Fetched fetched = co_await reading;
    fetched_ = std::move(fetched);
  } catch (const std::exception&) {
    fetched_ = Fetched{offset, -ENOMEM, {}};
  }
}

// On a thread.
OutgoingFile::Fetched OutgoingFile::Read(const OpenFile& file, std::int64_t offset, std::int64_t bytes, bool keeps) {
  Fetched fetched{offset, 0, std::string(static_cast<std::size_t>(bytes), '\0')};
  fetched.count = ReadPatiently(file.Descriptor(), fetched.bytes.data(), fetched.bytes.size(), offset);
  fetched.bytes.resize(keeps && fetched.count > 0 ? static_cast<std::size_t>(fetched.count) : 0);
  if (fetched.bytes.empty()) fetched.bytes.shrink_to_fit();
  return fetched;
}

}  // namespace TesselServer
