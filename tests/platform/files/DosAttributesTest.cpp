#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/files/DosAttributes.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/Child.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/SystemCallFilter.h"
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
  const UniqueDescriptor made(open("/proc/self", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const DosAttributesAnswer none = AskDosAttributes(made.Get(), "status");
  EXPECT_EQ(none.attributes, 0U);
  EXPECT_FALSE(none.isSupported);
  EXPECT_FALSE(none.isCertain);
  const DosAttributesAnswer missing = AskDosAttributes(made.Get(), "nonexistent");
  EXPECT_EQ(missing.attributes, 0U);
  EXPECT_TRUE(missing.isSupported) << "a missing file says nothing of the file system";
  EXPECT_FALSE(missing.isCertain) << "and nothing of itself";
  EXPECT_EQ(DosAttributesOf("/proc/self/status"), 0U);
  EXPECT_FALSE(WriteDosAttributes("/proc/self/status", 2));
}

TEST(DosAttributesTest, AFileInAFolderAnswersForCertain) {
  const Kit::TemporaryTree tree;
  const std::string file = tree.Write("a b", "x");
  const UniqueDescriptor folder(open(tree.Text().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!Kit::SetDosAttributes(file, "0x6")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  std::filesystem::create_symlink("a b", tree.Path() / "link");
  for (const char* name : {"a b", "link"}) {
    const DosAttributesAnswer answer = AskDosAttributes(folder.Get(), name);
    EXPECT_EQ(answer.attributes, 6U) << name;
    EXPECT_TRUE(answer.isCertain) << name;
  }
  tree.Write("plain", "x");
  const DosAttributesAnswer plain = AskDosAttributes(folder.Get(), "plain");
  EXPECT_EQ(plain.attributes, 0U);
  EXPECT_TRUE(plain.isCertain) << "it has none, and says so";
}

TEST(DosAttributesTest, AKernelWithoutTheCallForItAnswersTheSame) {
  const Kit::TemporaryTree tree;
  if (!Kit::SetDosAttributes(tree.Write("hidden", "x"), "0x2")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  tree.Write("plain", "x");
  std::filesystem::create_symlink("/proc/self/status", tree.Path() / "link");
  const UniqueDescriptor folder(open(tree.Text().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (const int refusal : {ENOSYS, EPERM}) {
    const int status = Kit::InChild([&] {
      if (!Kit::RefuseSystemCall(Kit::kGetAttributeAt, refusal)) return 1;
      for (int i = 0; i < 2; ++i) {
        const DosAttributesAnswer hidden = AskDosAttributes(folder.Get(), "hidden");
        const DosAttributesAnswer plain = AskDosAttributes(folder.Get(), "plain");
        if (hidden.attributes != 2 || !hidden.isCertain) return 2;
        if (plain.attributes != 0 || !plain.isCertain) return 3;
        if (AskDosAttributes(folder.Get(), "link").isSupported) return 4;
        if (!AskDosAttributes(folder.Get(), "missing").isSupported) return 5;
      }
      return 0;
    });
    EXPECT_EQ(status, 0) << refusal;
  }
}

TEST(DosAttributesTest, AFileThatMayNotBeReadDoesNotAnswer) {
  const Kit::TemporaryTree tree;
  const std::string file = tree.Write("a", "x");
  if (!Kit::SetDosAttributes(file, "0x2")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  std::filesystem::permissions(tree.Path(), std::filesystem::perms(0755));
  std::filesystem::permissions(file, std::filesystem::perms(0));
  const int status = Kit::InUnprivilegedChild([&tree] {
    const UniqueDescriptor folder(open(tree.Text().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const DosAttributesAnswer answer = AskDosAttributes(folder.Get(), "a");
    return answer.attributes == 0 && !answer.isCertain && answer.isSupported ? 0 : 1;
  });
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "no other user to change to";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace TesselServer
