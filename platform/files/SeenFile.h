// An open file as it was when it was looked at, by which it is known again as unchanged (FileStamp.h has the rule).
//
// Thread:    any.
// Ownership: a value; no descriptor is kept.
// Errors:    none.
#pragma once

#include "platform/files/FileStamp.h"
#include "platform/files/FileSystem.h"

namespace TesselServer {

class SeenFile {
 public:
  // A look that begins now, before the file is read.
  SeenFile(const OpenFile& file, const World& world) : reading_(file.Stamp(), world) {}

  // Whether `now`, opened anew, is that file with the same contents. Never a minute after the look, and never where the
  // file had been changed within the two seconds before it.
  bool IsStill(const OpenFile& now, const World& world) const {
    return reading_.IsSettled() && reading_.Holds(now.Stamp(), world);
  }

  // Whether IsStill can be True at all.
  bool IsOfUse(const World& world) const { return reading_.IsSettled() && reading_.IsFresh(world); }

 private:
  Reading reading_;
};

}  // namespace TesselServer
