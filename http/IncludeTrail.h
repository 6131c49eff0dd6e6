// The chain of pages that include a page, and how much they may still include together.
//
// Thread:    the host's thread only.
// Ownership: each trail is on the stack of its page's processing, inside that of the page outside it.
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

}  // namespace TesselServer
