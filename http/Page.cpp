#include "http/Page.h"

#include <utility>

namespace TesselServer {

std::string Page::Text() const& {
  std::size_t size = 0;
  for (const Piece& piece : pieces_) size += piece.text.size();
  std::string text;
  text.reserve(size);
  for (const Piece& piece : pieces_) text += piece.text;
  return text;
}

std::string Page::Text() && {
  if (pieces_.size() == 1) return std::move(pieces_.front().text);
  return std::as_const(*this).Text();
}

void Page::Append(Source source, std::string text) {
  if (text.empty()) return;
  if (!pieces_.empty() && pieces_.back().source == source) {
    pieces_.back().text += text;
  } else {
    pieces_.push_back({source, std::move(text)});
  }
}

}  // namespace TesselServer
