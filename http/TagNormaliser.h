// Brings the tags of a page into the compact form that the processors look for.
//
// Thread:    any.
// Errors:    none.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "http/TagSearch.h"

namespace TesselServer {

// `page` without the blanks and double quotes between an opener and the next ">": first for every "<!--#",
// then for every "<%". An opener with no ">" after it ends the work for its kind.
// kept: blanks within names inside such tags are lost too.
//
//   NormaliseTags("<!--#include file = \"a b.htm\" -->");  // "<!--#includefile=ab.htm-->"
std::string NormaliseTags(std::string page);

// The same, step by step.
//
// Ownership: borrows the page, which is the result when it is done and not defined before.
class TagNormaliser {
 public:
  // `window`: how many bytes a step looks at.
  explicit TagNormaliser(std::string& page, std::size_t window = kSearchWindow) : text_(page), window_(window) {}

  // Makes a step; how many bytes it has looked at or moved, 0 when all is done.
  std::size_t Step();

 private:
  enum class Phase { kOpener, kEnd, kKeep, kStrip, kRest, kDone };

  std::size_t FindTag();
  std::size_t FindEnd();
  std::size_t Keep(std::size_t end, Phase next);
  std::size_t Strip();
  std::size_t KeepRest();

  std::string& text_;
  std::size_t window_;
  std::string_view opener_ = kDirectiveStart;
  Phase phase_ = Phase::kOpener;
  std::size_t seek_ = 0;  // where the search goes on
  std::size_t tag_ = 0;
  std::size_t end_ = 0;   // of the tag: the place of its ">"
  std::size_t kept_ = 0;  // how much of the result there is: what is kept moves up to it
  std::size_t read_ = 0;  // everything in front of it is kept or dropped
};

}  // namespace TesselServer
