// The search for one text, ASCII letters being equal in either case, in a text that comes stretch by stretch.
//
//   NoCaseSearch search("Ann:Secret");
//   search.Take("joann:sec");         // kNpos
//   search.Take("ret\n");             // 3: the place after it
//
// It looks at each byte that comes once and never goes back in the text (Knuth, Morris, Pratt), so its cost is linear
// whatever both texts are, and nothing of what came is kept. FindNoCase is faster in a text that is at hand where the
// first letter of what is wanted is rare, and comes here where it is not.
//
// Thread:    one.
// Ownership: keeps a copy of what is wanted, which may be a secret and is overwritten before its memory is given back.
// Errors:    std::length_error where more than 4 GiB is wanted; otherwise those of memory running out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer {

class NoCaseSearch {
 public:
  // An empty text is never found.
  explicit NoCaseSearch(std::string_view wanted);
  NoCaseSearch(const NoCaseSearch&) = delete;
  NoCaseSearch& operator=(const NoCaseSearch&) = delete;
  ~NoCaseSearch();

  // Searches on in the next bytes, up to the next place where what is wanted ends: the position after it in `stretch`,
  // kNpos when there is none. The rest of the stretch may be taken after that, for a later place or an overlapping one.
  std::size_t Take(std::string_view stretch);

  // How many times two bytes were compared so far: at most twice for each byte wanted and for each that came.
  std::uint64_t Compared() const { return compared_; }

 private:
  void MakeBorders();
  std::size_t CountOther(std::string_view text);
  std::size_t Step(std::size_t matched, char c);

  std::string wanted_;                  // in lower case
  std::vector<std::uint32_t> borders_;  // for each beginning of what is wanted the length of the longest shorter
                                        // beginning that it ends with
  std::size_t matched_ = 0;             // the longest beginning that the text so far ends with
  std::uint64_t compared_ = 0;
};

}  // namespace TesselServer
