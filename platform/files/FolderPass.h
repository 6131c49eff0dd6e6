// One pass over an open folder for one kind of entry, in turns of the loop: what DirectoryReader reads, one name after
// the other, and batch by batch beside the loop where the folder's file system may wait. In a folder that does not, an
// entry that lies on another mount, or a link that may lead to one, is asked for beside the loop by itself.
//
//   for (;;) {
//     const auto step = pass.Advance();
//     if (step == DirectoryReader::Step::kEnd) break;
//     if (step == DirectoryReader::Step::kEntry) Show(pass.Entry());
//     if (step) continue;
//     auto fetched = pass.Fetch();
//     co_await fetched;
//   }
//
// Thread:    the loop's thread.
// Ownership: has a descriptor of its own as long as it lives, unless the names are remembered; the open folder and the
//            turns outlive it. What is fetched beside the loop when it is destroyed is dropped there.
// Errors:    as DirectoryReader. Fetch throws what memory running out throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/files/DirectoryReader.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class Turns;

class FolderPass {
 public:
  // How many entries one piece of work fetches: a few, for a disk may take a while for each.
  static constexpr std::size_t kFetchedAtOnce = 32;

  // As for DirectoryReader. `turns` nullptr: everything is read in the call, and nothing is ever fetched.
  FolderPass(const OpenFile& directory, EntryKind wanted, std::shared_ptr<FolderRecord> record, Turns* turns);
  FolderPass(const FolderPass&) = delete;
  FolderPass& operator=(const FolderPass&) = delete;

  std::size_t ExpectedEntries() const { return here_ ? here_->ExpectedEntries() : 0; }

  // Goes on to the next name. Nothing where Fetch has to come first.
  std::optional<DirectoryReader::Step> Advance();

  // After kEntry, until the next Advance.
  const DirectoryEntry& Entry() const { return isFetched_ ? entry_ : here_->Entry(); }
  bool KindIsRecorded() const { return !isFetched_ && here_->KindIsRecorded(); }

  // Fetches the next entries beside the loop.
  Task<void> Fetch();

 private:
  std::optional<DirectoryReader::Step> AdvanceHere();
  std::function<std::vector<NamedEntry>()> ReadingOfOne();
  std::function<std::vector<NamedEntry>()> ReadingOfSome() const;

  const OpenFile& directory_;
  EntryKind wanted_;
  Turns* turns_;
  std::optional<DirectoryReader> here_;                 // where the folder is read in the turn
  std::shared_ptr<DirectoryReader> beside_;             // and where it is not; work under way shares it
  std::shared_ptr<const UniqueDescriptor> handedOver_;  // the folder, for what is asked for one by one
  std::vector<NamedEntry> fetched_;
  std::size_t next_ = 0;
  bool isOver_ = false;     // what was fetched last was the end
  bool isFetched_ = false;  // the entry
  DirectoryEntry entry_;
};

}  // namespace TesselServer
