#include "http/PieceList.h"

#include <algorithm>
#include <utility>

namespace TesselServer {

const PagePiece& PieceList::operator[](std::size_t index) const {
  auto chunk = chunks_.begin();
  for (; index >= chunk->size(); ++chunk) index -= chunk->size();
  return (*chunk)[index];
}

// Slices of one text that follow each other become one piece again.
bool PieceList::JoinsLast(const PagePiece& piece) {
  if (chunks_.empty() || piece.source != PieceSource::kAuthor) return false;
  PagePiece& last = chunks_.back().back();
  if (last.source != piece.source || last.text.data() + last.text.size() != piece.text.data()) return false;
  last.text = {last.text.data(), last.text.size() + piece.text.size()};
  return true;
}

void PieceList::Append(const PagePiece& piece) {
  if (JoinsLast(piece)) return;
  if (chunks_.empty() || chunks_.back().size() >= kMaxInChunk) {
    Chunk chunk;
    chunk.reserve(chunks_.empty() ? 4 : kMaxInChunk);
    chunk.push_back(piece);
    chunks_.push_back(std::move(chunk));
  } else {
    chunks_.back().push_back(piece);
  }
  ++size_;
}

void PieceList::ReserveChunks(std::size_t count) {
  if (chunks_.capacity() < count) chunks_.reserve(std::max(count, chunks_.capacity() * 2));
}

void PieceList::TakeChunk(Chunk& chunk, std::size_t skipped) noexcept {
  if (JoinsLast(chunk[skipped])) ++skipped;
  if (skipped == chunk.size()) return;
  chunk.erase(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(skipped));
  size_ += chunk.size();
  chunks_.push_back(std::move(chunk));
}

void PieceList::Swap(PieceList& other) noexcept {
  chunks_.swap(other.chunks_);
  std::swap(size_, other.size_);
}

}  // namespace TesselServer
