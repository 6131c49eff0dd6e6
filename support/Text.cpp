#include "support/Text.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "support/NoCaseSearch.h"

namespace TesselServer {
namespace {

constexpr char kBlank = ' ';

// How far FindNoCase looks for one case of a letter before it looks for the other. A bound, so that a text with only
// one of the two costs no pass to its end at each place where that one is.
constexpr std::size_t kSearchWindow = 256;

// What FindNoCase spends on places where only the beginning of the needle is, before it goes on in one pass: some
// nanoseconds each. In what people write the first letter is rare enough for less than this, and a long pass over
// letters that cannot begin the needle costs a tenth of a pass that looks at each by itself.
constexpr std::size_t kEffortOfPlace = 16;
constexpr std::size_t kMostEffort = 256;
constexpr std::size_t kMostEffortOfByte = 2;

// The first `wanted` in text[begin, end), `end` when there is none.
std::size_t FindByte(std::string_view text, char wanted, std::size_t begin, std::size_t end) {
  const void* found = std::memchr(text.data() + begin, wanted, end - begin);
  return found == nullptr ? end : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

// The first letter `wanted`, in either case, in text[begin, end), `end` when there is none.
std::size_t FindByteNoCase(std::string_view text, char wanted, std::size_t begin, std::size_t end) {
  const char lower = LowerAscii(wanted);
  const char upper = UpperAscii(wanted);
  if (lower == upper) return FindByte(text, wanted, begin, end);
  while (begin < end) {
    const std::size_t windowEnd = begin + std::min(kSearchWindow, end - begin);
    const std::size_t lowerAt = FindByte(text, lower, begin, windowEnd);
    const std::size_t found = FindByte(text, upper, begin, lowerAt);
    if (found < windowEnd) return found;
    begin = windowEnd;
  }
  return end;
}

// How many bytes `text` and `needle` begin with alike, in either case.
std::size_t CountEqualNoCase(std::string_view text, std::string_view needle) {
  const std::size_t most = std::min(text.size(), needle.size());
  std::size_t equal = 0;
  while (equal < most && LowerAscii(text[equal]) == LowerAscii(needle[equal])) ++equal;
  return equal;
}

// FindNoCase, each byte looked at by itself.
std::size_t FindInOnePass(std::string_view text, std::string_view needle, std::size_t from) {
  const std::size_t end = NoCaseSearch(needle).Take(text.substr(from));
  return end == kNpos ? kNpos : from + end - needle.size();
}

// As starts_with, for texts of a few bytes.
bool BeginsWith(std::string_view text, std::string_view start) {
  if (text.size() < start.size()) return false;
  std::size_t same = 0;
  while (same < start.size() && text[same] == start[same]) ++same;
  return same == start.size();
}

// ReplaceAll where the text does not grow. Byte by byte: a client's text may be full of such places, or of their
// beginnings, and a search for each of them would cost ten times as much.
std::string ReplaceByShorter(std::string_view text, std::string_view from, std::string_view to) {
  std::string result(text.size(), '\0');
  std::size_t out = 0;
  for (std::size_t in = 0; in < text.size();) {
    if (BeginsWith(text.substr(in), from)) {
      for (const char c : to) result[out++] = c;
      in += from.size();
    } else {
      result[out++] = text[in++];
    }
  }
  result.resize(out);
  return result;
}

}  // namespace

std::size_t FindLineEnd(std::string_view text) {
  if (text.empty()) return 0;
  return FindByte(text, '\r', 0, FindByte(text, '\n', 0, text.size()));
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && text.front() == kBlank) text.remove_prefix(1);
  while (!text.empty() && text.back() == kBlank) text.remove_suffix(1);
  return text;
}

std::string Upper(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), UpperAscii);
  return result;
}

std::string Lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), LowerAscii);
  return result;
}

std::size_t FindNoCase(std::string_view text, std::string_view needle, std::size_t from) {
  if (from > text.size() || needle.size() > text.size() - from) return kNpos;
  if (needle.empty()) return from;
  const std::size_t end = text.size() - needle.size() + 1;  // after the last place where the needle fits
  const char first = UpperAscii(needle.front());
  std::size_t effort = 0;
  for (std::size_t at = from; at < end; ++at) {
    if (UpperAscii(text[at]) != first) at = FindByteNoCase(text, needle.front(), at, end);
    if (at == end) break;
    if (effort > kMostEffort + kMostEffortOfByte * (at - from)) return FindInOnePass(text, needle, at);
    const std::size_t equal = CountEqualNoCase(text.substr(at), needle);
    if (equal == needle.size()) return at;
    effort += kEffortOfPlace + equal;
  }
  return kNpos;
}

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
  if (from.empty()) return std::string(text);
  if (to.size() <= from.size()) return ReplaceByShorter(text, from, to);
  std::string result;
  result.reserve(text.size());
  std::size_t begin = 0;
  for (std::size_t at = text.find(from); at != kNpos; at = text.find(from, begin)) {
    result.append(text, begin, at - begin).append(to);
    begin = at + from.size();
  }
  return result.append(text, begin);
}

std::optional<std::int64_t> LeadingNumber(std::string_view text) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (text.empty() || !isDigit(text.front())) return std::nullopt;
  std::int64_t number = 0;
  for (std::size_t i = 0; i < text.size() && isDigit(text[i]); ++i) {
    const std::int64_t digit = text[i] - '0';
    if (number > (kMost - digit) / 10) return kMost;
    number = number * 10 + digit;
  }
  return number;
}

}  // namespace TesselServer
