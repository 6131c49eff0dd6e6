#include "platform/files/FilePieces.h"

#include <errno.h>

#include <algorithm>
#include <string_view>

#include "platform/files/FileCache.h"
#include "platform/files/ImmediateReader.h"
#include "platform/tasks/Turns.h"

namespace TesselServer {

FilePieces::FilePieces(const OpenFile& file, std::int64_t limit, Turns* turns)
    : file_(file), limit_(limit), turns_(turns), isOver_(file.Kind() != EntryKind::kFile) {
  if (!isOver_ && file.Cached() == nullptr && turns != nullptr)
    reader_.emplace(file.Descriptor(), *turns, file.MayWait());
}

std::size_t FilePieces::UsualRoom() const {
  return std::min(static_cast<std::size_t>(std::max<std::int64_t>(file_.Size(), 0)) + 1, kMostBytes);
}

Task<std::size_t> FilePieces::Next(std::span<char> room) {
  if (isOver_) co_return 0;
  if (file_.Cached() != nullptr) co_return Copy(room);
  if (!reader_) co_return Took(ReadPatiently(file_.Descriptor(), room.data(), room.size(), offset_), room.size());
  auto reading = Read(room);
  const ssize_t got = co_await reading;
  co_return Took(got, room.size());
}

Task<ssize_t> FilePieces::Read(std::span<char> room) {
  if (turns_->TimeIsUp()) {
    auto next = turns_->Next();
    co_await next;
  }
  const std::size_t most = std::min(room.size(), PatientReader::kPieceBytes);
  const ssize_t got = reader_->ReadAtOnce(room.data(), most, offset_);
  if (got != -EAGAIN) co_return got;
  auto beside = reader_->ReadBeside(room.data(), room.size(), offset_);
  co_return co_await beside;
}

std::size_t FilePieces::Copy(std::span<char> room) {
  const std::string_view left = std::string_view(*file_.Cached()->contents).substr(static_cast<std::size_t>(offset_));
  return Took(static_cast<ssize_t>(left.copy(room.data(), room.size())), room.size());
}

// Where less came than there was room for, and that was the file's length when it was opened, the end was seen.
std::size_t FilePieces::Took(ssize_t bytes, std::size_t asked) {
  if (bytes > 0) offset_ += bytes;
  const bool isEnd =
      bytes == 0 || (bytes > 0 && static_cast<std::size_t>(bytes) < std::min(asked, PatientReader::kPieceBytes) &&
                     offset_ == file_.Size());
  isOver_ = isEnd || bytes < 0 || offset_ > limit_;
  isWhole_ = isEnd && offset_ <= limit_;
  return bytes > 0 && offset_ <= limit_ ? static_cast<std::size_t>(bytes) : 0;
}

}  // namespace TesselServer
