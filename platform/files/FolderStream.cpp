#include "platform/files/FolderStream.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <functional>
#include <string_view>

#include "platform/files/SlowDisk.h"
#include "platform/tasks/Turns.h"
#include "platform/world/AsciiCase.h"

namespace TesselServer {

// What the system writes is read as what readdir(3) returns.
static_assert(sizeof(dirent) == sizeof(dirent64) && offsetof(dirent, d_name) == offsetof(dirent64, d_name));

FolderStream FolderStream::Of(int folder) {
  return FolderStream(UniqueDescriptor(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC)));
}

bool FolderStream::Fill() {
  size_ = next_ = 0;
  if (!IsOpen() || failed_) return false;
  if (!batch_) batch_ = std::make_unique_for_overwrite<char[]>(kBatchBytes);
  const ssize_t got = getdents64(folder_.Get(), batch_.get(), kBatchBytes);
  failed_ = got < 0 && errno != ENOENT;  // a folder that has been removed is at its end
  if (got > 0) size_ = static_cast<std::size_t>(got);
  return size_ > 0;
}

const dirent* FolderStream::NextOfBatch() {
  if (next_ == size_) return nullptr;
  const auto* const entry = reinterpret_cast<const dirent*>(batch_.get() + next_);
  next_ += entry->d_reclen;
  return entry;
}

const dirent* FolderStream::Next() {
  const dirent* entry = NextOfBatch();
  while (entry == nullptr && Fill()) entry = NextOfBatch();
  return entry;
}

bool FolderStream::MayWait() {
  if (!mayWait_) mayWait_ = TesselServer::MayWait(folder_.Get());
  return *mayWait_;
}

Task<bool> FillInTurns(std::shared_ptr<FolderStream> stream, Turns* turns) {
  if (turns == nullptr) co_return stream->Fill();
  if (turns->TimeIsUp()) {
    auto next = turns->Next();
    co_await next;
  }
  if (!stream->MayWait()) co_return stream->Fill();
  const std::function<bool()> fill = [stream] { return stream->Fill(); };
  auto filled = turns->Beside().Do(Workers::Kind::kFiles, fill);
  co_return co_await filled;
}

Task<std::string> FirstEqualIn(std::shared_ptr<FolderStream> stream, std::string name, Turns* turns) {
  std::string first;
  for (;;) {
    auto filled = FillInTurns(stream, turns);
    const bool hasMore = co_await filled;
    if (!hasMore) co_return first;
    while (const dirent* entry = stream->NextOfBatch()) {
      const std::string_view candidate = entry->d_name;
      if (EqualNoCase(candidate, name) && (first.empty() || candidate < first)) first = candidate;
    }
  }
}

bool TakesOtherSpellings(int descriptor) {
  int flags = 0;
  return ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_CASEFOLD_FL) != 0;
}

}  // namespace TesselServer
