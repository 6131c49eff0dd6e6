// Sizes and dates as CFileInfo writes them.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <string>

#include "files/CFileInfo.h"
#include "support/Format.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

class CFileInfoTextTest : public testing::Test {
 protected:
  Kit::TemporaryTree tree_;
  Kit::FakeWorld world_;
  CFileInfo info_{world_};
};

TEST_F(CFileInfoTextTest, SizesAreTheLow32Bits) {
  struct {
    std::int64_t size;
    std::int32_t read;
    const char* shown;
  } const cases[] = {
      {2147483647, 2147483647, "2.00GB"}, {2147483648, -2147483647 - 1, "-2,147,483,648 bytes"},
      {4294967295, -1, "-1 bytes"},       {4294967296, 0, "0 bytes"},
      {4294968320, 1024, "1.00KB"},
  };
  for (const auto& c : cases) {
    const std::string path = tree_.Write("sparse", "");
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(c.size));
    info_.FullPathName(path);
    EXPECT_EQ(info_.FileSize(), c.read);
    EXPECT_EQ(info_.FormatFileSize(info_.FileSize()), c.shown);
  }
}

TEST_F(CFileInfoTextTest, FormatsSizesWithThreeDigits) {
  constexpr auto kLeast = std::numeric_limits<std::int32_t>::min();
  constexpr auto kMost = std::numeric_limits<std::int32_t>::max();
  struct {
    std::int32_t size;
    const char* text;
  } const cases[] = {
      {0, "0 bytes"},
      {1, "1 bytes"},
      {500, "500 bytes"},
      {999, "999 bytes"},
      {1000, "1,000 bytes"},
      {1023, "1,023 bytes"},
      {1024, "1.00KB"},
      {1029, "1.00KB"},
      {1030, "1.01KB"},
      {1536, "1.50KB"},
      {1152, "1.13KB"},  // 1.125: half away from zero
      {10239, "10.00KB"},
      {10240, "10.0KB"},
      {10291, "10.0KB"},
      {10292, "10.1KB"},
      {10496, "10.3KB"},  // 10.25
      {102399, "100.0KB"},
      {102400, "100KB"},
      {102911, "100KB"},
      {102912, "101KB"},  // 100.5
      {1023999, "1000KB"},
      {1024000, "0.98MB"},
      {1048576, "1.00MB"},
      {10239999, "9.77MB"},
      {10240000, "9.8MB"},
      {102399999, "97.7MB"},
      {102400000, "98MB"},
      {1023999999, "977MB"},
      {1024000000, "0.95GB"},
      {1048575999, "0.98GB"},
      {1048576000, "0.98GB"},
      {1073741824, "1.00GB"},
      {1610612736, "1.50GB"},
      {kMost, "2.00GB"},
      {-1, "-1 bytes"},
      {-1024, "-1,024 bytes"},
      {kLeast, "-2,147,483,648 bytes"},
  };
  for (const auto& c : cases) EXPECT_EQ(info_.FormatFileSize(c.size), c.text) << c.size;
}

TEST_F(CFileInfoTextTest, SizesAreRoundedAsAnyNumberIs) {
  constexpr std::int32_t kKB = 1024, kMB = kKB * 1024, kGB = kMB * 1024;
  struct {
    std::int32_t from, to;
    std::int32_t unit;
    const char* picture;
    const char* word;
  } const cases[] = {
      {-70'000, kKB - 1, 1, "#,##0", " bytes"},
      {kKB, 10 * kKB - 1, kKB, "0.00", "KB"},
      {10 * kKB, 100 * kKB - 1, kKB, "0.0", "KB"},
      {100 * kKB, 1000 * kKB - 1, kKB, "0", "KB"},
      {1000 * kKB, 10'000 * kKB - 1, kMB, "0.00", "MB"},
      {10'000 * kKB, 100'000 * kKB - 1, kMB, "0.0", "MB"},
      {100'000 * kKB, 1'000'000 * kKB - 1, kMB, "0", "MB"},
      {1'000'000 * kKB, std::numeric_limits<std::int32_t>::max(), kGB, "0.00", "GB"},
  };
  constexpr std::int64_t kEach = 20'000;
  for (const auto& c : cases) {
    const std::int64_t step = std::max<std::int64_t>((std::int64_t{c.to} - c.from) / kEach, 1);
    for (std::int64_t each = c.from; each <= c.to; each += step) {
      const auto size = static_cast<std::int32_t>(each);
      const std::string expected = FormatNumber(static_cast<double>(size) / c.unit, c.picture) + c.word;
      ASSERT_EQ(info_.FormatFileSize(size), expected) << size;
    }
  }
  for (std::int64_t eighth = 8; eighth * (kMB / 8) <= 10'000LL * kKB; ++eighth) {
    for (const std::int64_t away : {-1, 0, 1}) {  // the halves of a hundredth, which lie on an eighth, and beside them
      const auto size = static_cast<std::int32_t>(eighth * (kMB / 8) + away);
      if (size >= 10'000 * kKB) continue;
      const std::string expected = FormatNumber(static_cast<double>(size) / kMB, "0.00") + "MB";
      ASSERT_EQ(info_.FormatFileSize(size), expected) << size;
    }
  }
}

TEST_F(CFileInfoTextTest, FormatsDates) {
  const Date date = DateFromCivil({2026, 11, 15, 18, 20, 5, 1});
  EXPECT_EQ(info_.FormatFileDate(date), "Sunday, November 15, 2026 6:20:05 PM");
  EXPECT_EQ(info_.FormatFileDateShort(date, "dd/mm/yyyy"), "15/11/2026 18:20:05");
  EXPECT_EQ(info_.FormatFileTimeOnlyShort(date), "18:20:05");
  EXPECT_EQ(info_.FormatFileDateOnlyShort(date, "YYYY/MM/DD"), "2026/11/15");
  EXPECT_EQ(info_.FormatFileDateOnlyShort(date, ""), "");
  EXPECT_EQ(info_.FormatFileDateShort(date, ""), " 18:20:05");
  const Date early = DateFromCivil({2026, 1, 2, 3, 4, 5, 1});
  EXPECT_EQ(info_.FormatFileDate(early), "Friday, January 2, 2026 3:04:05 AM");
  EXPECT_EQ(info_.FormatFileDateShort(early, "YYYY/MM/DD"), "2026/01/02 03:04:05");
}

TEST_F(CFileInfoTextTest, DirModTimeIsTheFileTimeZeroInLocalTime) {
  struct {
    std::int32_t bias;
    const char* text;
  } const cases[] = {
      {0, "-109205"},
      {-60, "-109204.958333333"},
      {300, "-109205.208333333"},
      {-720, "-109204.5"},
  };
  for (const auto& c : cases) {
    world_.bias = [&c](std::int64_t) { return c.bias; };
    EXPECT_EQ(info_.DirModTime(), c.text);
  }
}

}  // namespace
}  // namespace TesselServer
