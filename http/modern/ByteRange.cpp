#include "http/modern/ByteRange.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <span>

#include "http/modern/FieldValues.h"

namespace TesselServer::Modern {
namespace {

constexpr std::string_view kBytesUnit = "bytes";
constexpr std::int64_t kHugeOffset = std::numeric_limits<std::int64_t>::max();

// The number that `text` begins with, removed from it; kHugeOffset stands for all that are as large or larger. Nothing
// without a digit.
std::optional<std::int64_t> TakeOffset(std::string_view& text) {
  if (text.empty() || !IsDecimal(text.front())) return std::nullopt;
  std::int64_t number = 0;
  while (!text.empty() && IsDecimal(text.front())) {
    const int digit = text.front() - '0';
    number = number > (kHugeOffset - digit) / 10 ? kHugeOffset : number * 10 + digit;
    text.remove_prefix(1);
  }
  return number;
}

// One element of the list, as it was sent: "first-last", "first-" or "-length".
struct RangeElement {
  std::optional<std::int64_t> first, last;
};

std::optional<RangeElement> TakeRangeElement(std::string_view& text) {
  RangeElement element;
  element.first = TakeOffset(text);
  if (!text.starts_with('-')) return std::nullopt;
  text.remove_prefix(1);
  element.last = TakeOffset(text);
  if (!element.first && !element.last) return std::nullopt;
  if (element.first && element.last && *element.last < *element.first) return std::nullopt;
  return element;
}

// Section 14.1.2: a suffix can be satisfied unless it asks for no byte, even where there is none.
bool IsSatisfiable(const RangeElement& element, std::int64_t size) {
  return element.first ? *element.first < size : *element.last > 0;
}

// The bytes that a satisfiable element names; the file is not empty.
ByteRange BytesOf(const RangeElement& element, std::int64_t size) {
  if (!element.first) return {size - std::min(*element.last, size), size - 1};
  return {*element.first, std::min(element.last.value_or(kHugeOffset), size - 1)};
}

// The ranges of a request that can be satisfied.
class RangeSet {
 public:
  // Reads the list after "bytes=". False when it is broken or has too many elements.
  bool Read(std::string_view list, std::int64_t size) {
    std::size_t elements = 0;
    for (list = FirstElement(list); !list.empty(); ++elements) {
      const auto element = TakeRangeElement(list);
      if (!element || elements == kMaxByteRanges || !TakeListComma(list)) return false;
      if (IsSatisfiable(*element, size)) Add(*element, size);
    }
    return elements > 0;
  }

  bool IsEmpty() const { return count_ == 0; }

  // All of them as one range; nothing where a gap is between two.
  std::optional<ByteRange> Merged() {
    const std::span<ByteRange> ranges(ranges_.data(), count_);
    std::sort(ranges.begin(), ranges.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    ByteRange merged = ranges.front();
    for (const ByteRange& range : ranges.subspan(1)) {
      if (range.first > merged.last + 1) return std::nullopt;
      merged.last = std::max(merged.last, range.last);
    }
    return merged;
  }

 private:
  // Empty elements may come first, but no blank without one.
  static std::string_view FirstElement(std::string_view list) {
    return list.starts_with(',') ? WithoutEmptyElements(list) : list;
  }

  void Add(const RangeElement& element, std::int64_t size) {
    ranges_[count_++] = size > 0 ? BytesOf(element, size) : ByteRange{};
  }

  std::array<ByteRange, kMaxByteRanges> ranges_;
  std::size_t count_ = 0;
};

// The list of ranges in `value`; nothing when it has another unit.
std::optional<std::string_view> BytesList(std::string_view value) {
  const std::size_t equals = value.find('=');
  if (equals == std::string_view::npos || !EqualNoCase(value.substr(0, equals), kBytesUnit)) return std::nullopt;
  return value.substr(equals + 1);
}

}  // namespace

ChosenRange ChooseRange(std::string_view value, std::int64_t size) {
  const auto list = BytesList(value);
  RangeSet ranges;
  if (!list || !ranges.Read(*list, size)) return {};
  if (ranges.IsEmpty()) return {RangeOutcome::kUnsatisfiable, {}};
  if (size == 0) return {};  // a suffix of nothing: no part can name it
  const auto merged = ranges.Merged();
  return merged ? ChosenRange{RangeOutcome::kPart, *merged} : ChosenRange{};
}

std::string ContentRangeText(const ByteRange& range, std::int64_t size) {
  std::string text = "bytes ";
  text.append(std::to_string(range.first)).append(1, '-').append(std::to_string(range.last));
  return text.append(1, '/').append(std::to_string(size));
}

std::string UnsatisfiedRangeText(std::int64_t size) { return "bytes */" + std::to_string(size); }

}  // namespace TesselServer::Modern
