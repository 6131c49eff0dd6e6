#include "platform/internal/KnownFolders.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <optional>
#include <utility>

#include "platform/internal/KnownPath.h"

namespace TesselServer {
namespace {

// A folder whose file system itself takes names in other spellings, those of letters beyond ASCII included, knows more
// names than it lists (FS_IOC_GETFLAGS, ioctl_iflags(2)).
bool TakesOtherSpellings(int descriptor) {
  int flags = 0;
  return ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_CASEFOLD_FL) != 0;
}

}  // namespace

const FolderNames* KnownFolders::Find(std::string_view folder) {
  const Folder* known = folders_.Find(folder);
  if (known == nullptr) return nullptr;
  if (StampOfPath(known->path) == known->stamp) return &known->names;
  folders_.Drop(folder);
  return nullptr;
}

void KnownFolders::Remember(std::string_view folder, int descriptor, const FileStamp& before, std::int64_t began,
                            const std::vector<std::string>& names) {
  if (rootPath_.empty() || !IsSettled(before, began) || StampOfDescriptor(descriptor) != before) return;
  if (!KeepsChangeTimes(descriptor) || TakesOtherSpellings(descriptor)) return;
  Folder known{JoinPath(rootPath_, folder), before, FolderNames(names)};
  const std::size_t bytes = kEntryBytes + known.path.size() + folder.size() + known.names.Bytes();
  folders_.Put(folder, std::move(known), bytes);
}

}  // namespace TesselServer
