#include "http/Page.h"

#include <utility>

#include "http/TagSearch.h"

namespace TesselServer {

Page::Page(SharedText authorText) : authorText_(std::move(authorText)) {
  const std::string_view whole = *authorText_;
  if (whole.empty()) return;
  pieces_.push_back({Source::kAuthor, whole});
  holdsDirectives_ = FindOpener(whole, kDirectiveStart) != std::string_view::npos;
  holdsScripts_ = FindOpener(whole, kScriptStart) != std::string_view::npos;
}

bool Page::AppendInserted(SharedText text) {
  if (!HasRoomFor(text->size()) || pieces_.size() >= kMaxPieces) return false;
  if (text->empty()) return true;
  const std::string_view whole = *text;
  if (texts_.empty() || texts_.back() != text) texts_.push_back(std::move(text));
  pieces_.push_back({Source::kInserted, whole});
  insertedBytes_ += whole.size();
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

Page::SharedText Page::Result() const {
  const bool isUnchanged =
      pieces_.size() == 1 && pieces_[0].source == Source::kAuthor && pieces_[0].text.size() == authorText_->size();
  return isUnchanged ? authorText_ : std::make_shared<const std::string>(Text());
}

}  // namespace TesselServer
