#include "platform/sockets/Outgoing.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/files/ContentsReading.h"
#include "platform/files/FileCache.h"
#include "platform/loop/LongMemory.h"

namespace TesselServer {

namespace {

std::string_view TextOf(const Answer& answer) {
  if (const auto* text = std::get_if<std::string>(&answer.body)) return *text;
  if (const auto* shared = std::get_if<Answer::SharedBytes>(&answer.body)) {
    return *shared ? std::string_view(**shared) : std::string_view();
  }
  return {};
}

static_assert(FileCache::kMaxFileBytes <= Outgoing::kMaxReadFileBytes, "a remembered file has nothing to send from");

// The whole file, where that is `size` bytes. Nothing where it `waits`: its disk would have to be waited for.
std::optional<std::string> ReadWhole(const OpenFile& file, std::int64_t size, ImmediateReader& reader, bool& waits) {
  std::string bytes;
  ContentsReading reading(bytes, file.Size(), size);
  while (!reading.IsOver()) {
    const std::span<char> room = reading.Room(std::string::npos);
    const ssize_t got = reader.Read(room.data(), room.size(), reading.Offset());
    waits = got == -EAGAIN;
    if (waits) return std::nullopt;
    reading.Took(got);
  }
  if (!reading.IsWhole() || static_cast<std::int64_t>(bytes.size()) != size) return std::nullopt;
  return bytes;
}

std::optional<std::string> ReadWhole(const OpenFile& file, std::int64_t size) {
  std::string bytes;
  if (!file.ReadAll(bytes, size) || static_cast<std::int64_t>(bytes.size()) != size) return std::nullopt;
  return bytes;
}

std::string PartOf(const std::string& contents, std::int64_t first, std::int64_t size) {
  return contents.substr(static_cast<std::size_t>(first), static_cast<std::size_t>(size));
}

}  // namespace

Outgoing::Outgoing(Answer answer, bool closeFollows, DiskAccess* disk)
    : answer_(std::move(answer)), closeFollows_(closeFollows), total_(answer_.Size()) {
  if (std::holds_alternative<FileBody>(answer_.body)) Open(disk);
  headSize_ = static_cast<std::int64_t>(answer_.head.size());
  textSize_ = headSize_ + static_cast<std::int64_t>(TextOf(answer_).size());
}

Outgoing::~Outgoing() {
  if (auto* text = std::get_if<std::string>(&answer_.body)) GiveBack(*text);
}

// A small file becomes text, where it is there at once: one read and one send are cheaper than a head and a sendfile.
void Outgoing::Open(DiskAccess* disk) {
  auto& [file, size, first] = std::get<FileBody>(answer_.body);
  const bool isWhole = first == 0 && size == file.Size();
  if (auto contents = file.Contents()) {
    isWhole ? answer_.body = std::move(contents) : answer_.body = PartOf(*contents, first, size);
    return;
  }
  firstOfFile_ = first;
  const int descriptor = file.Descriptor();
  auto reader = disk != nullptr ? ImmediateReader(descriptor, file.Identity().device, disk->manners, file.MayWait())
                                : ImmediateReader(descriptor);
  std::optional<std::string> whole;
  bool waits = false;
  if (isWhole && size <= kMaxReadFileBytes)
    whole = disk != nullptr ? ReadWhole(file, size, reader, waits) : ReadWhole(file, size);
  if (whole) {
    answer_.body = std::move(*whole);
  } else {
    file_.emplace(std::move(file), reader, disk, waits);
  }
}

Outgoing::Result Outgoing::Step(int socket) {
  if (sent_ < textSize_) {
    const Result result = SendText(socket);
    if (result != Result::kDone) return result;
  }
  return sent_ < total_ ? SendFile(socket) : Result::kDone;
}

Outgoing::Result Outgoing::SendText(int socket) {
  const std::string_view head = answer_.head;
  const std::string_view text = TextOf(answer_);
  const auto skip = static_cast<std::size_t>(sent_);
  const std::string_view nextOfHead = head.substr(std::min(skip, head.size()), kBytesPerStep);
  const std::string_view nextOfText =
      text.substr(skip > head.size() ? skip - head.size() : 0, kBytesPerStep - nextOfHead.size());
  // sendmsg only reads what the vectors point at
  std::array<iovec, 2> parts = {iovec{const_cast<char*>(nextOfHead.data()), nextOfHead.size()},
                                iovec{const_cast<char*>(nextOfText.data()), nextOfText.size()}};
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  const int more = textSize_ < total_ || closeFollows_ ? MSG_MORE : 0;
  ssize_t count = 0;
  do {
    count = sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT | more);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return errno == EAGAIN ? Result::kBlocked : Failed(errno);
  sent_ += count;
  return sent_ == textSize_ ? Result::kDone : Result::kAgain;
}

Outgoing::Result Outgoing::SendFile(int socket) {
  const std::int64_t offset = OffsetInFile();
  const std::int64_t wanted = std::min(total_ - sent_, kBytesPerStep);
  if (file_->WouldWait(offset, wanted)) return Result::kWaitsForDisk;
  const ssize_t count = file_->Send(socket, offset, wanted, wanted < total_ - sent_ || closeFollows_);
  if (count == -EAGAIN) return Result::kBlocked;
  if (count < 0) return Failed(static_cast<int>(-count));
  if (count == 0) return Failed(ECONNABORTED);
  sent_ += count;
  return sent_ == total_ ? Result::kDone : Result::kAgain;
}

Outgoing::Result Outgoing::Failed(int error) {
  error_ = error;
  return Result::kFailed;
}

}  // namespace TesselServer
