#include "platform/files/FindBeneath.h"

#include <errno.h>
#include <fcntl.h>

#include <utility>

#include "platform/files/DosAttributes.h"
#include "platform/files/FileFacts.h"
#include "platform/files/PathWalk.h"

namespace TesselServer {
namespace {

// Non-blocking, so that a FIFO without a writer cannot hold the thread until it is seen to be one.
constexpr int kReadFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool IsHidden(int descriptor) {
  return (DosAttributesOf(descriptor) & (FileAttribute::kHidden | FileAttribute::kSystem)) != 0;
}

bool MayBeSpelledOtherwise(int opened) { return opened == -ENOENT || opened == -ENOTDIR || opened == -EXDEV; }

bool IsForbidden(int opened) { return opened == -EACCES || opened == -EPERM; }

// Fills in what was opened, or the kind of what may not be opened.
void Describe(OpenFunction open, int root, int opened, FoundEntry& found) {
  if (opened >= 0) {
    found.file = OpenFile(opened);
    found.kind = found.file.Kind();
    found.readable = found.file.IsOpen();
    if (found.kind == EntryKind::kFile && IsHidden(found.file.Descriptor())) found.kind = EntryKind::kNone;
  } else if (IsForbidden(opened)) {
    const int there = open(root, found.name, O_PATH | O_CLOEXEC);
    if (there >= 0) found.kind = OpenFile(there).Kind();
  }
}

}  // namespace

FoundEntry FindBeneath(OpenFunction open, int root, std::string_view relative, KnownFolders* known) {
  auto path = CollapsePath(relative);
  if (!path) return {};
  FoundEntry found;
  found.name = std::move(path->text);
  int opened = open(root, found.name, kReadFlags);
  if (MayBeSpelledOtherwise(opened)) {
    auto spelling = TrueSpelling(open, root, found.name, known);
    if (!spelling) return {};
    found.name = std::move(*spelling);
    opened = open(root, found.name, kReadFlags);
  }
  Describe(open, root, opened, found);
  if (found.kind == EntryKind::kNone || (path->asFolder && found.kind == EntryKind::kFile)) return {};
  return found;
}

}  // namespace TesselServer
