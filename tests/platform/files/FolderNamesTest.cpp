#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/files/FolderNames.h"

namespace TesselServer {
namespace {

TEST(FolderNamesTest, FindsTheFirstEqualNameInByteOrder) {
  const FolderNames names({"b.htm", "README", "ReadMe", "readme", "a", "A_", "_a", "\xC3\xA4.txt", "0", "Z"});
  struct {
    std::string_view asked, found;
    const char* why;
  } const cases[] = {
      {"b.htm", "b.htm", "as it is"},
      {"B.HTM", "b.htm", "in another spelling"},
      {"readme", "README", "the smallest of several, though one is exact"},
      {"rEADmE", "README", "the smallest of several"},
      {"a", "a", "shorter than another"},
      {"a_", "A_", "a sign between the two cases"},
      {"_A", "_a", "a sign in front"},
      {"\xC3\xA4.TXT", "\xC3\xA4.txt", "beyond ASCII as it is"},
      {"\xC3\x84.txt", "", "beyond ASCII in another spelling is another name"},
      {"0", "0", "no letter"},
      {"z", "Z", "the last"},
      {"", "", "nothing"},
      {"b.ht", "", "the beginning of a name"},
      {"b.htmx", "", "more than a name"},
      {"zz", "", "behind the last"},
  };
  for (const auto& c : cases) EXPECT_EQ(names.FirstEqual(c.asked), c.found) << c.why;
}

TEST(FolderNamesTest, AnEmptyFolderHasNone) { EXPECT_EQ(FolderNames({}).FirstEqual("a"), ""); }

TEST(FolderNamesTest, TellsWhatItKeeps) {
  const FolderNames names({std::string(100, 'a'), std::string(200, 'b')});
  EXPECT_GE(names.Bytes(), 300u);
  EXPECT_LE(names.Bytes(), 400u);
}

}  // namespace
}  // namespace TesselServer
