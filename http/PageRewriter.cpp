#include "http/PageRewriter.h"

#include <algorithm>
#include <utility>

#include "http/TagSearch.h"
#include "platform/world/AsciiCase.h"

namespace TesselServer {
namespace {

constexpr std::size_t kMaxPiecesOfOneTag = 3;  // the text before it, its replacement, the text after it

}  // namespace

PageRewriter::PageRewriter(Page& page) : page_(page) {}

PageRewriter::~PageRewriter() {
  if (begun_) CopyUntil({old_.size(), 0});
}

bool PageRewriter::Find(std::string_view opener, std::string_view end) {
  if (!FindAuthor(opener, next_, true, tag_)) return false;
  contentBegin_ = {tag_.piece, tag_.offset + opener.size()};
  if (!FindAuthor(end, contentBegin_, false, contentEnd_)) return false;
  tagEnd_ = {contentEnd_.piece, contentEnd_.offset + end.size()};
  CollectContent();
  return true;
}

std::string_view PageRewriter::Opener() const {
  return Pieces()[tag_.piece].text.substr(tag_.offset, contentBegin_.offset - tag_.offset);
}

bool PageRewriter::ContentBeginsWith(std::string_view text) const {
  const std::string_view piece = Pieces()[contentBegin_.piece].text;
  const std::size_t end = contentEnd_.piece == contentBegin_.piece ? contentEnd_.offset : piece.size();
  return end - contentBegin_.offset >= text.size() &&
         EqualNoCase(piece.substr(contentBegin_.offset, text.size()), text);
}

bool PageRewriter::ContentEndsWith(std::string_view text) const {
  const std::size_t begin = contentEnd_.piece == contentBegin_.piece ? contentBegin_.offset : 0;
  const std::string_view piece = Pieces()[contentEnd_.piece].text;
  return piece.substr(begin, contentEnd_.offset - begin).ends_with(text);
}

void PageRewriter::Replace(Page::SharedText text) {
  if (!begun_) Begin();
  ReserveForRest();
  CopyUntil(tag_);
  if (page_.AppendInserted(std::move(text))) copied_ = tagEnd_;
  next_ = tagEnd_;
}

void PageRewriter::Keep() { next_ = tagEnd_; }

void PageRewriter::Begin() {
  old_.reserve(page_.pieces_.size() + kMaxPiecesOfOneTag);  // may throw, so the page is taken over after it
  old_.swap(page_.pieces_);
  begun_ = true;
}

// The destructor must find room for what is left without asking for memory.
void PageRewriter::ReserveForRest() {
  std::vector<Page::Piece>& pieces = page_.pieces_;
  const std::size_t needed = pieces.size() + (old_.size() - copied_.piece) + kMaxPiecesOfOneTag;
  if (pieces.capacity() < needed) pieces.reserve(std::max(needed, pieces.capacity() * 2));
}

bool PageRewriter::FindAuthor(std::string_view needle, Place from, bool anyCase, Place& found) const {
  const std::vector<Page::Piece>& pieces = Pieces();
  for (; from.piece < pieces.size(); from = {from.piece + 1, 0}) {
    const Page::Piece& piece = pieces[from.piece];
    if (piece.source != Page::Source::kAuthor) continue;
    const std::size_t at = anyCase ? FindOpener(piece.text, needle, from.offset) : piece.text.find(needle, from.offset);
    if (at == std::string_view::npos) continue;
    found = {from.piece, at};
    return true;
  }
  return false;
}

void PageRewriter::CollectContent() {
  const std::vector<Page::Piece>& pieces = Pieces();
  if (contentBegin_.piece == contentEnd_.piece) {
    content_ = pieces[contentBegin_.piece].text.substr(contentBegin_.offset, contentEnd_.offset - contentBegin_.offset);
    return;
  }
  joined_ = pieces[contentBegin_.piece].text.substr(contentBegin_.offset);
  for (std::size_t i = contentBegin_.piece + 1; i < contentEnd_.piece; ++i) joined_ += pieces[i].text;
  joined_ += pieces[contentEnd_.piece].text.substr(0, contentEnd_.offset);
  content_ = joined_;
}

void PageRewriter::CopyUntil(Place end) {
  while (copied_.piece < end.piece || (copied_.piece == end.piece && copied_.offset < end.offset)) {
    const Page::Piece& piece = old_[copied_.piece];
    const std::size_t stop = copied_.piece == end.piece ? end.offset : piece.text.size();
    if (stop > copied_.offset) Append({piece.source, piece.text.substr(copied_.offset, stop - copied_.offset)});
    copied_ = copied_.piece == end.piece ? end : Place{copied_.piece + 1, 0};
  }
}

// Slices of one text that follow each other become one piece again.
void PageRewriter::Append(const Page::Piece& piece) {
  if (!page_.pieces_.empty() && piece.source == Page::Source::kAuthor) {
    Page::Piece& last = page_.pieces_.back();
    if (last.source == piece.source && last.text.data() + last.text.size() == piece.text.data()) {
      last.text = {last.text.data(), last.text.size() + piece.text.size()};
      return;
    }
  }
  page_.pieces_.push_back(piece);
}

}  // namespace TesselServer
