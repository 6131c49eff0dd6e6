#include "http/PageRewriter.h"

#include <algorithm>
#include <utility>

#include "platform/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::size_t kMaxPiecesOfOneTag = 3;  // the text in front of it, what takes its place, the text behind it

}  // namespace

PageRewriter::PageRewriter(Page& page) : page_(page) {
  new_.pieces_.reserve(page.pieces_.size() + kMaxPiecesOfOneTag);  // may throw, so the page is taken over behind it
  old_ = std::exchange(page, Page());
  new_.texts_ = std::move(old_.texts_);
  new_.insertedBytes_ = old_.insertedBytes_;  // what stands further on counts as well
}

PageRewriter::~PageRewriter() {
  CopyUntil({old_.pieces_.size(), 0});
  page_ = std::move(new_);
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
  return old_.pieces_[tag_.piece].text.substr(tag_.offset, contentBegin_.offset - tag_.offset);
}

bool PageRewriter::ContentBeginsWith(std::string_view text) const {
  const std::string_view piece = old_.pieces_[contentBegin_.piece].text;
  const std::size_t end = contentEnd_.piece == contentBegin_.piece ? contentEnd_.offset : piece.size();
  return end - contentBegin_.offset >= text.size() &&
         EqualNoCase(piece.substr(contentBegin_.offset, text.size()), text);
}

bool PageRewriter::ContentEndsWith(std::string_view text) const {
  const std::size_t begin = contentEnd_.piece == contentBegin_.piece ? contentBegin_.offset : 0;
  const std::string_view piece = old_.pieces_[contentEnd_.piece].text;
  return piece.substr(begin, contentEnd_.offset - begin).ends_with(text);
}

void PageRewriter::Replace(Page::SharedText text) {
  ReserveForRest();
  CopyUntil(tag_);
  if (new_.AppendInserted(std::move(text))) {
    next_ = tagEnd_;
  } else {
    Keep();
  }
}

void PageRewriter::Keep() {
  ReserveForRest();
  CopyUntil(tagEnd_);
}

// The destructor must find room for what is left without asking for memory.
void PageRewriter::ReserveForRest() {
  const std::size_t needed = new_.pieces_.size() + (old_.pieces_.size() - next_.piece) + kMaxPiecesOfOneTag;
  if (new_.pieces_.capacity() < needed) new_.pieces_.reserve(std::max(needed, new_.pieces_.capacity() * 2));
}

bool PageRewriter::FindAuthor(std::string_view needle, Place from, bool anyCase, Place& found) const {
  for (; from.piece < old_.pieces_.size(); from = {from.piece + 1, 0}) {
    const Page::Piece& piece = old_.pieces_[from.piece];
    if (piece.source != Page::Source::kAuthor) continue;
    const std::size_t at = anyCase ? FindNoCase(piece.text, needle, from.offset) : piece.text.find(needle, from.offset);
    if (at == std::string_view::npos) continue;
    found = {from.piece, at};
    return true;
  }
  return false;
}

void PageRewriter::CollectContent() {
  if (contentBegin_.piece == contentEnd_.piece) {
    content_ =
        old_.pieces_[contentBegin_.piece].text.substr(contentBegin_.offset, contentEnd_.offset - contentBegin_.offset);
    return;
  }
  joined_ = old_.pieces_[contentBegin_.piece].text.substr(contentBegin_.offset);
  for (std::size_t i = contentBegin_.piece + 1; i < contentEnd_.piece; ++i) joined_ += old_.pieces_[i].text;
  joined_ += old_.pieces_[contentEnd_.piece].text.substr(0, contentEnd_.offset);
  content_ = joined_;
}

void PageRewriter::CopyUntil(Place end) {
  while (next_.piece < end.piece || (next_.piece == end.piece && next_.offset < end.offset)) {
    const Page::Piece& piece = old_.pieces_[next_.piece];
    const std::size_t stop = next_.piece == end.piece ? end.offset : piece.text.size();
    if (stop > next_.offset) Append({piece.source, piece.text.substr(next_.offset, stop - next_.offset)});
    next_ = next_.piece == end.piece ? end : Place{next_.piece + 1, 0};
  }
}

// Slices of one text that follow each other become one piece again.
void PageRewriter::Append(const Page::Piece& piece) {
  if (!new_.pieces_.empty() && piece.source == Page::Source::kAuthor) {
    Page::Piece& last = new_.pieces_.back();
    if (last.source == piece.source && last.text.data() + last.text.size() == piece.text.data()) {
      last.text = {last.text.data(), last.text.size() + piece.text.size()};
      return;
    }
  }
  new_.pieces_.push_back(piece);
}

}  // namespace TesselServer
