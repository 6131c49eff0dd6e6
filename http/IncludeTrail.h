// The chain of pages that include a page, and how much they may still include together.
//
// Thread:    the host's thread only.
// Ownership: each trail lives in the task that processes its page, which that of the page outside it owns.
// Errors:    none.
#pragma once

#include <cstdint>

#include "platform/files/FileSystem.h"

namespace TesselServer {

// What one requested page may take in, its includes' includes and so on counted in. What would pass it stays a
// directive.
struct IncludeRoom {
  static constexpr std::int64_t kMaxBytes = 16 * 1024 * 1024;  // more than any reader wants, less than hurts the host
  static constexpr std::int32_t kMaxNames = 4096;              // bounds pages that take in nothing but each other
  // A missing file costs a walk over its folder, so fewer of those are allowed; after the last one nothing more is
  // looked up.
  static constexpr std::int32_t kMaxMissing = 128;

  std::int64_t bytes = kMaxBytes;
  std::int32_t names = kMaxNames;
  std::int32_t missing = kMaxMissing;
};

struct IncludeTrail {
  static constexpr int kMaxDepth = 8;  // includes within includes

  FileIdentity file;
  const IncludeTrail* outer = nullptr;  // the trail of the page that includes it; null for the requested one
  int depth = 0;
  IncludeRoom* room = nullptr;

  // Whether the page, or one that includes it, is that file.
  bool Holds(const FileIdentity& other) const {
    for (const IncludeTrail* trail = this; trail != nullptr; trail = trail->outer) {
      if (trail->file == other) return true;
    }
    return false;
  }
};

// Takes room for the file of an included page for as long as that is processed.
class RoomForPage {
 public:
  RoomForPage(IncludeRoom& room, std::int64_t size) : room_(room), before_(room.bytes) { room_.bytes -= size; }
  RoomForPage(const RoomForPage&) = delete;
  RoomForPage& operator=(const RoomForPage&) = delete;
  ~RoomForPage() { room_.bytes = before_; }

 private:
  IncludeRoom& room_;
  const std::int64_t before_;
};

// Has a record know the trail of its page for as long as that is processed, whichever way this ends.
class LaidTrail {
 public:
  LaidTrail(const IncludeTrail*& place, const IncludeTrail& trail) : place_(place) { place_ = &trail; }
  LaidTrail(const LaidTrail&) = delete;
  LaidTrail& operator=(const LaidTrail&) = delete;
  ~LaidTrail() { place_ = nullptr; }

 private:
  const IncludeTrail*& place_;
};

}  // namespace TesselServer
