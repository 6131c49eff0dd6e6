#include "support/NoCaseSearch.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "platform/world/AsciiCase.h"
#include "support/Text.h"
#include "support/Wipe.h"

namespace TesselServer {

NoCaseSearch::NoCaseSearch(std::string_view wanted) {
  if (wanted.size() > std::numeric_limits<std::uint32_t>::max()) throw std::length_error("NoCaseSearch");
  borders_.resize(wanted.size());
  wanted_ = Lower(wanted);
  MakeBorders();
}

NoCaseSearch::~NoCaseSearch() { Wipe(wanted_); }

std::size_t NoCaseSearch::Take(std::string_view stretch) {
  if (wanted_.empty()) return kNpos;
  for (std::size_t at = 0; at < stretch.size(); ++at) {
    if (matched_ == 0) at += CountOther(stretch.substr(at));
    if (at == stretch.size()) break;
    matched_ = Step(matched_, LowerAscii(stretch[at]));
    if (matched_ == wanted_.size()) {
      matched_ = borders_.back();
      return at + 1;
    }
  }
  return kNpos;
}

// How many bytes there are before one that what is wanted begins with.
std::size_t NoCaseSearch::CountOther(std::string_view text) {
  const char first = wanted_.front();
  std::size_t count = 0;
  while (count < text.size() && LowerAscii(text[count]) != first) ++count;
  compared_ += std::min(count + 1, text.size());
  return count;
}

// What is wanted is searched for in itself.
void NoCaseSearch::MakeBorders() {
  for (std::size_t at = 1; at < wanted_.size(); ++at) {
    borders_[at] = static_cast<std::uint32_t>(Step(borders_[at - 1], wanted_[at]));
  }
}

// How much is matched with one byte more.
std::size_t NoCaseSearch::Step(std::size_t matched, char c) {
  for (;;) {
    ++compared_;
    if (wanted_[matched] == c) return matched + 1;
    if (matched == 0) return 0;
    matched = borders_[matched - 1];
  }
}

}  // namespace TesselServer
