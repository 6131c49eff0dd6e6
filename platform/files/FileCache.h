// Small files beneath one root with their contents, so that a file that has not changed is served without being opened.
// FileStamp.h has the rule by which it counts as the same; in addition the system is asked whether every folder on the
// path from the root to it is still a folder, for a link might leave the root. Which folders they are does not matter:
// what is found by this path is what opening the path would find.
//
// Only files that a request was answered with are remembered, so no passwords and no programs; and of those the ones
// without a link on their path, no longer than kMaxFileBytes, in a folder that knows each name in one spelling alone.
//
// What it is for: a file in the root costs one system call (newfstatat) and one more for each folder on its path, in
// place of five (openat2, fstat, fgetxattr, pread64, close). With 4,000 files of 1 KiB a look-up and reading took 2.1
// us in place of 4.0 in the root. Where it loses: three folders deep it is 3.9 in place of 4.0 us, and only the copy of
// the bytes is saved. The second request within a minute costs six calls and 5 us more, and so does one request a
// minute after that: a file that is asked for twice a minute and not more, or that changes more often than it is asked
// for, is cheaper without.
//
// Thread:    the host's thread only.
// Ownership: a file that was found lives as long as it is referenced. The world outlives the cache.
// Errors:    none; null for a file that is not remembered or has changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/files/FileStamp.h"
#include "platform/files/LruCache.h"

namespace TesselServer {

struct CachedFile {
  std::string path;     // as the system takes it
  FileIdentity folder;  // the one that it lies in
  Reading reading;
  std::shared_ptr<const std::string> contents;
};

class FileCache {
 public:
  // What all remembered files may take: some 10,000 pages of 1 KiB, or 250 files of the greatest length.
  static constexpr std::size_t kMaxBytes = 16 * 1024 * 1024;
  // The length up to which contents are kept: beyond it, what the calls cost is little beside sending the bytes.
  static constexpr std::int64_t kMaxFileBytes = 64 * 1024;
  // For callers: a file below more folders is better not remembered. Each of them is asked about at each look-up, which
  // soon costs more than opening the file, and 150 ms in a folder 2,000 deep.
  static constexpr std::ptrdiff_t kMaxFolders = 16;

  // `rootPath` as the system takes it.
  FileCache(std::string rootPath, const World& world) : rootPath_(std::move(rootPath)), world_(world) {}

  // The file `name` ("/" separators) below the root, when it is remembered and still the same.
  std::shared_ptr<const CachedFile> Find(std::string_view name);

  // Of the file that was opened by exactly this name, without following a link below the root, and has this stamp:
  // reads and remembers it at the second request. Null when it is not asked for again or cannot be remembered, for want
  // of memory among others, or because its disk would have to be waited for now.
  std::shared_ptr<const CachedFile> Admit(std::string_view name, int descriptor, const FileStamp& stamp);

  // What all of them take.
  std::size_t Bytes() const { return files_.Bytes(); }

 private:
  std::shared_ptr<const CachedFile> Read(std::string_view name, int descriptor, const FileStamp& stamp);
  bool IsTrusted(int descriptor, std::uint64_t device);

  std::string rootPath_;
  const World& world_;
  LruCache<std::shared_ptr<const CachedFile>> files_{kMaxBytes};

  // The last device of which no contents may be kept, and until when (World::MonotonicMilliseconds) it is not asked
  // again: its number may then be another file system's.
  std::optional<std::uint64_t> untrustedDevice_;
  std::int64_t untrustedUntil_ = 0;
};

// Reads `file` from its beginning to its end, whatever its length now; `expected` is what it was when it was opened.
// False when it is longer than `limit` bytes or cannot be read; `bytes` then holds what was read.
bool ReadWhole(int file, std::int64_t expected, std::int64_t limit, std::string& bytes);

}  // namespace TesselServer
