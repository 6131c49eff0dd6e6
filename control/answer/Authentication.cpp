#include "control/answer/Authentication.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "control/answer/PasswordSearch.h"
#include "platform/files/FilePieces.h"
#include "platform/files/NeighbourFile.h"
#include "support/Wipe.h"

namespace TesselServer {

namespace {

// What the password file that guards a target says: there is none, it was searched, or it admits no client.
enum class GuardFile { kNone, kSearched, kClosed };

Task<GuardFile> SearchFile(const OpenFile& file, PasswordSearch& search, Turns* turns) {
  if (file.Kind() != EntryKind::kFile || file.Size() > kMaxPasswordFileBytes) co_return GuardFile::kClosed;
  FilePieces pieces(file, kMaxPasswordFileBytes, turns);
  std::string room(pieces.UsualRoom(), '\0');
  const WipeAtEnd roomGoes(room);
  for (;;) {
    auto reading = pieces.Next(room);
    const std::size_t bytes = co_await reading;
    if (bytes == 0) co_return pieces.IsWhole() ? GuardFile::kSearched : GuardFile::kClosed;
    for (std::size_t begin = 0; begin < bytes; begin += PasswordSearch::kStretchBytes) {
      if (turns != nullptr && turns->TimeIsUp()) {
        auto next = turns->Next();
        co_await next;
      }
      search.Take(std::string_view(room).substr(begin, std::min(PasswordSearch::kStretchBytes, bytes - begin)));
    }
  }
}

Task<GuardFile> SearchSite(std::string path, PasswordSearch& search, Turns* turns) {
  auto opening = OpenPathInTurns(path, turns);
  const OpenFile file = co_await opening;
  if (file.Kind() == EntryKind::kDirectory) co_return GuardFile::kNone;
  if (!file.IsOpen()) {
    auto identifying = IdentifyInTurns(path, turns);
    const PathIdentity identity = co_await identifying;
    if (identity.state == PathIdentity::State::kMissing) co_return GuardFile::kNone;
    auto asking = KindInTurns(path, turns);
    const EntryKind kind = co_await asking;
    co_return kind == EntryKind::kDirectory ? GuardFile::kNone : GuardFile::kClosed;
  }
  auto searching = SearchFile(file, search, turns);
  co_return co_await searching;
}

Task<GuardFile> SearchFolder(const FoundEntry& target, std::string folderFile, PasswordSearch& search, Turns* turns) {
  auto finding = FindBesideInTurns(target.file, std::move(folderFile), turns);
  const NeighbourFile found = co_await finding;
  if (found.state == NeighbourFile::State::kMissing) co_return GuardFile::kNone;
  auto searching = SearchFile(found.file, search, turns);
  co_return co_await searching;
}

}  // namespace

Task<Admission> AdmissionTo(const FoundEntry& target, PasswordSource source, std::string user, std::string password,
                            Turns* turns) {
  if (!MayGuard(source.source, source.siteFile)) co_return Admission();
  PasswordSearch search(user, password);
  auto searching = source.source == e_AuthSource::DirectoryFile
                       ? SearchFolder(target, std::move(source.folderFile), search, turns)
                       : SearchSite(std::move(source.siteFile), search, turns);
  const GuardFile guard = co_await searching;
  if (guard == GuardFile::kNone) co_return Admission();
  if (guard == GuardFile::kClosed) co_return Admission{false, std::string(kDefaultRealm), false};
  co_return Admission{search.Holds(), search.Realm(), search.Holds()};
}

}  // namespace TesselServer
