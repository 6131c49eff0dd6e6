#include <gtest/gtest.h>

#include <cerrno>
#include <limits>

#include "platform/world/SystemErrorText.h"

namespace TesselServer {
namespace {

TEST(SystemErrorTextTest, IsTheTextOfTheSystem) {
  EXPECT_EQ(SystemErrorText(EPERM), "Operation not permitted");
  EXPECT_EQ(SystemErrorText(ENOENT), "No such file or directory");
  EXPECT_EQ(SystemErrorText(EOPNOTSUPP), "Operation not supported");
}

TEST(SystemErrorTextTest, NumbersThatTheSystemDoesNotKnowHaveOneText) {
  for (const std::int32_t code :
       {-1, 41, 1000, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_EQ(SystemErrorText(code), "Unknown error.") << code;
  }
}

TEST(SystemErrorTextTest, EveryTextFitsItsLine) {
  for (std::int32_t code = 0; code < 200; ++code) {
    EXPECT_FALSE(SystemErrorText(code).empty()) << code;
    EXPECT_LE(SystemErrorText(code).size(), kMaxSystemErrorBytes) << code;
  }
}

}  // namespace
}  // namespace TesselServer
