#include "platform/loop/LongMemory.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

#include "platform/loop/LoopCore.h"

namespace TesselServer {
namespace {

constexpr std::size_t kPage = 4096;

// What one of many that are short counts as: each costs a microsecond.
constexpr std::size_t kLeastOfOne = 16 * 1024;

class Blocks final : public std::pmr::memory_resource {
  void* do_allocate(std::size_t bytes, std::size_t alignment) override {
    return std::pmr::new_delete_resource()->allocate(bytes, alignment);
  }
  void do_deallocate(void* block, std::size_t bytes, std::size_t alignment) noexcept override {
    const auto drop = [bytes, alignment](void* memory) {
      std::pmr::new_delete_resource()->deallocate(memory, bytes, alignment);
    };
    LongMemory* const memory = bytes < kLongBytes ? nullptr : LongMemory::OfThisTurn();
    if (memory == nullptr) return drop(block);
    try {
      memory->Drop({block, drop}, block, bytes);
    } catch (const std::bad_alloc&) {
      // dropped by the owner that could not be made
    }
  }
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override { return this == &other; }
};

}  // namespace

void GiveBack(std::string& text) noexcept {
  std::string last;
  last.swap(text);
  LongMemory* const memory = last.capacity() < kLongBytes ? nullptr : LongMemory::OfThisTurn();
  if (memory == nullptr) return;
  try {
    const auto owner = std::make_shared<std::string>(std::move(last));
    memory->Drop(owner, owner->data(), owner->capacity());
  } catch (const std::bad_alloc&) {
    // goes at once
  }
}

std::shared_ptr<const std::string> ShareLong(std::string text) {
  if (text.capacity() < kLongBytes) return std::make_shared<const std::string>(std::move(text));
  return {new std::string(std::move(text)), [](std::string* last) {
            GiveBack(*last);
            delete last;
          }};
}

std::pmr::memory_resource* LongBlocks() {
  static Blocks blocks;
  return &blocks;
}

LongMemory*& LongMemory::OfThisTurn() {
  static thread_local LongMemory* running = nullptr;
  return running;
}

LongMemory::~LongMemory() { loop_.Withdraw(this); }

// Its whole pages are what goes in stretches.
void LongMemory::Drop(std::shared_ptr<void> owner, void* memory, std::size_t bytes) noexcept {
  const std::size_t skipped = (kPage - reinterpret_cast<std::uintptr_t>(memory) % kPage) % kPage;
  const std::size_t whole = (bytes - std::min(bytes, skipped)) / kPage * kPage;
  try {
    leftovers_.push_back({std::move(owner), static_cast<char*>(memory) + skipped, whole});
    if (leftovers_.size() == 1) GoOn();
  } catch (const std::bad_alloc&) {
    // goes at once
  }
}

// A stretch at least, so that it keeps up with what is made meanwhile.
void LongMemory::DropSome() {
  std::size_t dropped = 0;
  while (!leftovers_.empty() && (dropped < kLongBytes || !loop_.TurnIsLong())) {
    Leftover& next = leftovers_.front();
    const std::size_t bytes = std::min(kLongBytes, next.bytes);
    if (bytes > 0) madvise(next.memory, bytes, MADV_DONTNEED);  // where that is refused it goes with its owner
    next.memory += bytes;
    next.bytes -= bytes;
    dropped += std::max(bytes, kLeastOfOne);
    if (next.bytes == 0) leftovers_.pop_front();
  }
  if (!leftovers_.empty()) GoOn();
}

void LongMemory::GoOn() {
  try {
    loop_.Post(this, [this] { DropSome(); });
  } catch (const std::bad_alloc&) {
    leftovers_.clear();
  }
}

}  // namespace TesselServer
