#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>

#include "platform/network/NetworkSubsystem.h"
#include "platform/world/World.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/SystemCallFilter.h"

namespace TesselServer {
namespace {

TEST(NetworkSubsystemTest, IsOneAndTheSame) { EXPECT_EQ(&SystemNetwork(), &SystemNetwork()); }

TEST(NetworkSubsystemTest, StartsInTheVersionAskedForWithTheSocketsOfThisProcess) {
  const std::size_t before = Kit::CountDescriptors();
  const NetworkStart start = SystemNetwork().StartUp(0x0202);
  EXPECT_EQ(start.error, 0);
  EXPECT_EQ(start.version, 0x0202);
  EXPECT_EQ(start.maxSockets, std::min<std::int64_t>(SystemWorld().DescriptorLimit(), 65535));
  EXPECT_EQ(SystemNetwork().CleanUp(), 0);
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST(NetworkSubsystemTest, EachStartHasItsEnd) {
  EXPECT_EQ(SystemNetwork().CleanUp(), 10093) << "never started";
  SystemNetwork().StartUp(0x0101);
  SystemNetwork().StartUp(0x0101);
  EXPECT_EQ(SystemNetwork().CleanUp(), 0);
  EXPECT_EQ(SystemNetwork().CleanUp(), 0);
  EXPECT_EQ(SystemNetwork().CleanUp(), 10093);
}

TEST(NetworkSubsystemTest, AProcessThatMayHaveNoSocketsCannotStart) {
  const int status = Kit::InChild([] {
    if (!Kit::RefuseSystemCall(SYS_socket, EACCES)) return 200;
    const NetworkStart start = SystemNetwork().StartUp(0x0101);
    if (start.error != 10013 || start.maxSockets != 0) return 1;
    return SystemNetwork().CleanUp() == 10093 ? 0 : 2;
  });
  if (status == 200) GTEST_SKIP() << "this kernel takes no system call filter";
  EXPECT_EQ(status, 0);
}

TEST(NetworkSubsystemTest, ALackOfDescriptorsIsNoErrorButHasNoSockets) {
  const int status = Kit::InChild([] {
    if (SystemNetwork().StartUp(0x0101).error != 0 || SystemNetwork().CleanUp() != 0) return 3;  // as it is otherwise
    const rlimit none{0, 0};
    if (setrlimit(RLIMIT_NOFILE, &none) != 0) return 1;
    const NetworkStart start = SystemNetwork().StartUp(0x0101);
    return start.error == 0 && start.version == 0x0101 && start.maxSockets == 0 ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace TesselServer
