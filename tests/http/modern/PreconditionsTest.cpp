#include <gtest/gtest.h>

#include "http/modern/HttpDate.h"
#include "http/modern/Preconditions.h"

namespace TesselServer::Modern {
namespace {

constexpr std::int64_t kModifiedThen = 784111777;  // Sunday, 6 November 1994, 08:49:37 UTC
constexpr std::int64_t kAskedNow = 1795300128;     // Saturday, 21 November 2026, 22:28:48 UTC

constexpr const char* kSameDate = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr const char* kEarlier = "Sun, 06 Nov 1994 08:49:36 GMT";
constexpr const char* kLater = "Sun, 06 Nov 1994 08:49:38 GMT";
constexpr const char* kInFuture = "Sat, 21 Nov 2026 22:28:49 GMT";
constexpr const char* kNoDate = "yesterday";

constexpr Validators kTagged = {"\"x\"", kModifiedThen};
constexpr Validators kBare = {"", std::nullopt};

std::optional<std::string_view> Given(const char* value) {
  return value ? std::optional<std::string_view>(value) : std::nullopt;
}

constexpr auto kGo = Precondition::kGoOn;
constexpr auto k304 = Precondition::kNotModified;
constexpr auto k412 = Precondition::kFailed;

TEST(PreconditionsTest, AreEvaluatedInTheirOrder) {
  const struct {
    const char *ifMatch, *ifUnmodifiedSince, *ifNoneMatch, *ifModifiedSince;
    Precondition ofGet, ofPost;
    const char* why;
  } cases[] = {
      {nullptr, nullptr, nullptr, nullptr, kGo, kGo, "no condition"},
      {"\"x\"", nullptr, nullptr, nullptr, kGo, kGo, "it is what the client knows"},
      {"\"a\", \"x\"", nullptr, nullptr, nullptr, kGo, kGo, "one of those"},
      {"*", nullptr, nullptr, nullptr, kGo, kGo, "there is something"},
      {"\"y\"", nullptr, nullptr, nullptr, k412, k412, "it is something else"},
      {"W/\"x\"", nullptr, nullptr, nullptr, k412, k412, "compared as strong tags"},
      {"", nullptr, nullptr, nullptr, k412, k412, "an empty list names nothing"},
      {"x", nullptr, nullptr, nullptr, k412, k412, "no tag names nothing"},
      {nullptr, kSameDate, nullptr, nullptr, kGo, kGo, "not modified since"},
      {nullptr, kLater, nullptr, nullptr, kGo, kGo, "likewise"},
      {nullptr, kInFuture, nullptr, nullptr, kGo, kGo, "likewise, as far as one can know"},
      {nullptr, kEarlier, nullptr, nullptr, k412, k412, "modified since"},
      {nullptr, kNoDate, nullptr, nullptr, kGo, kGo, "no date: ignored"},
      {nullptr, "", nullptr, nullptr, kGo, kGo, "likewise"},
      {"\"x\"", kEarlier, nullptr, nullptr, kGo, kGo, "If-Unmodified-Since is ignored beside If-Match"},
      {"\"y\"", kLater, nullptr, nullptr, k412, k412, "likewise"},
      {nullptr, nullptr, "\"x\"", nullptr, k304, k412, "the client has it"},
      {nullptr, nullptr, "W/\"x\"", nullptr, k304, k412, "compared as weak tags"},
      {nullptr, nullptr, "\"y\"", nullptr, kGo, kGo, "the client has something else"},
      {nullptr, nullptr, "*", nullptr, k304, k412, "the client has anything"},
      {nullptr, nullptr, "", nullptr, kGo, kGo, "the client has nothing"},
      {nullptr, nullptr, "x", nullptr, kGo, kGo, "no tag"},
      {nullptr, nullptr, nullptr, kSameDate, k304, kGo, "not modified since; other methods have no such condition"},
      {nullptr, nullptr, nullptr, kLater, k304, kGo, "a later date will do"},
      {nullptr, nullptr, nullptr, kEarlier, kGo, kGo, "modified since"},
      {nullptr, nullptr, nullptr, kInFuture, kGo, kGo, "a date in the future is ignored"},
      {nullptr, nullptr, nullptr, "Sat, 21 Nov 2026 22:28:48 GMT", k304, kGo, "now is not in the future"},
      {nullptr, nullptr, nullptr, kNoDate, kGo, kGo, "no date: ignored"},
      {nullptr, nullptr, nullptr, "Sunday, 06-Nov-94 08:49:37 GMT", k304, kGo, "an old form of the date"},
      {nullptr, nullptr, nullptr, "Sun Nov  6 08:49:37 1994", k304, kGo, "another"},
      {nullptr, nullptr, "\"y\"", kLater, kGo, kGo, "If-Modified-Since is ignored beside If-None-Match"},
      {nullptr, nullptr, "\"x\"", kEarlier, k304, k412, "likewise"},
      {"\"x\"", nullptr, "\"x\"", nullptr, k304, k412, "both the client's and known"},
      {"\"y\"", nullptr, "\"x\"", nullptr, k412, k412, "If-Match comes first"},
      {"\"y\"", nullptr, nullptr, kLater, k412, k412, "likewise"},
      {nullptr, kEarlier, "\"x\"", nullptr, k412, k412, "If-Unmodified-Since comes before If-None-Match"},
      {nullptr, kLater, "\"x\"", nullptr, k304, k412, "and when it holds the next one counts"},
      {nullptr, kEarlier, nullptr, kLater, k412, k412, "If-Unmodified-Since comes before If-Modified-Since"},
      {nullptr, kLater, nullptr, kLater, k304, kGo, "and when it holds the next one counts"},
      {nullptr, kNoDate, nullptr, kLater, k304, kGo, "and when it is ignored"},
  };
  for (const auto& c : cases) {
    const Conditions conditions{Given(c.ifMatch), Given(c.ifUnmodifiedSince), Given(c.ifNoneMatch),
                                Given(c.ifModifiedSince)};
    EXPECT_EQ(conditions.HasAny(), c.ifMatch || c.ifUnmodifiedSince || c.ifNoneMatch || c.ifModifiedSince) << c.why;
    EXPECT_EQ(EvaluateConditions(conditions, kTagged, true, kAskedNow), c.ofGet) << c.why;
    EXPECT_EQ(EvaluateConditions(conditions, kTagged, false, kAskedNow), c.ofPost) << "POST: " << c.why;
  }
}

TEST(PreconditionsTest, OfAThingWithoutTagAndDateOnlyTheStarSaysAnything) {
  const struct {
    Conditions conditions;
    Precondition outcome;
    const char* why;
  } cases[] = {
      {{.ifMatch = "*"}, kGo, "it exists"},
      {{.ifMatch = "\"x\""}, k412, "it is not what the client has"},
      {{.ifUnmodifiedSince = kEarlier}, kGo, "without a date there is nothing to compare (section 13.1.4)"},
      {{.ifNoneMatch = "*"}, k304, "it exists"},
      {{.ifNoneMatch = "\"x\""}, kGo, "it is not what the client has"},
      {{.ifModifiedSince = kLater}, kGo, "without a date there is nothing to compare"},
  };
  for (const auto& c : cases) EXPECT_EQ(EvaluateConditions(c.conditions, kBare, true, kAskedNow), c.outcome) << c.why;
}

TEST(PreconditionsTest, AThingFromTheFutureIsModifiedNow) {
  const Validators future{"\"x\"", kAskedNow + 1'000'000};
  const std::string now = HttpDateText(kAskedNow), before = HttpDateText(kAskedNow - 1);
  EXPECT_EQ(EvaluateConditions({.ifModifiedSince = now}, future, true, kAskedNow), k304);
  EXPECT_EQ(EvaluateConditions({.ifModifiedSince = before}, future, true, kAskedNow), kGo);
  EXPECT_EQ(EvaluateConditions({.ifUnmodifiedSince = now}, future, true, kAskedNow), kGo);
  EXPECT_EQ(EvaluateConditions({.ifUnmodifiedSince = before}, future, true, kAskedNow), k412);
}

TEST(PreconditionsTest, ARangeNeedsTheVeryThingThatTheClientHas) {
  const struct {
    std::string_view ifRange;
    bool holds;
    const char* why;
  } cases[] = {
      {"\"x\"", true, "the tag"},
      {"W/\"x\"", false, "weak tags do not say that bytes are the same"},
      {"\"y\"", false, "another tag"},
      {"\"x\", \"y\"", false, "no list here"},
      {"*", false, "no star here"},
      {"x", false, "no tag and no date"},
      {"", false, "nothing"},
      {"\"", false, "half a tag"},
      {kSameDate, true, "the date exactly"},
      {"Sunday, 06-Nov-94 08:49:37 GMT", true, "the same date in another form"},
      {kEarlier, false, "another date"},
      {kLater, false, "a later date is another one, too"},
      {kInFuture, false, "likewise"},
      {kNoDate, false, "no date"},
  };
  for (const auto& c : cases) EXPECT_EQ(IfRangeHolds(c.ifRange, kTagged, kAskedNow), c.holds) << c.why;
  EXPECT_FALSE(IfRangeHolds("W/\"x\"", {"W/\"x\"", std::nullopt}, kAskedNow)) << "even where the own one is weak";
  EXPECT_FALSE(IfRangeHolds(kSameDate, kBare, kAskedNow)) << "without a date";
  EXPECT_FALSE(IfRangeHolds("\"x\"", kBare, kAskedNow)) << "without a tag";
}

TEST(PreconditionsTest, ADateOfTheLastSecondIsTooWeakForARange) {
  EXPECT_FALSE(IfRangeHolds(kSameDate, kTagged, kModifiedThen)) << "it may change again within this second";
  EXPECT_TRUE(IfRangeHolds(kSameDate, kTagged, kModifiedThen + 1));
  EXPECT_FALSE(IfRangeHolds(kSameDate, kTagged, kModifiedThen - 1)) << "a file from the future";
  EXPECT_TRUE(IfRangeHolds("\"x\"", kTagged, kModifiedThen)) << "a tag has nanoseconds in it";
}

}  // namespace
}  // namespace TesselServer::Modern
