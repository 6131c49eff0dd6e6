#include "platform/DirectoryMemory.h"

#include <sys/stat.h>

#include <new>

#include "platform/internal/FileStamp.h"
#include "platform/internal/FolderRecord.h"

namespace TesselServer {

DirectoryMemory::DirectoryMemory(std::int64_t (*now)(), std::size_t maxBytes)
    : now_(now == nullptr ? &FileClockNow : now), maxBytes_(maxBytes) {}

DirectoryMemory::~DirectoryMemory() = default;

std::shared_ptr<FolderRecord> DirectoryMemory::NamesOf(int descriptor) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return nullptr;
  const FileStamp stamp = FileStampOf(status);
  const Key key(stamp.device, stamp.inode);
  const auto place = places_.find(key);
  std::shared_ptr<FolderRecord> before;
  if (place != places_.end()) {
    records_.splice(records_.begin(), records_, place->second);
    before = records_.front();
    if (before->Holds(stamp, now_())) return before;
  }
  const std::int64_t began = now_();
  try {
    std::shared_ptr<FolderRecord> record;
    if (KeepsChangeTimes(descriptor)) {
      record = FolderRecord::Read(descriptor, stamp, began, before.get(), maxBytes_);
    }
    Forget(key);
    if (record) Remember(key, record);
    return record;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void DirectoryMemory::Remember(const Key& key, std::shared_ptr<FolderRecord> record) {
  Records added{std::move(record)};
  places_.emplace(key, added.begin());
  records_.splice(records_.begin(), added);
  bytes_ += records_.front()->Bytes();
  while (bytes_ > maxBytes_) {
    const FileStamp& oldest = records_.back()->Stamp();
    Forget({oldest.device, oldest.inode});
  }
}

void DirectoryMemory::Forget(const Key& key) {
  const auto place = places_.find(key);
  if (place == places_.end()) return;
  bytes_ -= (*place->second)->Bytes();
  records_.erase(place->second);
  places_.erase(place);
}

}  // namespace TesselServer
