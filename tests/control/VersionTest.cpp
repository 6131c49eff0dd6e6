#include <gtest/gtest.h>

#include "support/Format.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

TEST(VersionTest, IsMajorMinorAndThreeDigitsOfRevision) {
  const Kit::TestControl control;
  EXPECT_EQ(control.tessel.Version(), "1.1.000");
}

TEST(VersionTest, ARevisionHasAtLeastThreeDigits) {
  EXPECT_EQ(FormatNumber(5, "00#"), "005");
  EXPECT_EQ(FormatNumber(1234, "00#"), "1234");
}

}  // namespace
}  // namespace TesselServer
