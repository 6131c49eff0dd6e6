// The pieces that a page has come apart into, in chunks of bounded size: a page of a million pieces grows, is taken
// apart and goes away without ever being moved as a whole.
//
// Thread:    any; a value that can be moved, not copied.
// Ownership: the texts belong to others.
// Errors:    none but those of memory running out.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "platform/loop/LongMemory.h"

namespace TesselServer {

// Where a piece of a page comes from.
enum class PieceSource {
  kAuthor,    // from the file: tags in it are obeyed
  kInserted,  // put in by a processor: never looked at again
};

struct PagePiece {
  PieceSource source;
  std::string_view text;  // never ""
};

class PieceList {
 public:
  static constexpr std::size_t kMaxInChunk = 1024;  // 24 KiB, moved in a microsecond or two

  using Chunk = std::vector<PagePiece>;  // never empty

  PieceList() = default;
  PieceList(PieceList&&) = default;
  PieceList& operator=(PieceList&&) = default;
  ~PieceList() { GiveBackPieces(chunks_); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  const std::vector<Chunk>& Chunks() const { return chunks_; }

  // Takes some 20 ns for each kMaxInChunk pieces in front of it.
  const PagePiece& operator[](std::size_t index) const;

  // Adds a piece; a slice of the author's text that follows the last one becomes one with it.
  void Append(const PagePiece& piece);

  // Makes room for so many chunks, so that TakeChunk asks for no memory.
  void ReserveChunks(std::size_t count);

  // Adds all pieces of `chunk` but the `skipped` first ones, of which there is at least one left.
  void TakeChunk(Chunk& chunk, std::size_t skipped) noexcept;

  // Takes over all pieces of `other`, which has none afterwards.
  void Swap(PieceList& other) noexcept;

  // For the rewriter, which takes a list apart.
  std::vector<Chunk>& MutableChunks() { return chunks_; }

  class Iterator {
   public:
    Iterator(const PieceList& list, std::size_t chunk) : list_(list), chunk_(chunk) {}
    const PagePiece& operator*() const { return list_.chunks_[chunk_][piece_]; }
    Iterator& operator++() {
      if (++piece_ == list_.chunks_[chunk_].size()) {
        ++chunk_;
        piece_ = 0;
      }
      return *this;
    }
    bool operator!=(const Iterator& other) const { return chunk_ != other.chunk_ || piece_ != other.piece_; }

   private:
    const PieceList& list_;
    std::size_t chunk_;
    std::size_t piece_ = 0;
  };
  Iterator begin() const { return {*this, 0}; }
  Iterator end() const { return {*this, chunks_.size()}; }

 private:
  bool JoinsLast(const PagePiece& piece);

  std::vector<Chunk> chunks_;
  std::size_t size_ = 0;
};

}  // namespace TesselServer
