// The walk from a folder along a path to the spelling that the path has on disk, one step after the other. It says
// where it needs the names in a folder, and goes on with the one that was found there: reading them is the caller's
// part.
//
//   SpellingWalk walk(&OpenBeneath, root, "docs/a.htm");
//   auto state = SpellingWalk::State::kHasMore;
//   for (;;) {
//     if (state == SpellingWalk::State::kHasMore) {
//       state = walk.Step();
//     } else if (state == SpellingWalk::State::kNeedsNames) {
//       state = walk.GoOn(FirstEqualIn(walk.OpenFolder(flags), walk.Wanted()));
//     } else {
//       break;
//     }
//   }
//   if (state == SpellingWalk::State::kFound) Open(walk.TakePath());
//
// A step is one component, or a stretch of components that are there in the spelling given: all but the last at first,
// then twice as many after each success. It is opened below what the walk has come to, so that no component is walked
// again by the system; what cannot be reached so (a link that climbs) is tried from the folder. A walk of 2,000
// folders, each in another spelling, costs 2,000 such openings and not two million components; the one case that is no
// cheaper is a path of links that climb, of which the system follows 40.
//
// Thread:    any.
// Ownership: keeps its own copy of the path, and one open descriptor; the folder's descriptor stays the caller's.
// Errors:    what the way of opening raises.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "platform/files/OpenPaths.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class SpellingWalk {
 public:
  enum class State {
    kHasMore,  // so far all is there; Step goes on
    kFound,
    kMissing,
    kNeedsNames,      // the folder Folder() has no entry that is spelled Wanted()
    kLeadsElsewhere,  // where the way of opening does not go (OpenPaths.h, kElsewhere)
  };

  // `path` has "/" separators; `open` and `folder` as in TrueSpelling.
  SpellingWalk(OpenFunction open, int folder, std::string path);

  // Makes the next step: a microsecond or two, and 80 ns for each component of a stretch.
  State Step();

  // Goes on from kNeedsNames with what Wanted() is called in that folder, "" where it is not there.
  State GoOn(std::string_view name);

  const std::string& Folder() const { return walked_; }
  const std::string& Wanted() const { return wanted_; }

  // Opens Folder() with open(2) `flags`: what the walk has come to, whatever has that name now.
  UniqueDescriptor OpenFolder(int flags) const;

  // What the walk costs, in components that the system had to walk along (80 ns each): those of the path to begin with,
  // those that were opened, and kOpening for each call.
  std::size_t Effort() const { return effort_; }

  // After kFound.
  std::string TakePath() { return std::move(walked_); }

 private:
  static constexpr std::size_t kOpening = 16;

  struct Stretch {
    std::string text;       // the components, one "/" between them
    std::size_t count = 0;  // of components
    std::size_t end = 0;    // where in the path what follows begins
  };

  Stretch Next() const;
  State TryStretch(const Stretch& stretch);
  State TryOne(Stretch&& one);
  State After(UniqueDescriptor opened, std::string_view name);
  std::string Joined(std::string_view rest) const;
  UniqueDescriptor Open(const std::string& rest, std::size_t count);
  UniqueDescriptor OpenName(const std::string& name);
  UniqueDescriptor OpenFromFolder(const std::string& path);
  State ReplaceByTarget(OpenFunction open);

  OpenFunction open_;
  int folder_;
  std::string path_;
  std::size_t next_ = 0;  // where what is not walked yet begins in the path
  std::string walked_;
  UniqueDescriptor here_{-1};  // what walked_ leads to; none where that has to be opened from the folder
  std::string wanted_;
  std::size_t stride_ = 1;    // how many components the next step tries
  bool isNarrowing_ = false;  // a stretch was not there: shorter ones are tried until the component is known
  bool isFirst_ = true;       // no step has been made
  std::size_t effort_ = 0;
};

}  // namespace TesselServer
