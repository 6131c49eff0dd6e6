#include "http/PageRewriter.h"

#include <algorithm>
#include <utility>

#include "platform/world/AsciiCase.h"

namespace TesselServer {
namespace {

// How much work they are beside the bytes that are looked at; see Pace.
constexpr std::size_t kWorkOfAPiece = 8;
constexpr std::size_t kWorkOfATag = 64;

// `from` goes where a search goes on that has found nothing.
std::size_t FindIn(std::string_view text, std::string_view needle, bool isOpener, std::size_t& from, std::size_t left) {
  if (text.size() - from > left) {
    return isOpener ? FindOpenerInWindow(text, needle, from, left) : FindInWindow(text, needle, from, left);
  }
  const std::size_t place = isOpener ? FindOpener(text, needle, from) : text.find(needle, from);
  if (place == std::string_view::npos) from = text.size();
  return place;
}

// What one replacement adds at most to the chunks there are: parts of those around it, and one for itself.
constexpr std::size_t kMaxNewChunks = 4;

}  // namespace

PageRewriter::~PageRewriter() {
  if (!begun_) return;
  while (copied_.chunk < old_.Chunks().size()) TakeRestOfChunk();
}

bool PageRewriter::Find(std::string_view opener, std::string_view end) {
  Found found = Found::kNotYet;
  while (found == Found::kNotYet) found = Search(opener, end);
  return found == Found::kTag;
}

PageRewriter::Found PageRewriter::Search(std::string_view opener, std::string_view end) {
  if (phase_ == Phase::kOpener) {
    const Found found = Seek(opener, true, tag_);
    if (found != Found::kTag) return found;
    BeginContent(opener);
  }
  if (phase_ == Phase::kEnd) {
    const Found found = Seek(end, false, contentEnd_);
    if (found != Found::kTag) return found;
    EndContent(end);
  } else if (phase_ == Phase::kContent) {
    JoinContent();
  } else {
    return Found::kNone;
  }
  return phase_ == Phase::kOpener ? Found::kTag : Found::kNotYet;
}

// One step of the search for `needle` from at_ on.
PageRewriter::Found PageRewriter::Seek(std::string_view needle, bool isOpener, Place& found) {
  const std::vector<PieceList::Chunk>& chunks = Chunks();
  std::size_t left = window_;
  for (Place at = at_; at.chunk < chunks.size();) {
    const PagePiece& piece = chunks[at.chunk][at.piece];
    const bool isAuthors = piece.source == PieceSource::kAuthor;
    const std::size_t begin = std::exchange(at.offset, isAuthors ? at.offset : piece.text.size());
    const std::size_t place =
        isAuthors ? FindIn(piece.text, needle, isOpener, at.offset, left) : std::string_view::npos;
    const std::size_t passed = (place != std::string_view::npos ? place : at.offset) - begin;
    const std::size_t looked = kWorkOfAPiece + (isAuthors ? passed : 0);
    work_ += looked;
    contentSize_ += passed;
    if (place != std::string_view::npos) {
      found = {at.chunk, at.piece, place};
      return Found::kTag;
    }
    if (at.offset == piece.text.size()) at = NextPiece(at);
    if (looked >= left) {
      at_ = at;
      return Found::kNotYet;
    }
    left -= looked;
  }
  phase_ = Phase::kOver;
  return Found::kNone;
}

void PageRewriter::BeginContent(std::string_view opener) {
  contentBegin_ = at_ = {tag_.chunk, tag_.piece, tag_.offset + opener.size()};
  contentSize_ = 0;
  phase_ = Phase::kEnd;
}

void PageRewriter::EndContent(std::string_view end) {
  tagEnd_ = {contentEnd_.chunk, contentEnd_.piece, contentEnd_.offset + end.size()};
  work_ += kWorkOfATag;
  if (ContentIsInOnePiece()) {
    UseContent(TextAt(contentBegin_).substr(contentBegin_.offset, contentSize_));
    return;
  }
  joined_.clear();
  joined_.reserve(contentSize_);
  at_ = contentBegin_;
  phase_ = Phase::kContent;
}

// ---- The tag found last.

std::string_view PageRewriter::Opener() const {
  return TextAt(tag_).substr(tag_.offset, contentBegin_.offset - tag_.offset);
}

// One step.
void PageRewriter::JoinContent() {
  for (std::size_t left = window_; left > 0;) {
    const bool isLast = at_.chunk == contentEnd_.chunk && at_.piece == contentEnd_.piece;
    const std::string_view text = TextAt(at_).substr(0, isLast ? contentEnd_.offset : std::string_view::npos);
    const std::string_view part = text.substr(at_.offset, left);
    joined_ += part;
    at_.offset += part.size();
    const std::size_t work = part.size() + kWorkOfAPiece;
    work_ += work;
    left -= std::min(left, work);
    if (at_.offset < text.size()) continue;
    if (isLast) return UseContent(joined_);
    at_ = NextPiece(at_);
  }
}

void PageRewriter::UseContent(std::string_view content) {
  content_ = content;
  at_ = tag_;  // until it is replaced or kept it is found again
  phase_ = Phase::kOpener;
}

bool PageRewriter::ContentBeginsWith(std::string_view text) const {
  const std::string_view piece = TextAt(contentBegin_);
  const std::size_t end = ContentIsInOnePiece() ? contentEnd_.offset : piece.size();
  return end - contentBegin_.offset >= text.size() &&
         EqualNoCase(piece.substr(contentBegin_.offset, text.size()), text);
}

bool PageRewriter::ContentEndsWith(std::string_view text) const {
  const std::size_t begin = ContentIsInOnePiece() ? contentBegin_.offset : 0;
  return TextAt(contentEnd_).substr(begin, contentEnd_.offset - begin).ends_with(text);
}

// ---- Replacing.

void PageRewriter::Replace(Page::SharedText text) {
  PrepareToReplace();
  if (page_.AppendInserted(std::move(text))) copied_ = tagEnd_;
  at_ = tagEnd_;
}

void PageRewriter::ReplaceByKept(std::string_view text) {
  PrepareToReplace();
  if (page_.AppendKept(text)) copied_ = tagEnd_;
  at_ = tagEnd_;
}

void PageRewriter::PrepareToReplace() {
  // the destructor must find room for what is left without asking for memory
  if (!begun_) {
    old_.ReserveChunks(page_.pieces_.Chunks().size() + kMaxNewChunks);
    old_.Swap(page_.pieces_);
    begun_ = true;
  }
  page_.pieces_.ReserveChunks(page_.pieces_.Chunks().size() + old_.Chunks().size() - copied_.chunk + kMaxNewChunks);
  CopyUntil(tag_);
}

void PageRewriter::CopyUntil(const Place& end) {
  while (copied_.chunk < end.chunk) TakeRestOfChunk();
  while (copied_.piece < end.piece || copied_.offset < end.offset) {
    const PagePiece& piece = old_.Chunks()[copied_.chunk][copied_.piece];
    const bool isLast = copied_.piece == end.piece;
    const std::size_t stop = isLast ? end.offset : piece.text.size();
    if (stop > copied_.offset) {
      page_.pieces_.Append({piece.source, piece.text.substr(copied_.offset, stop - copied_.offset)});
    }
    copied_ = isLast ? end : Place{copied_.chunk, copied_.piece + 1, 0};
    work_ += kWorkOfAPiece;
  }
}

void PageRewriter::TakeRestOfChunk() noexcept {
  PieceList::Chunk& chunk = old_.MutableChunks()[copied_.chunk];
  PagePiece& first = chunk[copied_.piece];
  first.text.remove_prefix(copied_.offset);
  const std::size_t skipped = copied_.piece + (first.text.empty() ? 1 : 0);
  if (skipped < chunk.size()) page_.pieces_.TakeChunk(chunk, skipped);
  copied_ = {copied_.chunk + 1, 0, 0};
  work_ += PieceList::kMaxInChunk;
}

}  // namespace TesselServer
