#include <gtest/gtest.h>

#include "support/Wipe.h"

namespace TesselServer {
namespace {

TEST(WipeTest, LeavesAnEmptyText) {
  for (const std::string& text : {std::string(), std::string("short"), std::string(1000, 'x')}) {
    std::string wiped = text;
    Wipe(wiped);
    EXPECT_EQ(wiped, "");
    wiped += "new";
    EXPECT_EQ(wiped, "new");
  }
}

}  // namespace
}  // namespace TesselServer
