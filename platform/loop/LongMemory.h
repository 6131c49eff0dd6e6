// Memory of many MiB, given back to the system a stretch in each turn of the loop: all at once it holds the loop for
// 0.1 ms for each MiB.
//
// Thread:    any; what is given back while no turn of a loop runs on the thread goes at once.
// Ownership: takes over what it is given. A loop that is destroyed drops what is left at once.
// Errors:    none; where memory for its own list is lacking, what it was given goes at once.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <memory_resource>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace TesselServer {

class LoopCore;

// What is shorter goes at once, in 0.1 ms at most.
inline constexpr std::size_t kLongBytes = 1024 * 1024;

// Empties `text` and gives its memory back.
void GiveBack(std::string& text) noexcept;

// Empties `pieces`, texts or vectors of what needs no destructor, and gives their memory back where they are long all
// together.
template <typename Piece>
void GiveBackPieces(std::vector<Piece>& pieces) noexcept;

// The text as a shared one that is given back when its last owner lets go of it.
std::shared_ptr<const std::string> ShareLong(std::string text);

// Memory that is given back when it is deallocated.
std::pmr::memory_resource* LongBlocks();

// A text in the making, given back unless it was taken.
struct LongText {
  LongText() = default;
  LongText(const LongText&) = delete;
  LongText& operator=(const LongText&) = delete;
  ~LongText() { GiveBack(bytes); }

  std::string bytes;
};

// Those of one loop.
class LongMemory {
 public:
  // The one of the loop whose turn runs on this thread; null while none does.
  static LongMemory*& OfThisTurn();

  explicit LongMemory(LoopCore& loop) : loop_(loop) {}
  LongMemory(const LongMemory&) = delete;
  LongMemory& operator=(const LongMemory&) = delete;
  ~LongMemory();

  // Memory that belongs to `owner`.
  void Drop(std::shared_ptr<void> owner, void* memory, std::size_t bytes) noexcept;

 private:
  struct Leftover {
    std::shared_ptr<void> owner;
    char* memory;
    std::size_t bytes;
  };

  void DropSome();
  void GoOn();

  LoopCore& loop_;
  std::deque<Leftover> leftovers_;
};

template <typename Piece>
void GiveBackPieces(std::vector<Piece>& pieces) noexcept {
  std::vector<Piece> last;
  last.swap(pieces);
  const auto bytesOf = [](const Piece& piece) { return piece.capacity() * sizeof(typename Piece::value_type); };
  std::size_t bytes = 0;
  for (const Piece& piece : last) bytes += bytesOf(piece);
  LongMemory* const memory = bytes < kLongBytes ? nullptr : LongMemory::OfThisTurn();
  if (memory == nullptr) return;
  try {
    for (Piece& piece : last) {
      const auto owner = std::make_shared<Piece>(std::move(piece));
      memory->Drop(owner, owner->data(), bytesOf(*owner));
    }
  } catch (const std::bad_alloc&) {
    // they go at once
  }
}

}  // namespace TesselServer
