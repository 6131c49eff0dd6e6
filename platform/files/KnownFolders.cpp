#include "platform/files/KnownFolders.h"

#include <new>
#include <utility>

#include "platform/files/FolderSpelling.h"
#include "platform/files/KnownPath.h"

namespace TesselServer {
const FolderNames* KnownFolders::Find(std::string_view folder) {
  const Folder* known = folders_.Find(folder);
  if (known == nullptr) return nullptr;
  if (IsFresh(known->began, FileClockNow()) && StampOfPath(known->path) == known->stamp) return &known->names;
  folders_.Drop(folder);
  return nullptr;
}

void KnownFolders::Remember(std::string_view folder, int descriptor, const FileStamp& before, std::int64_t began,
                            const std::vector<std::string>& names) {
  if (rootPath_.empty() || !IsSettled(before, began) || StampOfDescriptor(descriptor) != before) return;
  if (!KeepsChangeTimes(descriptor) || TakesOtherSpellings(descriptor)) return;
  try {
    Folder known{JoinPath(rootPath_, folder), before, began, FolderNames(names)};
    const std::size_t bytes = kEntryBytes + known.path.size() + folder.size() + known.names.Bytes();
    folders_.Put(folder, std::move(known), bytes);
  } catch (const std::bad_alloc&) {  // then it is read again
  }
}

}  // namespace TesselServer
