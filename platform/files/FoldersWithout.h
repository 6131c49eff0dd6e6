// Folders of which it is known that no file in them has a certain name, in whatever spelling, so that the names of a
// large folder are not read for each request that asks for it. What is known holds by the rule of FileStamp.h: a folder
// that has changed is looked at anew.
//
// Thread:    the loop's thread.
// Ownership: a value; the world outlives it.
// Errors:    those of memory running out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include "platform/files/FileStamp.h"

namespace TesselServer {

class FoldersWithout {
 public:
  // Some 100 KiB. When so many are known all are forgotten, which costs each one more reading.
  static constexpr std::size_t kMaxFolders = 1024;

  explicit FoldersWithout(const World& world) : world_(world) {}

  // Whether the folder is known to be without the name. Platform only, as Begin and Learn.
  bool Has(const FileStamp& folder) const {
    const auto known = folders_.find(KeyOf(folder));
    return known != folders_.end() && known->second.Holds(folder, world_);
  }

  // Its names are about to be read.
  Reading Begin(const FileStamp& folder) const { return Reading(folder, world_); }

  // The name was not among them; `descriptor` is the open folder.
  void Learn(const Reading& reading, int descriptor) {
    if (!reading.IsSettled() || !KeepsChangeTimes(descriptor, ReadFrom::kNames)) return;
    if (folders_.size() >= kMaxFolders) folders_.clear();
    folders_.insert_or_assign(KeyOf(reading.Stamp()), reading);
  }

 private:
  using Key = std::pair<std::uint64_t, std::uint64_t>;
  static Key KeyOf(const FileStamp& folder) { return {folder.identity.device, folder.identity.inode}; }

  const World& world_;
  std::map<Key, Reading> folders_;
};

}  // namespace TesselServer
