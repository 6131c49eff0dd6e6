// Finds the blank line that ends a header block, in a text that comes in pieces.
//
// Thread:    any one at a time.
// Errors:    none.
#pragma once

#include <cstddef>
#include <string_view>

namespace TesselServer {

//   BlankLineFinder finder;
//   finder.Feed("a: b\r\n\r");  // 7: no end yet
//   finder.Feed("\nbody");      // 1: "body" is after it
//   finder.End();               // 8
class BlankLineFinder {
 public:
  // Looks at the next piece and returns how many of its bytes belong to the header block, the CR LF CR LF that ends
  // it included: all of them while it has not come, none once it has.
  std::size_t Feed(std::string_view piece);

  // The first CR LF CR LF has come.
  bool Found() const { return matched_ == kBlankLine.size(); }

  // How many bytes the header block has, as far as it has come, its CR LF CR LF included.
  std::size_t End() const { return end_; }

  static constexpr std::string_view kBlankLine = "\r\n\r\n";

 private:
  std::size_t matched_ = 0;  // how much of kBlankLine the bytes seen last are
  std::size_t end_ = 0;
};

}  // namespace TesselServer
