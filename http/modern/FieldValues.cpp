#include "http/modern/FieldValues.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace TesselServer::Modern {
namespace {

constexpr std::size_t kWordBytes = sizeof(std::uint64_t);
constexpr std::uint64_t kEachByte = 0x0101010101010101;
constexpr std::uint64_t kEachHighBit = kEachByte * 0x80;

// Whether one of the eight bytes in `word` is a control. Takes 0x80 behind 0xFF for one, too, and tabs.
constexpr bool MayHaveControl(std::uint64_t word) {
  const std::uint64_t below = word - kEachByte * 0x20;  // borrows into the high bit of what is below 0x20
  const std::uint64_t above = word + kEachByte;         // carries into that of 0x7F
  return ((below | above) & ~word & kEachHighBit) != 0;
}

template <typename Word>
std::uint64_t BytesAt(const char* text) {
  Word word = 0;
  std::memcpy(&word, text, sizeof word);
  return word;
}

// The words overlap at the end of the text.
bool MayHaveControl(std::string_view text) {
  const char* const last = text.data() + text.size() - kWordBytes;
  for (const char* at = text.data(); at < last; at += kWordBytes) {
    if (MayHaveControl(BytesAt<std::uint64_t>(at))) return true;
  }
  return MayHaveControl(BytesAt<std::uint64_t>(last));
}

// The same for four to seven bytes.
bool MayShortHaveControl(std::string_view text) {
  constexpr std::size_t kHalf = kWordBytes / 2;
  const char* const last = text.data() + text.size() - kHalf;
  return MayHaveControl(BytesAt<std::uint32_t>(text.data()) << 32 | BytesAt<std::uint32_t>(last));
}

bool HasOnlyFieldBytes(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return !IsControl(c) || c == '\t'; });
}

}  // namespace

bool IsFieldText(std::string_view text) {
  if (text.size() >= kWordBytes && !MayHaveControl(text)) return true;
  if (text.size() >= kWordBytes / 2 && text.size() < kWordBytes && !MayShortHaveControl(text)) return true;
  return HasOnlyFieldBytes(text);
}

}  // namespace TesselServer::Modern
