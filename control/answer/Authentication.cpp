#include "control/answer/Authentication.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "platform/files/NeighbourFile.h"
#include "platform/world/AsciiCase.h"
#include "support/Text.h"
#include "support/Wipe.h"

namespace TesselServer {

namespace {

constexpr std::string_view kRealmKey = "realm:";

// The passwords that guard a target: none, a text, or a file that admits no client. They stay in their place, so that
// no copy of them is left in freed memory.
struct Passwords {
  enum class State { kNone, kRead, kClosed };
  State state = State::kNone;
  std::string text;

  Passwords() = default;
  Passwords(const Passwords&) = delete;
  Passwords& operator=(const Passwords&) = delete;
  ~Passwords() { Wipe(text); }
};

Task<void> ReadFrom(const OpenFile& file, Passwords& passwords, Turns* turns) {
  passwords.state = Passwords::State::kClosed;
  if (file.Kind() != EntryKind::kFile || file.Size() > kMaxPasswordFileBytes) co_return;
  auto reading = ReadInTurns(file, passwords.text, kMaxPasswordFileBytes, turns);
  const bool isRead = co_await reading;
  if (isRead) passwords.state = Passwords::State::kRead;
}

Task<void> ReadOfSite(std::string path, Passwords& passwords, Turns* turns) {
  auto identifying = IdentifyInTurns(path, turns);
  const PathIdentity identity = co_await identifying;
  if (identity.state == PathIdentity::State::kMissing) co_return;
  auto asking = KindInTurns(path, turns);
  const EntryKind kind = co_await asking;
  if (kind == EntryKind::kDirectory) co_return;
  auto opening = OpenPathInTurns(path, turns);
  const OpenFile file = co_await opening;
  auto reading = ReadFrom(file, passwords, turns);
  co_await reading;
}

Task<void> ReadOfFolder(const FoundEntry& target, std::string folderFile, Passwords& passwords, Turns* turns) {
  auto search = FindBesideInTurns(target.file, std::move(folderFile), turns);
  const NeighbourFile found = co_await search;
  if (found.state == NeighbourFile::State::kMissing) co_return;
  auto reading = ReadFrom(found.file, passwords, turns);
  co_await reading;
}

// How much of a password file is searched between two looks at the clock: some 50 us.
constexpr std::size_t kSearchedBytes = 32 * 1024;

// Whether `wanted`, in lower case, is in `text` in any case.
bool Holds(std::string_view text, const std::boyer_moore_searcher<std::string::const_iterator>& wanted) {
  std::string searched = Lower(text);
  const WipeAtEnd searchedGoes(searched);
  return std::search(searched.cbegin(), searched.cend(), wanted) != searched.cend();
}

// Goes through a text for the line that begins with the key, a stretch at a time.
class RealmSearch {
 public:
  explicit RealmSearch(std::string_view text) : text_(text) {}

  // Looks at so many bytes more. False at the end of the search.
  bool Step(std::size_t bytes) {
    for (const std::size_t end = std::min(next_ + bytes, text_.size()); next_ < end; ++next_) {
      const char c = text_[next_];
      if (isLineStart_ && EqualNoCase(text_.substr(next_, kRealmKey.size()), kRealmKey)) {
        found_ = next_ + kRealmKey.size();
        return false;
      }
      isLineStart_ = c == '\r' || c == '\n' || (isLineStart_ && c == ' ');
    }
    return next_ < text_.size();
  }

  std::string Realm() const {
    const std::string_view rest = text_.substr(std::min(found_, text_.size()));
    std::string realm(Trim(rest.substr(0, rest.find_first_of("\r\n"))));
    realm.erase(std::remove_if(realm.begin(), realm.end(), IsControl), realm.end());
    return realm.empty() ? std::string(kDefaultRealm) : realm;
  }

 private:
  std::string_view text_;
  std::size_t next_ = 0;
  std::size_t found_ = std::string_view::npos;  // where the realm begins
  bool isLineStart_ = true;
};

}  // namespace

Task<bool> HoldsPassword(std::string_view text, std::string user, std::string password, Turns* turns) {
  if (user.empty()) co_return false;
  const std::string wanted = Lower(user + ":" + password);
  // linear whatever the client sends; a plain search is not, where the file repeats itself
  const std::boyer_moore_searcher search(wanted.cbegin(), wanted.cend());
  for (std::size_t begin = 0; begin < text.size(); begin += kSearchedBytes) {
    // what begins in this stretch may end in the next
    if (Holds(text.substr(begin, kSearchedBytes + wanted.size() - 1), search)) co_return true;
    if (turns == nullptr || !turns->TimeIsUp()) continue;
    auto next = turns->Next();
    co_await next;
  }
  co_return false;
}

Task<std::string> RealmOf(std::string_view text, Turns* turns) {
  RealmSearch search(text);
  while (search.Step(kSearchedBytes)) {
    if (turns == nullptr || !turns->TimeIsUp()) continue;
    auto next = turns->Next();
    co_await next;
  }
  co_return search.Realm();
}

Task<Admission> AdmissionTo(const FoundEntry& target, PasswordSource source, std::string user, std::string password,
                            Turns* turns) {
  if (!MayGuard(source.source, source.siteFile)) co_return Admission();
  Passwords passwords;
  auto reading = source.source == e_AuthSource::DirectoryFile
                     ? ReadOfFolder(target, std::move(source.folderFile), passwords, turns)
                     : ReadOfSite(std::move(source.siteFile), passwords, turns);
  co_await reading;
  if (passwords.state == Passwords::State::kNone) co_return Admission();
  if (passwords.state == Passwords::State::kClosed) co_return Admission{false, std::string(kDefaultRealm), false};
  auto comparing = HoldsPassword(passwords.text, std::move(user), std::move(password), turns);
  const bool holds = co_await comparing;
  auto naming = RealmOf(passwords.text, turns);
  std::string realm = co_await naming;
  co_return Admission{holds, std::move(realm), holds};
}

}  // namespace TesselServer
