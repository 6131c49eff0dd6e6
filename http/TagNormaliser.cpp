#include "http/TagNormaliser.h"

#include <algorithm>
#include <cstring>

namespace TesselServer {

std::size_t TagNormaliser::Step() {
  switch (phase_) {
    case Phase::kOpener:
      return FindTag();
    case Phase::kEnd:
      return FindEnd();
    case Phase::kKeep:
      return Keep(tag_, Phase::kStrip);
    case Phase::kStrip:
      return Strip();
    case Phase::kRest:
      return KeepRest();
    case Phase::kDone:
      break;
  }
  return 0;
}

std::size_t TagNormaliser::FindTag() {
  const std::size_t begin = seek_;
  tag_ = FindOpenerInWindow(text_, opener_, seek_, window_);
  if (tag_ != std::string::npos) {
    seek_ = tag_;
    phase_ = Phase::kEnd;
  } else if (seek_ == text_.size()) {
    phase_ = Phase::kRest;
  }
  return seek_ - begin + 1;
}

std::size_t TagNormaliser::FindEnd() {
  const std::size_t begin = seek_;
  const std::size_t stop = std::min(window_, text_.size() - begin) + begin;
  end_ = std::string_view(text_).substr(0, stop).find('>', begin);
  if (end_ != std::string::npos) {
    seek_ = end_;
    phase_ = Phase::kKeep;
  } else {
    seek_ = stop;
    if (stop == text_.size()) phase_ = Phase::kRest;
  }
  return seek_ - begin + 1;
}

// Keeps the text up to `end`.
std::size_t TagNormaliser::Keep(std::size_t end, Phase next) {
  const bool isMoved = kept_ != read_;
  const std::size_t count = isMoved ? std::min(end - read_, window_) : end - read_;
  if (isMoved) std::memmove(text_.data() + kept_, text_.data() + read_, count);
  kept_ += count;
  read_ += count;
  if (read_ == end) phase_ = next;
  return isMoved ? count + 1 : 1;
}

// Keeps the text up to the end of the tag, but for its blanks and quotes.
std::size_t TagNormaliser::Strip() {
  const std::size_t begin = read_;
  const std::size_t stop = begin + std::min(end_ - begin, window_);
  const char* const text = text_.data();
  char* kept = text_.data() + kept_;
  for (const char* at = text + begin; at != text + stop; ++at) {
    if (*at != ' ' && *at != '"') *kept++ = *at;
  }
  kept_ = static_cast<std::size_t>(kept - text);
  read_ = stop;
  if (read_ == end_) phase_ = Phase::kOpener;
  return stop - begin + 1;
}

// What follows the last tag of a kind; then comes the next kind.
std::size_t TagNormaliser::KeepRest() {
  const std::size_t work = Keep(text_.size(), Phase::kDone);
  if (phase_ != Phase::kDone) return work;
  text_.resize(kept_);
  if (opener_ == kScriptStart) return work;
  opener_ = kScriptStart;
  phase_ = Phase::kOpener;
  seek_ = kept_ = read_ = 0;
  return work;
}

std::string NormaliseTags(std::string page) {
  TagNormaliser normaliser(page);
  while (normaliser.Step() > 0) continue;
  return page;
}

}  // namespace TesselServer
