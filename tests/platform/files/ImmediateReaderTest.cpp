#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "platform/files/ImmediateReader.h"
#include "platform/files/SlowDisk.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/ColdFile.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/SystemCalls.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Calls = std::vector<long>;

class ImmediateReaderTest : public testing::Test {
 protected:
  static UniqueDescriptor Open(const std::string& path) {
    return UniqueDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  }

  Kit::TemporaryTree tree_;
  Kit::FakeWorld world_;
  ReadManners known_{world_};
  std::array<char, 16> bytes_{};
};

TEST_F(ImmediateReaderTest, ReadsWhatIsInMemory) {
  const UniqueDescriptor file = Open(tree_.Write("file", "some bytes"));
  ImmediateReader reader(file.Get());
  EXPECT_EQ(reader.Read(bytes_.data(), bytes_.size(), 5), 5);
  EXPECT_EQ(std::string(bytes_.data(), 5), "bytes");
  EXPECT_EQ(reader.Read(bytes_.data(), bytes_.size(), 10), 0) << "its end";
  for (const std::int64_t offset : {0, 9, 10, 1000}) EXPECT_FALSE(reader.WouldWait(offset)) << offset;
  EXPECT_FALSE(reader.AlwaysWaits());
}

TEST_F(ImmediateReaderTest, WhatIsNotOpenFails) {
  ImmediateReader reader(-1);
  EXPECT_EQ(reader.Read(bytes_.data(), bytes_.size(), 0), -EBADF);
  EXPECT_FALSE(reader.WouldWait(0)) << "that is for the reading to say";
}

TEST_F(ImmediateReaderTest, DoesNotWaitForADisk) {
  const std::string path = tree_.Write("file", std::string(100'000, 'x'));
  const UniqueDescriptor file = Open(path);
  ImmediateReader reader(file.Get());
  bool refuses = false, says = false;  // a disk may be as fast as memory, now and then
  for (int i = 0; i < 100 && !(refuses && says); ++i) {
    if (!Kit::MakeCold(path)) GTEST_SKIP() << Kit::kNoColdFiles;
    refuses = refuses || reader.Read(bytes_.data(), bytes_.size(), 0) == -EAGAIN;
    if (!Kit::MakeCold(path)) GTEST_SKIP() << Kit::kNoColdFiles;
    says = says || reader.WouldWait(99'999);
  }
  if (!refuses || !says) GTEST_SKIP() << Kit::kFastDisk;
  EXPECT_FALSE(reader.AlwaysWaits());
  ASSERT_EQ(ReadPatiently(file.Get(), bytes_.data(), bytes_.size(), 99'999), 1);
  EXPECT_FALSE(reader.WouldWait(99'999)) << "it is in memory now";
}

// The system's own files cannot tell, and count as files that may be waited for.
TEST_F(ImmediateReaderTest, AFileSystemThatCannotTellIsAskedOnceAMinute) {
  constexpr std::uint64_t kDevice = 7;
  const UniqueDescriptor file = Open("/proc/version");
  const auto callsOfTwo = [&] {
    return Kit::SystemCallsOf([&] {
      for (int i = 0; i < 2; ++i) ImmediateReader(file.Get(), kDevice, known_).Read(bytes_.data(), 1, 0);
    });
  };
  const auto first = callsOfTwo();
  if (!first) GTEST_SKIP() << "no process may be traced";
  EXPECT_EQ(*first, (Calls{SYS_preadv2, SYS_fstatfs}));
  ImmediateReader reader(file.Get(), kDevice, known_);
  EXPECT_EQ(reader.Read(bytes_.data(), 1, 0), -EAGAIN);
  EXPECT_TRUE(reader.WouldWait(0));
  EXPECT_TRUE(reader.AlwaysWaits());
  EXPECT_EQ(callsOfTwo(), Calls{});
  world_.Advance(ReadManners::kMaxAgeMilliseconds);
  EXPECT_EQ(callsOfTwo(), first) << "a minute later";
}

TEST_F(ImmediateReaderTest, AFileInMemoryIsReadAtOnceWhetherItsFileSystemCanTellOrNot) {
  const Kit::TemporaryTree memory("/dev/shm");
  const UniqueDescriptor file = Open(memory.Write("file", "bytes"));
  if (MayWait(file.Get())) GTEST_SKIP() << "no tmpfs here";
  for (int i = 0; i < 2; ++i) {
    ImmediateReader reader(file.Get(), 7, known_);
    EXPECT_EQ(reader.Read(bytes_.data(), bytes_.size(), 0), 5);
    EXPECT_FALSE(reader.WouldWait(0));
    EXPECT_FALSE(reader.AlwaysWaits());
  }
  const auto calls =
      Kit::SystemCallsOf([&] { ImmediateReader(file.Get(), 7, known_).Read(bytes_.data(), bytes_.size(), 0); });
  if (!calls) GTEST_SKIP() << "no process may be traced";
  EXPECT_EQ(calls->size(), 1u);
}

TEST_F(ImmediateReaderTest, TheLatestOfItsFileSystemsAreKnown) {
  const auto device = [](std::size_t i) { return std::uint64_t{i}; };
  EXPECT_EQ(known_.Of(0), ReadManner::kAsking);
  for (std::size_t i = 0; i <= ReadManners::kDevices; ++i) {
    known_.Learn(device(i), i % 2 == 0 ? ReadManner::kAtOnce : ReadManner::kBeside);
  }
  EXPECT_EQ(known_.Of(0), ReadManner::kAsking) << "the oldest one made room";
  for (std::size_t i = 1; i <= ReadManners::kDevices; ++i) {
    EXPECT_EQ(known_.Of(device(i)), i % 2 == 0 ? ReadManner::kAtOnce : ReadManner::kBeside) << i;
  }
  world_.Advance(ReadManners::kMaxAgeMilliseconds);
  EXPECT_EQ(known_.Of(1), ReadManner::kAsking);
}

}  // namespace
}  // namespace TesselServer
