#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <limits>
#include <optional>
#include <string>

#include "platform/files/FileStamp.h"
#include "platform/world/UniqueDescriptor.h"
#include "platform/world/World.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

class FileStampTest : public testing::Test {
 protected:
  FileStamp Stamp(const std::string& path) const {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return StampOf(status);
  }

  Kit::TemporaryTree tree_;
};

TEST_F(FileStampTest, HoldsWhatTheSystemSays) {
  struct stat status {};
  status.st_dev = 7;
  status.st_ino = 8;
  status.st_size = 9;
  status.st_mtim = {-1, 999'999'999};
  status.st_ctim = {1'794'766'805, 25};
  status.st_mode = S_IFREG | 0640;
  const FileStamp stamp = StampOf(status);
  EXPECT_EQ(stamp, (FileStamp{{7, 8}, 9, -1, 1'794'766'805'000'000'025, S_IFREG | 0640}));
}

TEST_F(FileStampTest, ATimeMayLieInAnyYear) {
  constexpr std::int64_t kYear14645 = 400'000'000'000;
  struct stat status {};
  status.st_mtim = {kYear14645, 1};
  const FileStamp stamp = StampOf(status);
  EXPECT_EQ(stamp, StampOf(status));
  for (const timespec& other :
       {timespec{kYear14645, 2}, timespec{kYear14645 + 1, 1}, timespec{1, 1},
        timespec{std::numeric_limits<time_t>::max(), 999'999'999}, timespec{std::numeric_limits<time_t>::min(), 0}}) {
    status.st_mtim = other;
    EXPECT_NE(StampOf(status), stamp) << other.tv_sec << " s and " << other.tv_nsec << " ns";
  }
}

TEST_F(FileStampTest, AChangeIsSettledWhenTwoSecondsHavePassed) {
  constexpr std::int64_t kNow = 1'794'766'805'000'000'000;
  const struct {
    std::int64_t changed;
    bool settled;
    const char* why;
  } cases[] = {
      {kNow - 1'999'999'999, false, "less than two seconds ago"},
      {kNow - 2'000'000'000, true, "two seconds ago"},
      {kNow, false, "now"},
      {kNow + 5'000'000'000, false, "in the future: the clock was set back"},
      {0, true, "long ago"},
  };
  for (const auto& c : cases) {
    FileStamp stamp;
    stamp.modified = kNow;
    stamp.changed = c.changed;
    EXPECT_EQ(IsSettled(stamp, kNow), c.settled) << c.why;
  }
}

TEST_F(FileStampTest, WhatHasJustBeenWrittenIsNotSettled) {
  const FileStamp stamp = Stamp(tree_.Write("a", "x"));
  EXPECT_FALSE(IsSettled(stamp, stamp.changed));
  EXPECT_LE(stamp.changed, SystemWorld().FileClockNanoseconds() + kSettledNanoseconds)
      << "the two clocks are the same one";
  EXPECT_GT(stamp.changed, SystemWorld().FileClockNanoseconds() - 60 * kSettledNanoseconds);
}

TEST_F(FileStampTest, WhatWasReadIsUsedAgainByOneRule) {
  constexpr std::int64_t kNow = 1'794'766'805'000'000'000;
  constexpr FileStamp kOld{{7, 8}, 9, kNow, kNow - kSettledNanoseconds, S_IFREG | 0640};
  constexpr FileStamp kNew{{7, 8}, 9, kNow, kNow - kSettledNanoseconds + 1, S_IFREG | 0640};
  const struct {
    FileStamp read;
    std::optional<FileStamp> now;
    std::int64_t passed;  // milliseconds since the reading began
    bool holds;
    const char* why;
  } cases[] = {
      {kOld, kOld, 0, true, "nothing has changed"},
      {kOld, kOld, Reading::kMaxAgeMilliseconds - 1, true, "nor in a minute"},
      {kOld, kOld, Reading::kMaxAgeMilliseconds, false, "what has no time counts after a minute"},
      {kOld, kNew, 0, false, "it has changed"},
      {kOld, std::nullopt, 0, false, "it is gone"},
      {kNew, kNew, 0, false, "it had just changed when it was read"},
      {kNew, kNew, 10'000, false, "that does not pass: the change was read or not"},
  };
  for (const auto& c : cases) {
    Kit::FakeWorld world;
    world.fileNanoseconds = kNow;
    const Reading reading(c.read, world);
    world.Advance(c.passed);
    EXPECT_EQ(reading.Holds(c.now, world), c.holds) << c.why;
    EXPECT_EQ(reading.IsSettled(), c.read == kOld) << c.why;
  }
}

TEST_F(FileStampTest, OnlyKnownFileSystemsKeepChangeTimes) {
  const UniqueDescriptor made(open("/proc/self", O_PATH | O_CLOEXEC));
  ASSERT_TRUE(made.IsOpen());
  EXPECT_FALSE(KeepsChangeTimes(made.Get(), ReadFrom::kNames)) << "what is made up when it is asked for";
  EXPECT_FALSE(KeepsChangeTimes(-1, ReadFrom::kNames)) << "nothing";
  EXPECT_FALSE(KeepsChangeTimes(made.Get(), ReadFrom::kContents));
  EXPECT_FALSE(KeepsChangeTimes(-1, ReadFrom::kContents));
  const UniqueDescriptor memory(open("/dev/shm", O_PATH | O_CLOEXEC));
  struct statfs facts {};
  if (fstatfs(memory.Get(), &facts) != 0 || facts.f_type != TMPFS_MAGIC) GTEST_SKIP() << "no tmpfs where it usually is";
  EXPECT_TRUE(KeepsChangeTimes(memory.Get(), ReadFrom::kNames));
  EXPECT_FALSE(KeepsChangeTimes(memory.Get(), ReadFrom::kContents)) << "what is written through a mapping";
}

}  // namespace
}  // namespace TesselServer
