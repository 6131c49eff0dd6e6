#include <gtest/gtest.h>

#include "control/life/ComponentVersion.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

TEST(VersionTest, IsTheComponentsOwn) {
  const Kit::TestControl control;
  EXPECT_EQ(control.tessel.Version(), "1.1.000");
}

TEST(VersionTest, IsMajorMinorAndAtLeastThreeDigitsOfRevision) {
  EXPECT_EQ(VersionText(1, 1, 5), "1.1.005");
  EXPECT_EQ(VersionText(2, 10, 1234), "2.10.1234");
}

}  // namespace
}  // namespace TesselServer
