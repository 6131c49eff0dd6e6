#include "http/PageRewriter.h"

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
  if (isOver_) return Found::kNone;
  Found found = Found::kTag;
  if (!isInTag_) {
    found = Seek(opener, true, tag_);
    if (found == Found::kTag) {
      contentBegin_ = at_ = {tag_.chunk, tag_.piece, tag_.offset + opener.size()};
      isInTag_ = true;
    }
  }
  if (found == Found::kTag) found = Seek(end, false, contentEnd_);
  isOver_ = found == Found::kNone;
  if (found != Found::kTag) return found;
  tagEnd_ = {contentEnd_.chunk, contentEnd_.piece, contentEnd_.offset + end.size()};
  at_ = tag_;  // until it is replaced or kept it is found again
  isInTag_ = isJoined_ = false;
  work_ += kWorkOfATag;
  return found;
}

// One step of the search for `needle` from at_ on.
PageRewriter::Found PageRewriter::Seek(std::string_view needle, bool isOpener, Place& found) {
  const std::vector<PieceList::Chunk>& chunks = Chunks();
  for (std::size_t left = window_; at_.chunk < chunks.size();) {
    const PagePiece& piece = chunks[at_.chunk][at_.piece];
    std::size_t looked = kWorkOfAPiece;
    if (piece.source == PieceSource::kAuthor) {
      const std::size_t begin = at_.offset;
      const std::size_t place = FindIn(piece.text, needle, isOpener, at_.offset, left);
      looked += (place != std::string_view::npos ? place : at_.offset) - begin;
      work_ += looked;
      if (place != std::string_view::npos) {
        found = {at_.chunk, at_.piece, place};
        return Found::kTag;
      }
      if (at_.offset < piece.text.size()) return Found::kNotYet;
    } else {
      work_ += looked;
    }
    at_ = NextPiece(at_);
    if (looked >= left) return Found::kNotYet;
    left -= looked;
  }
  return Found::kNone;
}

PageRewriter::Place PageRewriter::NextPiece(const Place& place) const {
  if (place.piece + 1 < Chunks()[place.chunk].size()) return {place.chunk, place.piece + 1, 0};
  return {place.chunk + 1, 0, 0};
}

// ---- The tag found last.

std::string_view PageRewriter::Opener() const {
  return TextAt(tag_).substr(tag_.offset, contentBegin_.offset - tag_.offset);
}

bool PageRewriter::ContentIsInOnePiece() const {
  return contentBegin_.chunk == contentEnd_.chunk && contentBegin_.piece == contentEnd_.piece;
}

std::string_view PageRewriter::Content() {
  if (ContentIsInOnePiece()) {
    return TextAt(contentBegin_).substr(contentBegin_.offset, contentEnd_.offset - contentBegin_.offset);
  }
  if (!isJoined_) JoinContent();
  return joined_;
}

void PageRewriter::JoinContent() {
  joined_ = TextAt(contentBegin_).substr(contentBegin_.offset);
  for (Place place = NextPiece(contentBegin_); place.chunk != contentEnd_.chunk || place.piece != contentEnd_.piece;
       place = NextPiece(place)) {
    joined_ += TextAt(place);
  }
  joined_ += TextAt(contentEnd_).substr(0, contentEnd_.offset);
  isJoined_ = true;
  work_ += joined_.size();
}

bool PageRewriter::ContentHas(std::size_t size) const {
  if (ContentIsInOnePiece()) return contentEnd_.offset - contentBegin_.offset >= size;
  std::size_t length = TextAt(contentBegin_).size() - contentBegin_.offset;
  Place place = NextPiece(contentBegin_);
  for (; length < size && (place.chunk != contentEnd_.chunk || place.piece != contentEnd_.piece);
       place = NextPiece(place)) {
    length += TextAt(place).size();
  }
  return length + contentEnd_.offset >= size;
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
