#include "tests/kit/FailNthMemory.h"

#include <malloc.h>

#include <cstddef>
#include <cstdlib>
#include <new>

#include "tests/kit/FreedText.h"

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

void Free(void* memory) noexcept {
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

FailNthMemory::FailNthMemory(int nth) {
  left = nth;
  happened = false;
}
FailNthMemory::~FailNthMemory() { left = 0; }
bool FailNthMemory::Happened() const { return happened; }

}  // namespace TesselServer::Kit

void* operator new(std::size_t size) {
  if (TesselServer::Kit::Fails()) throw std::bad_alloc();
  if (void* const memory = std::malloc(size != 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return TesselServer::Kit::Fails() ? nullptr : std::malloc(size != 0 ? size : 1);
}

void operator delete(void* memory) noexcept { TesselServer::Kit::Free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { TesselServer::Kit::Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { TesselServer::Kit::Free(memory); }
