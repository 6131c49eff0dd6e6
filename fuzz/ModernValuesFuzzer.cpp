// Values of header fields that clients send: dates, tags and ranges. The first byte of the input chooses a file's size,
// the rest is the value, read as each of them.
#include <string>

#include "fuzz/Require.h"
#include "http/modern/ByteRange.h"
#include "http/modern/EntityTag.h"
#include "http/modern/FieldTexts.h"
#include "http/modern/FieldValues.h"
#include "http/modern/HostFields.h"
#include "http/modern/HtmlText.h"
#include "http/modern/HttpDate.h"
#include "http/modern/LinkText.h"
#include "http/modern/Preconditions.h"
#include "http/modern/ResponseHead.h"

namespace TesselServer::Modern {
namespace {

constexpr std::int64_t kFuzzNow = 1795300128;  // Saturday, 21 November 2026, 22:28:48 UTC

void TryDate(std::string_view value) {
  const auto date = ParseHttpDate(value, kFuzzNow);
  if (!date) return;
  // A leap second after the last moment of all is the first that cannot be written.
  Require(kFirstHttpDate <= *date && *date <= kLastHttpDate + 1, "a date has four digits of the year");
  const std::string written = HttpDateText(*date);
  Require(written.size() == kHttpDateBytes, "a date has its length");
  if (*date <= kLastHttpDate) Require(ParseHttpDate(written, kFuzzNow) == date, "a date that is written reads back");
}

void TryTag(std::string_view value) {
  std::string_view rest = value;
  const auto tag = TakeEntityTag(rest);
  Require(value.ends_with(rest), "what is left is the end");
  Require(tag.has_value() == (rest.size() < value.size()), "a tag takes bytes, no tag takes none");
  if (tag) {
    Require(tag->opaque.size() >= 2 && tag->opaque.front() == '"' && tag->opaque.back() == '"', "a tag has quotes");
    Require(tag->opaque.find('"', 1) == tag->opaque.size() - 1, "and no more of them");
    Require(ListsEntityTag(tag->opaque, tag->opaque, TagComparison::kStrong), "a tag is equal to itself");
  }
  const bool isListed = ListsEntityTag(value, "\"x\"", TagComparison::kWeak);
  if (ListsEntityTag(value, "\"x\"", TagComparison::kStrong)) Require(isListed, "strong tags are equal as weak ones");
  if (isListed) Require(value.find('*') != value.npos || value.find("\"x\"") != value.npos, "it is there");
}

void TryConditions(std::string_view value) {
  const Validators current{"\"x\"", 784111777};
  const Conditions each[] = {
      {.ifMatch = value}, {.ifUnmodifiedSince = value}, {.ifNoneMatch = value}, {.ifModifiedSince = value}};
  for (const Conditions& conditions : each) {
    const Precondition ofGet = EvaluateConditions(conditions, current, true, kFuzzNow);
    const Precondition ofPost = EvaluateConditions(conditions, current, false, kFuzzNow);
    Require(ofPost != Precondition::kNotModified, "only who fetches has it already");
    if (conditions.ifMatch || conditions.ifUnmodifiedSince) Require(ofGet == ofPost, "the same for all methods");
  }
  if (IfRangeHolds(value, current, kFuzzNow)) {
    Require(value == current.tag || ParseHttpDate(value, kFuzzNow) == current.lastModified, "it is what is there");
  }
}

void TryRange(std::string_view value, std::int64_t size) {
  const ChosenRange chosen = ChooseRange(value, size);
  if (chosen.outcome != RangeOutcome::kPart) return;
  const ByteRange& range = chosen.range;
  Require(0 <= range.first && range.first <= range.last && range.last < size, "a range lies within its file");
  Require(1 <= range.Length() && range.Length() <= size, "and has a length");
  const std::string one = "bytes=" + std::to_string(range.first) + "-" + std::to_string(range.last);
  const ChosenRange again = ChooseRange(one, size);
  Require(again.outcome == RangeOutcome::kPart && again.range == range, "a range that is written reads back");
}

std::size_t CountLines(std::string_view text) {
  std::size_t lines = 0;
  for (std::size_t at = text.find("\r\n"); at != text.npos; at = text.find("\r\n", at + 2)) ++lines;
  return lines;
}

// Whatever a text is, the header ends where it ends.
void TryHead(std::string_view value) {
  const HostFields host(value);
  const std::string location = LocationText(value, value, true);
  const std::string challenge = BasicChallenge(value);
  std::string head;
  AppendResponseHead(head, {.utcSeconds = kFuzzNow,
                            .server = value,
                            .contentType = value,
                            .charset = value,
                            .entityTag = value,
                            .location = location,
                            .authenticate = challenge,
                            .hostFields = value.size() % 2 == 0 ? &host : nullptr});
  Require(IsFieldText(location) && IsFieldText(challenge), "what is made of a text is fit for a field");
  Require(head.find("\r\n\r\n") == head.size() - 4, "one blank line, at the end");
  for (std::size_t i = 0; i < head.size(); ++i) {
    Require(head[i] != '\n' || (i > 0 && head[i - 1] == '\r'), "no line feed alone");
    Require(head[i] != '\r' || head[i + 1] == '\n', "no carriage return alone");
  }
  Require(CountLines(head) <= 8 + CountLines(value) + 1, "no lines but those that are meant");
}

void TryTexts(std::string_view value) {
  const std::string shown = Utf8OrReplacement(value);
  Require(Utf8OrReplacement(shown) == shown, "what was made valid is valid");
  Require(HtmlText(value).find_first_of("<>\"'") == std::string::npos, "no tag begins in a text");
}

}  // namespace
}  // namespace TesselServer::Modern

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace TesselServer::Modern;
  if (size == 0) return 0;
  constexpr std::int64_t kSizes[] = {0, 1, 2, 10, 100, 65'536, 5'368'709'120, INT64_MAX};
  const auto value = TesselServer::AsText(data + 1, size - 1);
  TryDate(value);
  TryTag(value);
  TryConditions(value);
  TryRange(value, kSizes[data[0] % std::size(kSizes)]);
  TryHead(value);
  TryTexts(value);
  return 0;
}
