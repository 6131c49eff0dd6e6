#include "http/Page.h"

#include <utility>

namespace TesselServer {

Page::Page(SharedText authorText) : authorText_(std::move(authorText)) {
  if (authorText_->empty()) return;
  pieces_.Append({Source::kAuthor, *authorText_});
  TagScan scan(*authorText_);
  while (scan.Step() > 0) continue;
  kinds_ = scan.Kinds();
}

Page::Page(SharedText authorText, const TagKinds& kinds) : authorText_(std::move(authorText)), kinds_(kinds) {
  if (!authorText_->empty()) pieces_.Append({Source::kAuthor, *authorText_});
}

bool Page::AppendInserted(SharedText text) { return HasRoomFor(text->size()) && AppendKept(Keep(std::move(text))); }

bool Page::MayGrow(std::size_t size) {
  if (!mayGrow_) return true;
  unaskedBytes_ += size;
  return unaskedBytes_ < kAskedBytes || mayGrow_(std::exchange(unaskedBytes_, 0));
}

bool Page::AppendKept(std::string_view text) {
  if (!Takes(text.size())) return false;
  if (!text.empty()) pieces_.Append({Source::kInserted, text});
  insertedBytes_ += text.size();
  return true;
}

std::string Page::Text() const {
  std::size_t size = 0;
  for (const Piece& piece : pieces_) size += piece.text.size();
  std::string text;
  text.reserve(size);
  for (const Piece& piece : pieces_) text += piece.text;
  return text;
}

Page::SharedText Page::Unchanged() const {
  const bool isUnchanged =
      pieces_.size() == 1 && pieces_[0].source == Source::kAuthor && pieces_[0].text.size() == authorText_->size();
  return isUnchanged ? authorText_ : nullptr;
}

Page::SharedText Page::Result() const {
  SharedText unchanged = Unchanged();
  return unchanged ? unchanged : std::make_shared<const std::string>(Text());
}

}  // namespace TesselServer
