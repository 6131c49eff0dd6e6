#include "http/LongPages.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "http/Pace.h"
#include "http/TagNormaliser.h"
#include "platform/loop/LongMemory.h"

namespace TesselServer {
namespace {

struct Steps {
  // Makes one; how much work it was (see Pace), 0 when all is done.
  virtual std::size_t Step() = 0;

 protected:
  ~Steps() = default;
};

class Scanning final : public Steps {
 public:
  Scanning(std::string_view text, bool isForOne) : scan_(text), isForOne_(isForOne) {}
  std::size_t Step() override { return isForOne_ && !Kinds().IsEmpty() ? 0 : scan_.Step(); }
  const TagKinds& Kinds() const { return scan_.Kinds(); }

 private:
  TagScan scan_;
  bool isForOne_;  // it is over when a tag is found
};

Task<void> AllSteps(Steps& work, Turns* turns) {
  Pace pace(turns);
  while (const std::size_t steps = work.Step()) {
    if (!pace.IsOver(steps)) continue;
    auto next = pace.Next();
    co_await next;
  }
}

class Copying final : public Steps {
 public:
  Copying(std::string_view text, std::string& copy) : text_(text), copy_(copy) { copy_.reserve(text.size()); }

  std::size_t Step() override {
    const std::string_view part = text_.substr(copy_.size(), kSearchWindow);
    copy_ += part;
    return part.size();
  }

 private:
  std::string_view text_;
  std::string& copy_;
};

class Normalising final : public Steps {
 public:
  explicit Normalising(std::string& text) : normaliser_(text) {}
  std::size_t Step() override { return normaliser_.Step(); }

 private:
  TagNormaliser normaliser_;
};

// The pieces of a page joined: first their length is added up, then they are copied.
class Joining final : public Steps {
 public:
  Joining(const Page& page, std::string& text) : chunks_(page.Pieces().Chunks()), text_(text) {}

  std::size_t Step() override { return isMeasured_ ? Copy() : Measure(); }

 private:
  static constexpr std::size_t kWorkOfAPiece = 16;

  std::size_t Measure() {
    if (chunk_ < chunks_.size()) {
      for (const PagePiece& piece : chunks_[chunk_]) size_ += piece.text.size();
      return chunks_[chunk_++].size();
    }
    text_.reserve(size_);
    isMeasured_ = true;
    chunk_ = 0;
    return 1;
  }
  std::size_t Copy() {
    std::size_t work = 0;
    while (work < kSearchWindow && chunk_ < chunks_.size()) {
      const std::string_view whole = chunks_[chunk_][piece_].text;
      const std::string_view part = whole.substr(offset_, kSearchWindow);
      text_ += part;
      work += part.size() + kWorkOfAPiece;
      offset_ += part.size();
      if (offset_ == whole.size()) NextPiece();
    }
    return work;
  }
  void NextPiece() {
    offset_ = 0;
    if (++piece_ < chunks_[chunk_].size()) return;
    piece_ = 0;
    ++chunk_;
  }

  const std::vector<PieceList::Chunk>& chunks_;
  bool isMeasured_ = false;
  std::size_t size_ = 0;
  std::size_t chunk_ = 0;
  std::size_t piece_ = 0;
  std::size_t offset_ = 0;
  std::string& text_;
};

Task<bool> FindTags(Page::SharedText text, Turns* turns) {
  Scanning scanning(*text, true);
  auto scanned = AllSteps(scanning, turns);
  co_await scanned;
  co_return !scanning.Kinds().IsEmpty();
}

Task<Page> MakePage(Page::SharedText text, Turns* turns) {
  LongText compact;
  Copying copying(*text, compact.bytes);
  auto copied = AllSteps(copying, turns);
  co_await copied;
  text.reset();  // so that no large page is in memory twice
  Normalising normaliser(compact.bytes);
  auto normalised = AllSteps(normaliser, turns);
  co_await normalised;
  const Page::SharedText result = ShareLong(std::move(compact.bytes));
  Scanning scanning(*result, false);
  auto scanned = AllSteps(scanning, turns);
  co_await scanned;
  co_return Page(result, scanning.Kinds());
}

Task<Page::SharedText> Join(const Page& page, Turns* turns) {
  if (Page::SharedText unchanged = page.Unchanged()) co_return unchanged;
  LongText text;
  Joining joining(page, text.bytes);
  auto joined = AllSteps(joining, turns);
  co_await joined;
  co_return ShareLong(std::move(text.bytes));
}

}  // namespace

Task<Page::SharedText> ContentsInTurns(const OpenFile& file, std::int64_t limit, Turns* turns) {
  LongText text;
  auto reading = ReadInTurns(file, text.bytes, limit, turns);
  const bool isWhole = co_await reading;
  Page::SharedText contents;
  if (isWhole) contents = ShareLong(std::move(text.bytes));
  co_return contents;
}

Task<bool> HoldsTagsInTurns(Page::SharedText text, Turns* turns) { return FindTags(std::move(text), turns); }

Page PageOf(Page::SharedText text) {
  std::string compact = *text;
  text.reset();  // so that no large page is in memory twice
  return Page(NormaliseTags(std::move(compact)));
}

Task<Page> PageInTurns(Page::SharedText text, Turns* turns) { return MakePage(std::move(text), turns); }

Task<Page::SharedText> ResultInTurns(const Page& page, Turns* turns) { return Join(page, turns); }

}  // namespace TesselServer
