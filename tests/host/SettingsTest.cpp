#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/Options.h"
#include "host/Settings.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

// The options that "tessel ARGUMENTS" has.
Options Parsed(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "tessel");
  return ParseOptions(static_cast<int>(arguments.size()), arguments.data());
}

class SettingsTest : public testing::Test {
 protected:
  EventLoop loop;
  Tessel tessel{loop};
};

TEST_F(SettingsTest, BoundsOfMemoryReachTheControl) {
  ApplySettings(tessel,
                Parsed({"--max-body-bytes=5", "--max-body-bytes-total", "6000000000", "--max-unsent-page-bytes=7"}));
  EXPECT_EQ(tessel.MaxBodyBytes(), 5);
  EXPECT_EQ(tessel.MaxBodyBytesTotal(), 6'000'000'000);
  EXPECT_EQ(tessel.MaxUnsentPageBytes(), 7);
}

TEST_F(SettingsTest, ProgramsAndThreadsReachTheControl) {
  ApplySettings(tessel, Parsed({"--max-programs=5", "--workers", "0"}));
  EXPECT_EQ(tessel.MaxPrograms(), 5);
  EXPECT_EQ(tessel.Workers(), 0);
}

TEST_F(SettingsTest, TheDefaultsThatHelpNamesAreTheControls) {
  ApplySettings(tessel, Parsed({}));
  const auto help = Parsed({"--help"}).helpText;
  EXPECT_NE(help.find("(default: " + std::to_string(tessel.MaxBodyBytes()) + ")"), std::string::npos);
  EXPECT_EQ(tessel.MaxBodyBytesTotal(), 268435456);
  EXPECT_EQ(tessel.MaxUnsentPageBytes(), 268435456);
  EXPECT_NE(help.find("(default: 268435456)"), std::string::npos);
  EXPECT_EQ(tessel.MaxPrograms(), 32);
  EXPECT_NE(help.find("(default: 32)"), std::string::npos);
  EXPECT_EQ(tessel.Workers(), 4);
  EXPECT_NE(help.find("(default: 4)"), std::string::npos);
}

// "" when the settings are taken.
std::string FailureOf(Tessel& tessel, const Options& options) {
  try {
    ApplySettings(tessel, options);
  } catch (const SettingError& error) {
    return error.what();
  }
  return "";
}

TEST_F(SettingsTest, AFileThatIsNoTableForTheControlIsAnError) {
  const Kit::TemporaryTree tree;
  std::string most;
  for (int i = 0; i < 32767; ++i) most += "a:b\n";
  const std::string taken = tree.Write("taken.txt", most);
  const std::string lines = tree.Write("lines.txt", most + "a:b\n");
  const std::string bytes = tree.Write("bytes.txt", std::string(16 * 1024 * 1024 + 1, 'x'));
  for (const std::string name : {"authentication", "content-type"}) {
    const std::string option = "--" + name + "-source-file";
    EXPECT_EQ(FailureOf(tessel, Parsed({option.c_str(), taken.c_str()})), "");
    const std::string what = name == "authentication" ? "passwords" : "content types";
    const std::string key = name == "authentication" ? "AuthenticationSourceFile" : "ContentTypeSourceFile";
    for (const std::string& file : {lines, bytes}) {
      const std::string failure = file + ": the file of " + what + " has more than 32767 lines or 16 MiB";
      EXPECT_EQ(FailureOf(tessel, Parsed({option.c_str(), file.c_str()})), failure);
      const std::string config = tree.Write("tessel.conf", key + "=" + file + "\n");
      EXPECT_EQ(FailureOf(tessel, Parsed({"--config", config.c_str()})), failure);
    }
  }
}

TEST(OptionsTest, ContentTypesAreAllKept) {
  const auto options = Parsed({"--content-type", ".x=a/b", "--content-type=.Y z=text/plain; charset=utf-8", "site"});
  ASSERT_EQ(options.contentTypes.size(), 2u);
  EXPECT_EQ(options.contentTypes[0].extension, ".x");
  EXPECT_EQ(options.contentTypes[0].contentType, "a/b");
  EXPECT_EQ(options.contentTypes[1].extension, ".Y z");
  EXPECT_EQ(options.contentTypes[1].contentType, "text/plain; charset=utf-8");
  EXPECT_EQ(options.directory, "site");
}

TEST(OptionsTest, AContentTypeOfAnotherFormIsRefused) {
  for (const std::string wrong :
       {"", ".x", ".x=", "=a/b", ".=a/b", "x=a/b", ".tar.gz=a/b", "./x=a/b", ".a\\b=a/b", ".x=a", ".x=a/", ".x=/b",
        ".x=a/b/c", ".x=a b/c", ".x=a/b\r\nSet-Cookie: c", ".\t=a/b", ".x=a/;q=1"}) {
    try {
      Parsed({"--content-type", wrong.c_str()});
      ADD_FAILURE() << wrong;
    } catch (const UsageError& error) {
      EXPECT_EQ(error.what(), "--content-type: \"" + wrong + "\" is not of the form .extension=type/subtype");
    }
  }
}

}  // namespace
}  // namespace TesselServer
