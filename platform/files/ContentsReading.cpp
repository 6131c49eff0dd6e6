#include "platform/files/ContentsReading.h"

#include <algorithm>

namespace TesselServer {

// One byte more than is expected: where just that one stays empty the end was seen.
ContentsReading::ContentsReading(std::string& bytes, std::int64_t expected, std::int64_t limit)
    : bytes_(bytes),
      usual_(static_cast<std::size_t>(expected)),
      most_(static_cast<std::size_t>(std::max<std::int64_t>(limit, 0))),
      goal_(std::min(usual_, most_) + 1) {
  bytes_.clear();
}

std::span<char> ContentsReading::Room(std::size_t most) {
  constexpr std::size_t kLeastRoom = 4096;
  if (length_ == goal_) goal_ = std::min(std::max(2 * length_, kLeastRoom), most_ + 1);
  bytes_.reserve(goal_);
  bytes_.resize(length_ + std::min(goal_ - length_, most));
  return {bytes_.data() + length_, bytes_.size() - length_};
}

void ContentsReading::Took(ssize_t bytes) {
  if (bytes > 0) length_ += static_cast<std::size_t>(bytes);
  const bool isEnd = bytes == 0 || (length_ == usual_ && length_ < bytes_.size());
  isOver_ = isEnd || bytes < 0 || length_ > most_;
  isWhole_ = isEnd && length_ <= most_;
  if (isOver_) bytes_.resize(std::min(length_, most_));
}

}  // namespace TesselServer
