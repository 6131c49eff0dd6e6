#include "platform/files/FolderPass.h"

#include <fcntl.h>

#include <functional>
#include <utility>

#include "platform/files/SlowDisk.h"
#include "platform/tasks/Turns.h"

namespace TesselServer {

FolderPass::FolderPass(const OpenFile& directory, EntryKind wanted, std::shared_ptr<FolderRecord> record, Turns* turns)
    : directory_(directory), wanted_(wanted), turns_(turns) {
  const bool mayFetch = turns_ != nullptr && turns_->Beside().Count() > 0;
  if (!mayFetch || record || !MayWait(directory)) {
    here_.emplace(directory, wanted, std::move(record));
    if (mayFetch) here_->StayHere();
    return;
  }
  UniqueDescriptor own(fcntl(directory.Descriptor(), F_DUPFD_CLOEXEC, 0));
  if (own.IsOpen()) beside_ = std::make_shared<DirectoryReader>(std::move(own), wanted);
  isOver_ = beside_ == nullptr;
}

std::optional<DirectoryReader::Step> FolderPass::Advance() {
  isFetched_ = next_ < fetched_.size();
  if (isFetched_) {
    const NamedEntry& entry = fetched_[next_++];
    entry_ = {entry.name, entry.facts, entry.isLink};
    return DirectoryReader::Step::kEntry;
  }
  if (here_) return AdvanceHere();
  return isOver_ ? std::optional(DirectoryReader::Step::kEnd) : std::nullopt;
}

std::optional<DirectoryReader::Step> FolderPass::AdvanceHere() {
  const auto step = here_->Advance();
  return step == DirectoryReader::Step::kOnOtherMount ? std::nullopt : std::optional(step);
}

Task<void> FolderPass::Fetch() {
  const std::function<std::vector<NamedEntry>()> read = here_ ? ReadingOfOne() : ReadingOfSome();
  auto next = turns_->Beside().Do(Workers::Kind::kFiles, read);
  fetched_ = co_await next;
  next_ = 0;
  isOver_ = fetched_.empty();
}

std::function<std::vector<NamedEntry>()> FolderPass::ReadingOfSome() const {
  return [reader = beside_] { return reader->NextBatch(kFetchedAtOnce); };
}

// Without a descriptor left for it the entry is asked for here, and the loop waits.
std::function<std::vector<NamedEntry>()> FolderPass::ReadingOfOne() {
  if (!handedOver_) {
    handedOver_ = std::make_shared<const UniqueDescriptor>(fcntl(directory_.Descriptor(), F_DUPFD_CLOEXEC, 0));
  }
  const auto describe = [name = std::string(here_->Name()), wanted = wanted_](int folder) {
    std::vector<NamedEntry> entries;
    if (auto entry = DescribeEntry(folder, name, wanted)) entries.push_back(std::move(*entry));
    return entries;
  };
  if (!handedOver_->IsOpen()) {
    return [found = describe(directory_.Descriptor())] { return found; };
  }
  return [folder = handedOver_, describe] { return describe(folder->Get()); };
}

}  // namespace TesselServer
