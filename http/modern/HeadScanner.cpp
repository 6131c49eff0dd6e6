#include "http/modern/HeadScanner.h"

#include <algorithm>

#include "http/modern/Status.h"
#include "support/Text.h"

namespace TesselServer::Modern {

void HeadScanner::Begin(std::size_t headerBytes) {
  *this = HeadScanner();
  headerBytes_ = headerBytes;
}

HeadScanner::Step HeadScanner::Take(std::string_view bytes) {
  std::size_t used = 0;
  while (used < bytes.size()) {
    const std::size_t lineEnd = bytes.find('\n', used);
    const bool isWhole = lineEnd != kNpos;
    const auto piece = bytes.substr(used, isWhole ? lineEnd + 1 - used : kNpos);
    if (IsBlankSoFar(piece)) {
      used += piece.size();
      if (isWhole) return {State::kEnd, used};
      isReturn_ = true;
      lineBytes_ = 1;
      break;
    }
    refusal_ = Judge(piece, isWhole);
    if (refusal_ != 0) return {State::kRefused, used};
    used += piece.size();
  }
  return {State::kMore, used};
}

// Whether the line is blank with `piece`, or may become so.
bool HeadScanner::IsBlankSoFar(std::string_view piece) const {
  if (lineBytes_ == 0) return piece == "\r" || piece == "\n" || piece == kLineEnd;
  return isReturn_ && piece == "\n";
}

// Counts `piece`, the next part of a line that is not blank. The status of the limit that it exceeds, or 0.
int HeadScanner::Judge(std::string_view piece, bool isWhole) {
  const bool isRequestLine = requestLineBytes_ == 0;
  isReturn_ = false;
  lineBytes_ += piece.size();
  if (isRequestLine && TargetIsTooLong(piece)) return Status::kTargetTooLong;
  if (lineBegin_ + lineBytes_ > headerBytes_) return isRequestLine ? Status::kTargetTooLong : Status::kFieldsTooLarge;
  if (!isWhole) return 0;
  if (isRequestLine) {
    requestLineBytes_ = lineBytes_;
  } else if (++fields_ > kMaxFields) {
    return Status::kFieldsTooLarge;
  }
  lineBegin_ += lineBytes_;
  lineBytes_ = 0;
  return 0;
}

// The target lies between the first two blanks of the line.
bool HeadScanner::TargetIsTooLong(std::string_view piece) {
  while (blanks_ < 2 && !piece.empty()) {
    const std::size_t blank = std::min(piece.find(' '), piece.size());
    if (blanks_ == 1) targetBytes_ += blank;
    if (blank == piece.size()) break;
    ++blanks_;
    piece.remove_prefix(blank + 1);
  }
  return targetBytes_ > kMaxTargetBytes;
}

}  // namespace TesselServer::Modern
