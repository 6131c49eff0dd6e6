#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/Options.h"
#include "host/Settings.h"

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

TEST_F(SettingsTest, TheDefaultsThatHelpNamesAreTheControls) {
  ApplySettings(tessel, Parsed({}));
  const auto help = Parsed({"--help"}).helpText;
  EXPECT_NE(help.find("(default: " + std::to_string(tessel.MaxBodyBytes()) + ")"), std::string::npos);
  EXPECT_EQ(tessel.MaxBodyBytesTotal(), 268435456);
  EXPECT_EQ(tessel.MaxUnsentPageBytes(), 268435456);
  EXPECT_NE(help.find("(default: 268435456)"), std::string::npos);
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
