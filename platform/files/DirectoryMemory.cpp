#include "platform/files/DirectoryMemory.h"

#include <sys/stat.h>

#include <new>
#include <string>

#include "platform/files/FileStamp.h"
#include "platform/files/FolderRecord.h"

namespace TesselServer {

namespace {

// Which folder it is, whatever name leads to it.
std::string KeyOf(const FileStamp& folder) {
  return std::to_string(folder.device) + "/" + std::to_string(folder.inode);
}

}  // namespace

DirectoryMemory::DirectoryMemory(std::int64_t (*now)(), std::size_t maxBytes)
    : now_(now == nullptr ? &FileClockNow : now), maxBytes_(maxBytes), records_(maxBytes) {}

DirectoryMemory::~DirectoryMemory() = default;

std::shared_ptr<FolderRecord> DirectoryMemory::NamesOf(int descriptor) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return nullptr;
  const FileStamp stamp = FileStampOf(status);
  try {
    const std::string key = KeyOf(stamp);
    const auto* known = records_.Find(key);
    std::shared_ptr<FolderRecord> before = known != nullptr ? *known : nullptr;
    const std::int64_t began = now_();
    if (before && before->Holds(stamp, began)) return before;
    std::shared_ptr<FolderRecord> record;
    if (KeepsChangeTimes(descriptor)) {
      record = FolderRecord::Read(descriptor, stamp, began, before.get(), maxBytes_);
    }
    record ? records_.Put(key, record, record->Bytes()) : records_.Drop(key);
    return record;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace TesselServer
