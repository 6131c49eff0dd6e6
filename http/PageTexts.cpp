#include "http/PageTexts.h"

#include <algorithm>
#include <new>

#include "platform/loop/LongMemory.h"

namespace TesselServer {

// Many that are not long by themselves go in stretches as well; the long ones see to that (ShareLong).
PageTexts::~PageTexts() {
  const auto isOwn = [](const Shared& text) { return text.use_count() == 1 && text->capacity() < kLongBytes; };
  std::size_t bytes = 0;
  for (const Shared& text : large_) bytes += isOwn(text) ? text->capacity() : 0;
  LongMemory* const memory = bytes < kLongBytes ? nullptr : LongMemory::OfThisTurn();
  if (memory == nullptr) return;
  for (Shared& text : large_) {
    if (!isOwn(text)) continue;
    const auto last = std::const_pointer_cast<std::string>(std::move(text));
    memory->Drop(last, last->data(), last->capacity());
  }
}

std::pmr::monotonic_buffer_resource& PageTexts::Small() {
  if (!small_) small_ = std::make_unique<std::pmr::monotonic_buffer_resource>(kFirstBlockBytes, LongBlocks());
  return *small_;
}

std::string_view PageTexts::Keep(std::string text) {
  if (text.size() > kMaxSmallBytes) return Keep(ShareLong(std::move(text)));
  return Copy(text);
}

std::string_view PageTexts::Copy(std::string_view text) {
  if (text.empty()) return "";
  char* const place = static_cast<char*>(Small().allocate(text.size(), 1));
  std::copy(text.begin(), text.end(), place);
  return {place, text.size()};
}

std::string_view PageTexts::Keep(Shared text) {
  const std::string_view whole = *text;
  if (large_.empty() || large_.back() != text) large_.push_back(std::move(text));
  return whole;
}

// The map lies in the memory of its nodes, and goes away with it: nothing in it needs to be destroyed.
std::pair<PageTexts::Value*, bool> PageTexts::Find(Values*& values, std::string_view key) {
  if (values == nullptr) values = new (Small().allocate(sizeof(Values), alignof(Values))) Values(&Small());
  auto place = values->lower_bound(key);
  if (place != values->end() && place->first == key) return {&place->second, false};
  const std::string_view kept = key.size() > kMaxSmallBytes ? Keep(std::string(key)) : Copy(key);
  place = values->emplace_hint(place, kept, Value());
  return {&place->second, true};
}

}  // namespace TesselServer
