#include "tests/kit/FailNthMemory.h"

#include <malloc.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <unordered_map>
#include <utility>

#include "tests/kit/FreedText.h"
#include "tests/kit/LivingMemory.h"

namespace TesselServer::Kit {
namespace {

thread_local int left = 0;  // how many requests until the one that fails; 0: none fails
thread_local bool happened = false;

bool Fails() {
  if (left == 0 || --left > 0) return false;
  happened = true;
  return true;
}

thread_local std::string_view watched;  // "": nothing is
thread_local int seen = 0;

using BlockSizes = std::unordered_map<void*, std::size_t>;
thread_local BlockSizes* living = nullptr;  // what LivingMemory counts

// What glibc takes for them.
constexpr std::size_t HeapBytes(std::size_t size) { return size <= 24 ? 32 : (size + 8 + 15) / 16 * 16; }

void* Counted(void* memory, std::size_t size) {
  if (BlockSizes* const sizes = std::exchange(living, nullptr)) {  // the map's own memory does not count
    if (memory != nullptr) sizes->emplace(memory, HeapBytes(size));
    living = sizes;
  }
  return memory;
}

void* Get(std::size_t size) {
  if (void* const memory = std::malloc(size != 0 ? size : 1)) return Counted(memory, size);
  throw std::bad_alloc();
}

void Free(void* memory) noexcept {
  if (BlockSizes* const sizes = std::exchange(living, nullptr)) {
    sizes->erase(memory);
    living = sizes;
  }
  if (memory != nullptr && !watched.empty()) {
    const std::string_view bytes(static_cast<const char*>(memory), malloc_usable_size(memory));
    if (bytes.find(watched) != std::string_view::npos) ++seen;
  }
  std::free(memory);
}

}  // namespace

FreedText::FreedText(std::string_view text) {
  watched = text;
  seen = 0;
}
FreedText::~FreedText() { watched = {}; }
int FreedText::Seen() const { return seen; }

LivingMemory::LivingMemory() { living = new BlockSizes; }
LivingMemory::~LivingMemory() { delete std::exchange(living, nullptr); }
std::size_t LivingMemory::Bytes() const {
  std::size_t bytes = 0;
  for (const auto& [memory, size] : *living) bytes += size;
  return bytes;
}

FailNthMemory::FailNthMemory(int nth) {
  left = nth;
  happened = false;
}
FailNthMemory::~FailNthMemory() { left = 0; }
bool FailNthMemory::Happened() const { return happened; }

}  // namespace TesselServer::Kit

void* operator new(std::size_t size) {
  if (TesselServer::Kit::Fails()) throw std::bad_alloc();
  return TesselServer::Kit::Get(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return TesselServer::Kit::Fails() ? nullptr : TesselServer::Kit::Counted(std::malloc(size != 0 ? size : 1), size);
}

// Blocks for small texts (std::pmr) come from here. They do not fail.
void* operator new(std::size_t size, std::align_val_t alignment) {
  const auto unit = static_cast<std::size_t>(alignment);
  if (void* const memory = std::aligned_alloc(unit, (size + unit - 1) / unit * unit)) {
    return TesselServer::Kit::Counted(memory, size);
  }
  throw std::bad_alloc();
}

void operator delete(void* memory, std::align_val_t) noexcept { TesselServer::Kit::Free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { TesselServer::Kit::Free(memory); }
void operator delete(void* memory) noexcept { TesselServer::Kit::Free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { TesselServer::Kit::Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { TesselServer::Kit::Free(memory); }
