#include "platform/files/FolderCache.h"

#include <new>
#include <utility>

#include "platform/files/PathWalk.h"
#include "platform/world/World.h"

namespace TesselServer {

// Sets a flag for as long as it lives.
class FolderCache::Busy {
 public:
  explicit Busy(bool& flag) : flag_(flag) { flag_ = true; }
  Busy(const Busy&) = delete;
  Busy& operator=(const Busy&) = delete;
  ~Busy() { flag_ = false; }

 private:
  bool& flag_;
};

FolderCache::FolderCache(std::string rootPath, const World& world, std::size_t maxBytes)
    : rootPath_(std::move(rootPath)), world_(world), maxBytes_(maxBytes), records_(maxBytes) {}

std::shared_ptr<FolderRecord> FolderCache::Find(std::string_view folder) {
  const auto* known = records_.Find(folder);
  if (known == nullptr || !(*known)->ReadAs().IsFresh(world_)) return nullptr;
  const auto stamp = StampOfPath(JoinPath(rootPath_, folder), LastLink::kFollowed);
  if (stamp && stamp->identity.device != (*known)->ReadAs().Stamp().identity.device) {
    records_.Drop(folder);  // another disk, which may have to be waited for each time
    return nullptr;
  }
  if (!(*known)->ReadAs().Holds(stamp, world_)) return nullptr;
  records_.IsAskedAgain(folder, world_.MonotonicMilliseconds());
  return *known;
}

FolderCache::Answer FolderCache::Ask(std::string_view folder, int descriptor, Use use) {
  const auto stamp = StampOfDescriptor(descriptor);
  if (!stamp) return {};
  const bool isAgain = records_.IsAskedAgain(folder, world_.MonotonicMilliseconds());
  const auto* known = records_.Find(folder);
  auto record = known != nullptr ? *known : nullptr;
  if (record && record->ReadAs().Holds(stamp, world_)) {
    record->UsedAt(world_.FileClockNanoseconds());
    return {std::move(record), std::nullopt};
  }
  const bool isOfUse = use == Use::kListing || IsSettled(*stamp, world_.FileClockNanoseconds());
  if (!isAgain || !isOfUse || isReading_ || HasNone(folder)) return {};
  return {std::move(record), stamp};
}

std::shared_ptr<FolderRecord> FolderCache::NamesOf(std::string_view folder, int descriptor, Use use) {
  try {
    Answer known = Ask(folder, descriptor, use);
    if (!known.toBeRead) return known.record;
    return RunNow(ReadAnew(std::string(folder), descriptor, *known.toBeRead, std::move(known.record), nullptr));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

Task<std::shared_ptr<FolderRecord>> FolderCache::NamesOfInTurns(std::string folder, int descriptor, Use use,
                                                                Turns* turns) {
  try {
    Answer known = Ask(folder, descriptor, use);
    if (!known.toBeRead) co_return std::move(known.record);
    auto read = ReadAnew(std::move(folder), descriptor, *known.toBeRead, std::move(known.record), turns);
    co_return co_await read;
  } catch (const std::bad_alloc&) {
    co_return nullptr;
  }
}

Task<std::shared_ptr<FolderRecord>> FolderCache::ReadAnew(std::string folder, int descriptor, FileStamp stamp,
                                                          std::shared_ptr<const FolderRecord> before, Turns* turns) {
  const Busy busy(isReading_);
  if (before && before->ReadAs().Stamp().identity != stamp.identity) before = nullptr;
  std::shared_ptr<FolderRecord> record;
  if (KeepsChangeTimes(descriptor, ReadFrom::kNames)) {
    auto read = FolderRecord::ReadInTurns(descriptor, Reading(stamp, world_), std::move(before), maxBytes_, turns);
    record = co_await read;
  }
  if (record) {
    record->UsedAt(world_.FileClockNanoseconds());
    records_.Put(folder, record, record->Bytes());
  } else {
    records_.Drop(folder);
    NoteThatItHasNone(folder);
  }
  co_return record;
}

bool FolderCache::HasNone(std::string_view folder) {
  const auto* tried = withoutRecord_.Find(folder);
  return tried != nullptr && world_.MonotonicMilliseconds() - *tried < Reading::kMaxAgeMilliseconds;
}

void FolderCache::NoteThatItHasNone(std::string_view folder) {
  constexpr std::size_t kNoteBytes = 128;  // beside the name: its places in a list and a table
  withoutRecord_.Put(folder, world_.MonotonicMilliseconds(), kNoteBytes + folder.size());
}

bool FolderCache::Lacks(std::string_view path) {
  std::string_view folder = path;
  for (int lookedFor = 0; lookedFor < kMaxFoldersLookedFor && !folder.empty(); ++lookedFor) {
    const std::size_t cut = folder.rfind('/');
    const std::size_t next = cut == std::string_view::npos ? 0 : cut + 1;
    folder = folder.substr(0, next == 0 ? 0 : cut);
    const auto* known = records_.Find(folder);
    if (known == nullptr || !(*known)->IsSorted() || (*known)->TakesOtherSpellings()) continue;
    const std::string_view rest = path.substr(next);
    if (!(*known)->FirstEqual(rest.substr(0, rest.find('/'))).empty()) return false;
    if (Find(folder) != nullptr) return true;
  }
  return false;
}

}  // namespace TesselServer
