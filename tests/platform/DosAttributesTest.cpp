#include <fcntl.h>
#include <gtest/gtest.h>

#include "platform/internal/DosAttributes.h"
#include "platform/internal/UniqueDescriptor.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

TEST(DosAttributesTest, ReadsHexadecimalTextAndNothingElse) {
  struct {
    std::string_view value;
    std::uint32_t number;
    const char* why;
  } const cases[] = {
      {"0x2", 2, "one digit"},
      {"0x26", 0x26, "two"},
      {"0XfF", 0xFF, "either case"},
      {"0xffffffff", 0xFFFFFFFF, "the largest"},
      {"0x100000000", 0, "one more"},
      {"0x0", 0, "nothing set"},
      {std::string_view("0x22\0\1\2", 7), 0x22, "other bytes behind it"},
      {"", 0, "empty"},
      {"0", 0, "too short"},
      {"0x", 0, "no digits"},
      {"0xg", 0, "no digit"},
      {"22", 0, "another form"},
      {" 0x2", 0, "a blank"},
      {"0x-2", 0, "a sign"},
  };
  for (const auto& c : cases) EXPECT_EQ(ParseDosAttributes(c.value), c.number) << c.why;
}

TEST(DosAttributesTest, WritesWhatItReadsBack) {
  const Kit::TemporaryTree tree;
  const std::string file = tree.Write("a", "x");
  if (!Kit::SetDosAttributes(file, "0x0")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  const UniqueDescriptor opened(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  for (const std::uint32_t number : {0U, 2U, 6U, 0x106U, 0xFFFFFFFFU}) {
    ASSERT_TRUE(WriteDosAttributes(file, number));
    EXPECT_EQ(DosAttributesOf(file), number);
    EXPECT_EQ(DosAttributesOf(opened.Get()), number);
  }
  ASSERT_TRUE(Kit::SetDosAttributes(file, std::string_view("0x26\0old", 8)));
  ASSERT_TRUE(WriteDosAttributes(file, 4));
  EXPECT_EQ(Kit::DosAttributes(file), "0x4") << "the bytes behind the old number are gone";
}

TEST(DosAttributesTest, WhatHasNoneHasNoAttributeSet) {
  const Kit::TemporaryTree tree;
  EXPECT_EQ(DosAttributesOf(tree.Write("a", "x")), 0U);
  EXPECT_EQ(DosAttributesOf(tree.Text() + "/missing"), 0U);
  EXPECT_EQ(DosAttributesOf(-1), 0U);
  EXPECT_FALSE(WriteDosAttributes(tree.Text() + "/missing", 2));
}

TEST(DosAttributesTest, AFileSystemWithoutThemSaysSo) {
  bool supported = true;
  EXPECT_EQ(DosAttributesOf("/proc/self/status", supported), 0U);
  EXPECT_FALSE(supported);
  EXPECT_EQ(DosAttributesOf("/nonexistent", supported), 0U);
  EXPECT_TRUE(supported) << "a missing file says nothing of the file system";
  EXPECT_FALSE(WriteDosAttributes("/proc/self/status", 2));
}

}  // namespace
}  // namespace TesselServer
