#include "http/Page.h"

#include <utility>

namespace TesselServer {

Page::Page(std::string authorText) {
  if (authorText.empty()) return;
  texts_.push_back(std::make_shared<const std::string>(std::move(authorText)));
  pieces_.push_back({Source::kAuthor, *texts_.back()});
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

}  // namespace TesselServer
