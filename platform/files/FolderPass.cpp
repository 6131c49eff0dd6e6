#include "platform/files/FolderPass.h"

#include <fcntl.h>

#include <functional>
#include <utility>

#include "platform/files/SlowDisk.h"
#include "platform/tasks/Turns.h"

namespace TesselServer {
FolderPass::FolderPass(const OpenFile& directory, EntryKind wanted, std::shared_ptr<FolderRecord> record, Turns* turns)
    : turns_(turns) {
  if (turns_ == nullptr || turns_->Beside().Count() == 0 || record || !MayWait(directory.Descriptor())) {
    here_.emplace(directory, wanted, std::move(record));
    return;
  }
  UniqueDescriptor own(fcntl(directory.Descriptor(), F_DUPFD_CLOEXEC, 0));
  if (own.IsOpen()) beside_ = std::make_shared<DirectoryReader>(std::move(own), wanted);
  isOver_ = beside_ == nullptr;
}

std::optional<DirectoryReader::Step> FolderPass::Advance() {
  if (here_) return here_->Advance();
  if (next_ == fetched_.size()) return isOver_ ? std::optional(DirectoryReader::Step::kEnd) : std::nullopt;
  const NamedEntry& entry = fetched_[next_++];
  entry_ = {entry.name, entry.facts, entry.isLink};
  return DirectoryReader::Step::kEntry;
}

Task<void> FolderPass::Fetch() {
  std::function<std::vector<NamedEntry>()> read = [reader = beside_] { return reader->NextBatch(kFetchedAtOnce); };
  auto next = turns_->Beside().Do(Workers::Kind::kFiles, std::move(read));
  fetched_ = co_await next;
  next_ = 0;
  isOver_ = fetched_.empty();
}

}  // namespace TesselServer
