// The walk from a folder along a path, component by component, to the spelling that the path has on disk. It says where
// it needs the names in a folder, and goes on with the one that was found there: reading them is the caller's part.
//
//   SpellingWalk walk(&OpenBeneath, root, "docs/a.htm");
//   auto state = walk.Go();
//   while (state == SpellingWalk::State::kNeedsNames) {
//     state = walk.GoOn(FirstEqualIn(walk.Folder(), walk.Wanted()));
//   }
//   if (state == SpellingWalk::State::kFound) Open(walk.TakePath());
//
// Thread:    any.
// Ownership: keeps its own copy of the path; the folder's descriptor stays the caller's.
// Errors:    what the way of opening raises.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/files/OpenPaths.h"

namespace TesselServer {

class SpellingWalk {
 public:
  enum class State {
    kFound,
    kMissing,
    kNeedsNames,      // the folder Folder() has no entry that is spelled Wanted()
    kLeadsElsewhere,  // where the way of opening does not go (OpenPaths.h, kElsewhere)
  };

  // `path` has "/" separators; `open` and `folder` as in TrueSpelling.
  SpellingWalk(OpenFunction open, int folder, std::string path);

  // Goes as far as every component is there in the spelling given.
  State Go();

  // Goes on from kNeedsNames with what Wanted() is called in that folder, "" where it is not there.
  State GoOn(std::string_view name);

  const std::string& Folder() const { return walked_; }
  const std::string& Wanted() const { return wanted_; }

  // After kFound.
  std::string TakePath() { return std::move(walked_); }

 private:
  State Step();
  State After(int probed);
  int Probe() const;
  State ReplaceByTarget(OpenFunction open);

  OpenFunction open_;
  int folder_;
  std::string path_;
  std::size_t next_ = 0;  // where the component after the wanted one begins in the path
  std::string walked_;
  std::string wanted_;
};

}  // namespace TesselServer
