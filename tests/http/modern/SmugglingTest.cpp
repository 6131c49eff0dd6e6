#include <gtest/gtest.h>

#include "tests/http/modern/SmugglingTricks.h"

namespace TesselServer::Modern {
namespace {

template <std::size_t kSize>
void ExpectTricks(const Trick (&tricks)[kSize]) {
  for (const auto& trick : tricks) ExpectRead(trick.bytes, trick.outcome, trick.why);
}

TEST(ModernSmugglingTest, ALengthBesideATransferCodingIsRefused) { ExpectTricks(kLengthBesideCodingTricks); }

TEST(ModernSmugglingTest, ATransferCodingIsChunkedAloneOrRefused) { ExpectTricks(kCodingsTricks); }

TEST(ModernSmugglingTest, ALengthIsDigitsAndOneNumber) { ExpectTricks(kLengthsTricks); }

TEST(ModernSmugglingTest, ChunksAreTakenOnlyAsTheGrammarHasThem) { ExpectTricks(kChunksTricks); }

TEST(ModernSmugglingTest, ExtensionsAndTrailersHideNothing) { ExpectTricks(kExtensionsAndTrailersTricks); }

TEST(ModernSmugglingTest, LinesOfAHeaderBlockAreWhatTheySeem) { ExpectTricks(kLinesTricks); }

TEST(ModernSmugglingTest, OneHostCounts) { ExpectTricks(kHostsTricks); }

TEST(ModernSmugglingTest, TheRequestLineHasOneForm) { ExpectTricks(kRequestLinesTricks); }

TEST(ModernSmugglingTest, TargetsHaveFourForms) { ExpectTricks(kTargetsTricks); }

}  // namespace
}  // namespace TesselServer::Modern
