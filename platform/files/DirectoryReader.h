// One pass over an open folder, for one kind of entry.
//
// Nothing is opened by name: facts are asked for through the folder's descriptor, so the pass stays in that folder
// whatever happens to its path.
//
// Thread:    any one at a time; with a record, the host's thread only.
// Ownership: has a descriptor of its own as long as it lives, unless the names are remembered; the open folder must
//            outlive it, unless it was handed over.
// Errors:    none; a folder that cannot be read, or has been removed, has no entries. An entry that vanishes during the
//            pass is left out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/FileFacts.h"
#include "platform/files/FileSystem.h"
#include "platform/world/UniqueDescriptor.h"

struct stat;

namespace TesselServer {

class FolderRecord;
class FolderStream;

struct DirectoryEntry {
  std::string_view name;  // raw bytes as on disk, 1 to 255; until the reader's next call
  FileFacts facts;        // of the target when it is a link
  bool isLink = false;    // its target may lie anywhere: the caller decides whether it may be shown
};

// An entry with a name of its own.
struct NamedEntry {
  std::string name;
  FileFacts facts;
  bool isLink = false;
};

//   DirectoryReader files(folder, EntryKind::kFile);
//   while (const auto entry = files.Next()) Show(entry->name, entry->facts.size);
class DirectoryReader {
 public:
  // Begins a pass for the entries of the kind `wanted`. The position of `directory` itself is not moved. The names come
  // from `record`, which has just been found valid (FolderCache::NamesOf); with nullptr the folder is read.
  DirectoryReader(const OpenFile& directory, EntryKind wanted, std::shared_ptr<FolderRecord> record = nullptr);

  // A pass over the folder open as `directory`, which it takes over; begins with the first call, so that whoever makes
  // it need not wait for the disk.
  DirectoryReader(UniqueDescriptor directory, EntryKind wanted);

  DirectoryReader(const DirectoryReader&) = delete;
  DirectoryReader& operator=(const DirectoryReader&) = delete;
  ~DirectoryReader();

  // False when the pass could not begin, or has not yet.
  bool IsOpen() const { return record_ != nullptr || stream_ != nullptr; }

  // How many entries of any kind there are, where it is known before the pass; else 0.
  std::size_t ExpectedEntries() const;

  // The next regular file or folder, in the system's own order, which no call sorts; nothing at the end. "." and ".."
  // are folders like others. A link counts as what it leads to, one that leads to neither is left out. Attributes kept
  // in the extended attribute are asked for files only; before Linux 6.13 that needs /proc, and where it is not mounted
  // there are none.
  std::optional<DirectoryEntry> Next();

  // As Next, one name at a time, since a folder may have any number of names that are not wanted.
  enum class Step {
    kEntry,         // it is wanted: see Entry
    kAsked,         // it is not, and the system was asked for that
    kSkipped,       // it is not, by what the folder itself says of it, which costs next to nothing
    kOnOtherMount,  // or may be, and is not asked for (StayHere): see Name
    kEnd,           // there is none any more
  };
  Step Advance();

  // From here on no other mount is entered, so that nothing has to be waited for where the folder itself does not wait:
  // what lies on another one, or is a link that may lead to one, is kOnOtherMount. DescribeEntry asks for that beside
  // the loop.
  void StayHere() { staysHere_ = true; }

  // After kOnOtherMount, until the next call.
  const char* Name() const { return name_; }

  // After kEntry, until the next call.
  const DirectoryEntry& Entry() const { return entry_; }

  // After kEntry, until the next call: the record says which kind it is, so no pass for the other kind has this entry.
  bool KindIsRecorded() const { return kindIsRecorded_; }

  // The next entries, up to `most` of them; none at the end.
  std::vector<NamedEntry> NextBatch(std::size_t most);

 private:
  Step AdvanceRemembered();
  Step Describe(const char* name, unsigned char type);
  Step StatHere(const char* name, struct stat& status);
  std::uint32_t KeptAttributes(const char* name, const struct stat& status, bool isLink);

  UniqueDescriptor own_{-1};  // of the folder, where it was handed over
  int directory_;
  EntryKind wanted_;
  bool hasBegun_ = true;
  bool staysHere_ = false;
  std::uint64_t device_ = 0;  // of the folder, as long as it stays there
  std::uint32_t deviceMajor_ = 0;
  std::uint32_t deviceMinor_ = 0;
  const char* name_ = "";
  DirectoryEntry entry_;
  bool kindIsRecorded_ = false;
  std::shared_ptr<FolderRecord> record_;            // what the pass goes through, where it is remembered
  std::unique_ptr<FolderStream> stream_;            // and where it is not
  std::size_t next_ = 0;                            // in the record
  std::optional<std::uint64_t> withoutAttributes_;  // a file system (st_dev) that is known to keep none
};

// The entry `name` of the open folder, as a reader that wants this kind has it; nothing where it is not wanted. Any
// thread; may wait.
std::optional<NamedEntry> DescribeEntry(int directory, const std::string& name, EntryKind wanted);

}  // namespace TesselServer
