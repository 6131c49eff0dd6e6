#include <gtest/gtest.h>
#include <sys/resource.h>

#include "platform/world/HostProcess.h"
#include "platform/world/World.h"
#include "tests/kit/Child.h"

namespace TesselServer {
namespace {

// In a child of its own: limits belong to the process.
TEST(HostProcessTest, RaisesTheSoftLimitToTheHardOne) {
  const int status = Kit::InChild([] {
    rlimit limit{64, 100};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
    if (SystemWorld().DescriptorLimit() != 64) return 2;
    if (RaiseDescriptorLimit() != 100) return 3;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur != 100 || limit.rlim_max != 100) return 4;
    return RaiseDescriptorLimit() == 100 ? 0 : 5;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace TesselServer
