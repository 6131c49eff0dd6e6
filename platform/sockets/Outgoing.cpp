#include "platform/sockets/Outgoing.h"

#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/files/FileCache.h"
#include "platform/sockets/NoPipeSignal.h"

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

// A small file becomes text: one read and one send are cheaper than a head and a sendfile.
void ReadSmallFile(Answer& answer) {
  const auto* file = std::get_if<FileBody>(&answer.body);
  if (file == nullptr || file->size > Outgoing::kMaxReadFileBytes) return;
  if (auto contents = file->file.Contents()) {
    answer.body = std::move(contents);
    return;
  }
  std::string bytes;
  if (!file->file.ReadAll(bytes, file->size) || static_cast<std::int64_t>(bytes.size()) != file->size) return;
  answer.body = std::move(bytes);
}

}  // namespace

Outgoing::Outgoing(Answer answer, bool closeFollows)
    : answer_(std::move(answer)), closeFollows_(closeFollows), total_(answer_.Size()) {
  ReadSmallFile(answer_);
  headSize_ = static_cast<std::int64_t>(answer_.head.size());
  textSize_ = headSize_ + static_cast<std::int64_t>(TextOf(answer_).size());
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
  const FileBody& file = std::get<FileBody>(answer_.body);
  const NoPipeSignal noPipeSignal;
  off_t offset = sent_ - textSize_;
  const auto wanted = static_cast<std::size_t>(std::min(total_ - sent_, kBytesPerStep));
  ssize_t count = 0;
  do {
    count = sendfile(socket, file.file.Descriptor(), &offset, wanted);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    if (errno == EAGAIN) return Result::kBlocked;
    return Failed(errno);
  }
  if (count == 0) return Failed(ECONNABORTED);
  sent_ += count;
  return sent_ == total_ ? Result::kDone : Result::kAgain;
}

Outgoing::Result Outgoing::Failed(int error) {
  error_ = error;
  return Result::kFailed;
}

}  // namespace TesselServer
