#include "http/modern/EntityTag.h"

#include <algorithm>
#include <cstring>

#include "http/modern/FieldValues.h"

namespace TesselServer::Modern {
namespace {

constexpr char kTagQuote = '"';

// A one-to-one mapping of 64 bits in which each bit given changes about half of the result's (the finalizer of
// splitmix64).
constexpr std::uint64_t MixBits(std::uint64_t bits) {
  bits += 0x9E3779B97F4A7C15;
  bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
  bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
  return bits ^ (bits >> 31);
}

constexpr std::uint64_t VersionDigest(const FileVersion& file) {
  std::uint64_t digest = MixBits(file.device);
  digest = MixBits(digest ^ file.inode);
  digest = MixBits(digest ^ static_cast<std::uint64_t>(file.size));
  return MixBits(digest ^ static_cast<std::uint64_t>(file.modified));
}

// The eight hexadecimal digits of `number`, a byte each, made all at once. Their order is the machine's: a digest has
// none of its own.
constexpr std::uint64_t HexDigitsOf(std::uint32_t number) {
  constexpr std::uint64_t kEachDigit = 0x0101010101010101;
  std::uint64_t digits = number;
  digits = (digits | digits << 16) & 0x0000FFFF0000FFFF;
  digits = (digits | digits << 8) & 0x00FF00FF00FF00FF;
  digits = (digits | digits << 4) & 0x0F0F0F0F0F0F0F0F;
  const std::uint64_t isLetter = ((digits + kEachDigit * 6) >> 4) & kEachDigit;
  return digits + kEachDigit * '0' + isLetter * ('a' - '0' - 10);
}

constexpr bool MayBeInTag(char c) { return !IsControl(c) && c != ' ' && c != kTagQuote; }

bool AreEqualTags(const EntityTag& a, const EntityTag& b, TagComparison comparison) {
  if (comparison == TagComparison::kStrong && (a.isWeak || b.isWeak)) return false;
  return a.opaque == b.opaque;
}

}  // namespace

FileTag::FileTag(const FileVersion& file) {
  const std::uint64_t digest = VersionDigest(file);
  text_.front() = text_.back() = kTagQuote;
  const std::uint64_t halves[] = {HexDigitsOf(static_cast<std::uint32_t>(digest >> 32)),
                                  HexDigitsOf(static_cast<std::uint32_t>(digest))};
  std::memcpy(text_.data() + 1, halves, sizeof halves);
}

std::optional<EntityTag> TakeEntityTag(std::string_view& text) {
  const bool isWeak = text.starts_with("W/");
  const std::string_view quoted = text.substr(isWeak ? 2 : 0);
  if (!quoted.starts_with(kTagQuote)) return std::nullopt;
  const auto end = std::find_if_not(quoted.begin() + 1, quoted.end(), MayBeInTag);
  if (end == quoted.end() || *end != kTagQuote) return std::nullopt;
  const auto length = static_cast<std::size_t>(end - quoted.begin()) + 1;
  text = quoted.substr(length);
  return EntityTag{quoted.substr(0, length), isWeak};
}

bool IsSameEntityTag(std::string_view a, std::string_view b, TagComparison comparison) {
  const auto tagA = TakeEntityTag(a), tagB = TakeEntityTag(b);
  return tagA && tagB && a.empty() && b.empty() && AreEqualTags(*tagA, *tagB, comparison);
}

bool ListsEntityTag(std::string_view list, std::string_view tag, TagComparison comparison) {
  if (TrimmedField(list) == "*") return true;
  const auto own = TakeEntityTag(tag);
  if (!own || !tag.empty()) return false;
  list = WithoutEmptyElements(list);
  while (const auto listed = TakeEntityTag(list)) {
    // First, for a tag with something else at its end is none.
    if (!TakeListComma(list)) return false;
    if (AreEqualTags(*listed, *own, comparison)) return true;
  }
  return false;
}

}  // namespace TesselServer::Modern
