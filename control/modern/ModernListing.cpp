#include "control/modern/ModernListing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "control/answer/LinkRule.h"
#include "files/NameSet.h"
#include "http/modern/AcceptField.h"
#include "http/modern/HtmlListing.h"
#include "http/modern/JsonListing.h"
#include "http/modern/ListingRows.h"
#include "platform/files/FolderPass.h"
#include "platform/files/FolderRecord.h"
#include "platform/loop/LongMemory.h"
#include "platform/world/AsciiCase.h"
#include "platform/world/Error.h"
#include "support/Text.h"

namespace TesselServer {

namespace {

// The longest page. The first row that would make it longer ends the rows; the page is closed as usual.
constexpr std::size_t kMaxPageBytes = 64 * 1024 * 1024;

// How many links are looked at in one folder: each costs several times what another entry costs.
constexpr std::int32_t kMaxLinksLookedAt = 10'000;

// What is done between two looks at the clock takes some 50 us: ten entries that the system is asked for, of 2 to 5 us
// each, or a hundred and sixty names that the folder itself says are not wanted, or 24 rows. A link takes as long by
// itself.
constexpr int kEffortOfAsking = 16;
constexpr int kEffortInARow = 160;
constexpr std::size_t kRowsInARow = 24;

// A page that outgrows this gets room for the longest there is, which takes no memory before it is written to: no more
// is ever moved.
constexpr std::size_t kMostMoved = 256 * 1024;
constexpr std::size_t kUsualBytesAround = 4096;  // of the page without its rows
constexpr std::size_t kUsualRow = 256;           // without the name

void MakeRoom(std::string& page, std::size_t bytes) {
  if (page.size() + bytes <= page.capacity()) return;
  const std::size_t doubled = std::max(page.size() + bytes, 2 * page.capacity());
  if (doubled <= kMostMoved) {
    page.reserve(doubled);
    return;
  }
  try {
    page.reserve(std::max(page.size() + bytes, kMaxPageBytes + Modern::ListingPage::kMaxRowBytes));
  } catch (const std::bad_alloc&) {
    page.reserve(page.size() + bytes);
  }
}

// One listing in the making.
class ListingInTurns {
 public:
  ListingInTurns(ControlState& state, Slot& slot, Modern::ListingPage& page, Modern::ListingOrder order)
      : state_(state),
        slot_(slot),
        page_(page),
        order_(order),
        links_{slot.TargetRoot, state.Secrets(), slot.Target.name, &state.turns},
        folderPasswords_(state.authFileName),
        controlPasswords_(state.settings.AuthenticationSourceFile),
        folder_{slot.Target.kind, slot.Target.name, slot.Target.readable, std::move(slot.Target.file)} {}

  Task<std::optional<std::string>> Make() {
    auto identifying = IdentifyInTurns(controlPasswords_, &state_.turns);
    passwords_ = co_await identifying;
    auto naming = links_.root->NamesInTurns(folder_, &state_.turns);
    names_ = co_await naming;
    auto folders = Collect(EntryKind::kDirectory);
    if (!co_await folders) co_return std::nullopt;
    auto files = Collect(EntryKind::kFile);
    if (!co_await files) co_return std::nullopt;
    auto sorting = Sort();
    co_await sorting;
    auto writing = Write();
    if (!co_await writing) co_return std::nullopt;
    co_return std::move(text_.bytes);
  }

 private:
  enum class Stretch { kMore, kLink, kMustFetch, kEnd };

  Task<bool> Collect(EntryKind kind);
  Stretch CollectSome(FolderPass& entries, EntryKind kind);
  bool IsListed(const DirectoryEntry& entry, EntryKind kind) const;
  bool IsSecret(const DirectoryEntry& entry) const;
  Task<bool> IsServed(std::string name, FileIdentity target);
  void Add(const FolderPass& entries, EntryKind kind);
  Task<void> Sort();
  Task<bool> Write();
  bool WriteSome(std::size_t& next);
  bool MayGoOn();

  ControlState& state_;
  Slot& slot_;
  Modern::ListingPage& page_;
  const Modern::ListingOrder order_;
  const LinkRule links_;
  const std::string folderPasswords_;
  const std::string controlPasswords_;
  const FoundEntry folder_;
  PathIdentity passwords_;
  std::shared_ptr<FolderRecord> names_;
  Modern::ListingRows rows_;
  NameSet seen_;  // so that a name that changes its kind meanwhile is listed once
  std::int32_t linksLeft_ = kMaxLinksLookedAt;
  bool isFull_ = false;  // no more rows are taken
  bool isWhole_ = true;
  LongText text_;
};

// False where there is no memory to go on.
Task<bool> ListingInTurns::Collect(EntryKind kind) {
  FolderPass entries(folder_.file, kind, names_, &state_.turns);
  for (bool isOver = false; !isOver;) {
    const Stretch stretch = CollectSome(entries, kind);
    isOver = stretch == Stretch::kEnd;
    if (stretch == Stretch::kMustFetch) {
      auto fetched = entries.Fetch();
      co_await fetched;
    } else if (stretch == Stretch::kLink) {
      auto served = IsServed(std::string(entries.Entry().name), entries.Entry().facts.identity);
      if (co_await served) Add(entries, kind);
    }
    if (!MayGoOn()) co_return false;
    if (state_.turns.TimeIsUp()) {
      auto next = state_.turns.Next();
      co_await next;
    }
  }
  co_return true;
}

// As much as is done between two looks at the clock. kLink: the entry is a link that is to be asked about.
ListingInTurns::Stretch ListingInTurns::CollectSome(FolderPass& entries, EntryKind kind) {
  for (int effort = 0; effort < kEffortInARow && !isFull_;) {
    const auto step = entries.Advance();
    if (!step) return Stretch::kMustFetch;
    if (step == DirectoryReader::Step::kEnd) return Stretch::kEnd;
    effort += step == DirectoryReader::Step::kSkipped ? 1 : kEffortOfAsking;
    if (step != DirectoryReader::Step::kEntry || !IsListed(entries.Entry(), kind)) continue;
    if (entries.Entry().isLink) return Stretch::kLink;
    Add(entries, kind);
  }
  return isFull_ ? Stretch::kEnd : Stretch::kMore;
}

bool ListingInTurns::IsListed(const DirectoryEntry& entry, EntryKind kind) const {
  if (entry.name.starts_with('.')) return false;
  return kind == EntryKind::kDirectory || !IsSecret(entry);
}

// Whether a request for the file gets nothing: it holds passwords, or may do so, or is hidden.
bool ListingInTurns::IsSecret(const DirectoryEntry& entry) const {
  if ((entry.facts.attributes & (FileAttribute::kHidden | FileAttribute::kSystem)) != 0) return true;
  if (EqualNoCase(entry.name, folderPasswords_)) return true;
  if (passwords_.state == PathIdentity::State::kUnknown) return true;
  return passwords_.state == PathIdentity::State::kFound && passwords_.identity == entry.facts.identity;
}

// A link that cannot be followed just now, for want of descriptors, is not listed.
Task<bool> ListingInTurns::IsServed(std::string name, FileIdentity target) {
  if (linksLeft_ == 0) {
    isWhole_ = false;
    co_return false;
  }
  --linksLeft_;
  try {
    auto served = LinkIsServed(links_, std::move(name), target);
    co_return co_await served;
  } catch (const Error&) {
    co_return false;
  }
}

void ListingInTurns::Add(const FolderPass& entries, EntryKind kind) {
  const DirectoryEntry& entry = entries.Entry();
  const bool mayComeAgain = !names_ || !names_->NamesDiffer() || !entries.KindIsRecorded();
  if (mayComeAgain && !seen_.Add(entry.name)) return;
  isFull_ = !rows_.Add({entry.name, kind == EntryKind::kDirectory, entry.facts.size, entry.facts.modified});
  isWhole_ = isWhole_ && !isFull_;
}

Task<void> ListingInTurns::Sort() {
  while (!rows_.SortSome(order_)) {
    if (!state_.turns.TimeIsUp()) continue;
    auto next = state_.turns.Next();
    co_await next;
  }
}

// False where there is no memory to go on.
Task<bool> ListingInTurns::Write() {
  const std::size_t usual = kUsualBytesAround + rows_.NameBytes() * 3 + rows_.Count() * kUsualRow;
  MakeRoom(text_.bytes, std::min(usual, kMaxPageBytes));
  page_.Begin(text_.bytes);
  for (std::size_t next = 0; WriteSome(next);) {
    if (!MayGoOn()) co_return false;
    if (!state_.turns.TimeIsUp()) continue;
    auto turn = state_.turns.Next();
    co_await turn;
  }
  page_.End(text_.bytes, isWhole_);
  co_return MayGoOn();
}

// Writes the rows from `next` on that are written between two looks at the clock. Whether there are more.
bool ListingInTurns::WriteSome(std::size_t& next) {
  const std::size_t end = std::min(next + kRowsInARow, rows_.Count());
  for (; next < end; ++next) {
    MakeRoom(text_.bytes, 2 * Modern::ListingPage::kMaxRowBytes);  // and for the end of the page
    if (text_.bytes.size() + Modern::ListingPage::kMaxRowBytes > kMaxPageBytes) {
      isWhole_ = false;
      return false;
    }
    page_.AppendRow(text_.bytes, rows_.Sorted(next));
  }
  return next < rows_.Count();
}

// What the names of a small folder take does not count: it is gone with the turn.
bool ListingInTurns::MayGoOn() {
  const std::size_t seenBytes = seen_.Bytes() - std::min(seen_.Bytes(), NameSet::kBytesOfStep);
  const std::size_t bytes = rows_.Bytes() + seenBytes + text_.bytes.size();
  return slot_.PageMemory.Resize(state_.pageMemory, static_cast<std::int64_t>(bytes));
}

// The path as the client sent it, where it asks for one.
std::string_view SentPath(const Modern::Request& request) {
  std::string_view target = request.Target();
  target = target.substr(0, target.find('?'));
  if (target.starts_with('/')) return target;
  const std::size_t authority = target.find("://");
  if (authority == kNpos) return {};
  const std::size_t path = target.find('/', authority + 3);
  return path == kNpos ? "/" : target.substr(path);
}

std::ptrdiff_t SlashesOf(std::string_view path) { return std::count(path.begin(), path.end(), '/'); }

}  // namespace

std::unique_ptr<Modern::ListingPage> ListingPageFor(const Modern::Request& request, const std::string& serverName,
                                                    Modern::ListingOrder order) {
  std::string joined;
  if (Modern::PrefersJson(request.Field("Accept", joined))) return std::make_unique<Modern::JsonListing>();
  const std::string_view path = request.Path();
  const bool depthIsAsSent = SlashesOf(SentPath(request)) == SlashesOf(path);
  return std::make_unique<Modern::HtmlListing>(
      Modern::HtmlListing::Place{std::string(path), serverName, depthIsAsSent, order});
}

Task<std::optional<std::string>> ModernListingOf(ControlState& state, Slot& slot, Modern::ListingPage& page,
                                                 Modern::ListingOrder order) {
  ListingInTurns listing(state, slot, page, order);
  auto making = listing.Make();
  co_return co_await making;
}

}  // namespace TesselServer
