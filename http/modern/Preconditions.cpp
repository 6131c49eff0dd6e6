#include "http/modern/Preconditions.h"

#include <algorithm>

#include "http/modern/EntityTag.h"
#include "http/modern/HttpDate.h"

namespace TesselServer::Modern {
namespace {

// Whether the thing was modified after the date in `since`; nothing where one of the two dates is missing.
std::optional<bool> WasModifiedSince(std::optional<std::int64_t> since, const Validators& current, std::int64_t now) {
  if (!since || !current.lastModified) return std::nullopt;
  return std::min(*current.lastModified, now) > *since;
}

// Steps 1 and 2: whether the thing is what the client believes it to be.
bool IsAsExpected(const Conditions& conditions, const Validators& current, std::int64_t now) {
  if (conditions.ifMatch) return ListsEntityTag(*conditions.ifMatch, current.tag, TagComparison::kStrong);
  if (!conditions.ifUnmodifiedSince) return true;
  return !WasModifiedSince(ParseHttpDate(*conditions.ifUnmodifiedSince, now), current, now).value_or(false);
}

// Step 4. A date in the future cannot come from an answer of this server.
bool IsUnmodified(std::string_view ifModifiedSince, const Validators& current, std::int64_t now) {
  const auto since = ParseHttpDate(ifModifiedSince, now);
  if (since && *since > now) return false;
  return !WasModifiedSince(since, current, now).value_or(true);
}

}  // namespace

Precondition EvaluateConditions(const Conditions& conditions, const Validators& current, bool isRetrieval,
                                std::int64_t now) {
  if (!IsAsExpected(conditions, current, now)) return Precondition::kFailed;
  if (conditions.ifNoneMatch) {
    if (!ListsEntityTag(*conditions.ifNoneMatch, current.tag, TagComparison::kWeak)) return Precondition::kGoOn;
    return isRetrieval ? Precondition::kNotModified : Precondition::kFailed;
  }
  if (!isRetrieval || !conditions.ifModifiedSince) return Precondition::kGoOn;
  return IsUnmodified(*conditions.ifModifiedSince, current, now) ? Precondition::kNotModified : Precondition::kGoOn;
}

bool IfRangeHolds(std::string_view ifRange, const Validators& current, std::int64_t now) {
  // A quote among the first three bytes tells a tag from a date (section 13.1.5).
  if (ifRange.substr(0, 3).find('"') != std::string_view::npos) {
    return IsSameEntityTag(ifRange, current.tag, TagComparison::kStrong);
  }
  const auto date = ParseHttpDate(ifRange, now);
  return date && date == current.lastModified && *date < now;
}

}  // namespace TesselServer::Modern
