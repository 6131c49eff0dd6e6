#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "control/life/Settings.h"
#include "platform/world/Error.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(SettingsTest, PortTextsConvertOrRaise) {
  EXPECT_EQ(ParseServerPort(" 8080 "), 8080);
  EXPECT_EQ(ParseServerPort("80.5"), 80) << "half to even";
  EXPECT_EQ(ParseServerPort("81.5"), 82);
  struct {
    const char* text;
    std::int32_t number;
  } const cases[] = {{"", 13}, {"abc", 13}, {"0x50", 13}, {"99999999999", 6}, {"-99999999999", 6}};
  for (const auto& c : cases) {
    try {
      ParseServerPort(c.text);
      ADD_FAILURE() << c.text;
    } catch (const Error& error) {
      EXPECT_EQ(error.Number(), c.number) << c.text;
    }
  }
}

TEST(SettingsTest, SecondsAreMovedIntoTheirRange) {
  EXPECT_EQ(ClampSeconds(-1), 0);
  EXPECT_EQ(ClampSeconds(30), 30);
  EXPECT_EQ(ClampSeconds(2'000'000'001), 2'000'000'000);
}

TEST(SettingsTest, BlanksGoAndTabsStay) {
  EXPECT_EQ(WithoutBlanks(" default.htm , index.html "), "default.htm,index.html");
  EXPECT_EQ(WithoutBlanks("   "), "");
  EXPECT_EQ(WithoutBlanks("a\tb"), "a\tb");
}

class LoadLinesTest : public testing::Test {
 protected:
  LineTable Load(const std::string& bytes) const { return LoadLines(tree.Write("lines.txt", bytes)); }

  Kit::TemporaryTree tree;
};

TEST_F(LoadLinesTest, EachLineIsTrimmedAndEmptyOnesStay) {
  const LineTable lines = Load("  one \r\n\r\ntwo\n\n  \nthree");
  ASSERT_NE(lines, nullptr);
  EXPECT_THAT(*lines, ElementsAre("one", "", "two", "", "", "three"));
}

TEST_F(LoadLinesTest, AnEmptyFileIsAnEmptyTable) {
  const LineTable lines = Load("");
  ASSERT_NE(lines, nullptr);
  EXPECT_THAT(*lines, IsEmpty());
}

TEST_F(LoadLinesTest, BytesPassUnchanged) {
  const std::string bytes("a\0\xFF\xC3\xA4,x", 7);
  const LineTable lines = Load(bytes);
  ASSERT_NE(lines, nullptr);
  EXPECT_THAT(*lines, ElementsAre(bytes));
}

TEST_F(LoadLinesTest, ATableHasItsLimits) {
  const LineTable most = Load(std::string(Settings::kMaxTableLines, '\n'));
  ASSERT_NE(most, nullptr);
  EXPECT_EQ(most->size(), Settings::kMaxTableLines);
  EXPECT_EQ(Load(std::string(Settings::kMaxTableLines + 1, '\n')), nullptr);
  EXPECT_NE(Load(std::string(Settings::kMaxTableBytes, 'x')), nullptr);
  EXPECT_EQ(Load(std::string(Settings::kMaxTableBytes + 1, 'x')), nullptr);
}

TEST_F(LoadLinesTest, WhatIsNoFileIsNoTable) {
  EXPECT_EQ(LoadLines(""), nullptr);
  EXPECT_EQ(LoadLines(tree.Text()), nullptr);
  EXPECT_EQ(LoadLines(tree.Text() + "/missing"), nullptr);
}

TEST(SettingsTest, ListsAreStoredWithoutBlanksAndCutInOrder) {
  Settings settings;
  settings.SetIndexPageNames(" default.htm , index.html ");
  EXPECT_EQ(settings.IndexPageNames, "default.htm,index.html");
  EXPECT_EQ(settings.IndexPageList, (std::vector<std::string>{"default.htm", "index.html"}));
  settings.SetIndexPageNames(" ");
  EXPECT_EQ(settings.IndexPageNames, "");
  EXPECT_THAT(settings.IndexPageList, IsEmpty());
}

TEST(SettingsTest, TheListOfIndexPagesIsThatOfTheNamesFromTheBeginning) {
  const Settings settings;
  EXPECT_THAT(settings.IndexPageList, ElementsAre(settings.IndexPageNames));
}

TEST(SettingsTest, SecretLinesAreReadAsOthersAre) {
  const Kit::TemporaryTree tree;
  const auto lines = SecretLines::Load(tree.Write("users.txt", " realm: site \r\n\r\nanna:secret"));
  ASSERT_NE(lines, nullptr);
  EXPECT_THAT(lines->Lines(), ElementsAre("realm: site", "", "anna:secret"));
  EXPECT_EQ(SecretLines::Load(tree.Text() + "/missing"), nullptr);
  EXPECT_EQ(SecretLines::Load(tree.Write("long.txt", std::string(Settings::kMaxTableLines + 1, '\n'))), nullptr);
}

}  // namespace
}  // namespace TesselServer
