#include <gtest/gtest.h>

#include "support/cls_Cookies.h"

namespace TesselServer {
namespace {

TEST(cls_CookiesTest, ThereAreNoCookies) { EXPECT_EQ(cls_Cookies().Cookies(), ""); }

}  // namespace
}  // namespace TesselServer
