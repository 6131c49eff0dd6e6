#include "platform/files/FolderCache.h"

#include <new>
#include <utility>

#include "platform/files/PathWalk.h"
#include "platform/world/World.h"

namespace TesselServer {

FolderCache::FolderCache(std::string rootPath, const World& world, std::size_t maxBytes)
    : rootPath_(std::move(rootPath)), world_(world), maxBytes_(maxBytes), records_(maxBytes) {}

std::shared_ptr<FolderRecord> FolderCache::Find(std::string_view folder) {
  const auto* known = records_.Find(folder);
  if (known == nullptr || !(*known)->ReadAs().IsFresh(world_)) return nullptr;
  const auto stamp = StampOfPath(JoinPath(rootPath_, folder), LastLink::kFollowed);
  if (!(*known)->ReadAs().Holds(stamp, world_)) return nullptr;
  records_.IsAskedAgain(folder, world_.MonotonicMilliseconds());
  return *known;
}

std::shared_ptr<FolderRecord> FolderCache::NamesOf(std::string_view folder, int descriptor, Use use) {
  const auto stamp = StampOfDescriptor(descriptor);
  if (!stamp) return nullptr;
  try {
    const bool isAgain = records_.IsAskedAgain(folder, world_.MonotonicMilliseconds());
    const auto* known = records_.Find(folder);
    auto record = known != nullptr ? *known : nullptr;
    if (!record || !record->ReadAs().Holds(stamp, world_)) {
      const bool isOfUse = use == Use::kListing || IsSettled(*stamp, world_.FileClockNanoseconds());
      if (!isAgain || !isOfUse || HasNone(folder)) return nullptr;
      record = ReadAnew(folder, descriptor, *stamp, record.get());
    }
    if (record) record->UsedAt(world_.FileClockNanoseconds());
    return record;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

Task<std::shared_ptr<FolderRecord>> FolderCache::NamesOfInTurns(std::string folder, int descriptor, Use use, Turns*) {
  co_return NamesOf(folder, descriptor, use);
}

std::shared_ptr<FolderRecord> FolderCache::ReadAnew(std::string_view folder, int descriptor, const FileStamp& stamp,
                                                    const FolderRecord* before) {
  if (before != nullptr && before->ReadAs().Stamp().identity != stamp.identity) before = nullptr;
  std::shared_ptr<FolderRecord> record;
  if (KeepsChangeTimes(descriptor, ReadFrom::kNames)) {
    record = FolderRecord::Read(descriptor, Reading(stamp, world_), before, maxBytes_);
  }
  if (record) {
    records_.Put(folder, record, record->Bytes());
  } else {
    records_.Drop(folder);
    NoteThatItHasNone(folder);
  }
  return record;
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
