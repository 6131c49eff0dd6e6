#include "control/connection/BlankLineFinder.h"

#include <algorithm>

namespace TesselServer {

std::size_t BlankLineFinder::Feed(std::string_view piece) {
  std::size_t used = 0;
  while (used < piece.size() && !Found()) {
    if (matched_ == 0) used = std::min(piece.find(kBlankLine.front(), used), piece.size() - 1);
    const char c = piece[used++];
    if (c == kBlankLine[matched_]) {
      ++matched_;
    } else {
      matched_ = c == kBlankLine.front() ? 1 : 0;
    }
  }
  end_ += used;
  return used;
}

}  // namespace TesselServer
