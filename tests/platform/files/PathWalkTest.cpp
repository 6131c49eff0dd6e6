#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>

#include "platform/files/FileSystem.h"
#include "platform/files/PathWalk.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

TEST(CollapsePathTest, DropsWhatMeansNothingAndClimbsWithinThePath) {
  struct {
    std::string_view given, text;
    bool asFolder;
  } const cases[] = {
      {"", "", true},
      {"/", "", true},
      {".", "", true},
      {"a.htm", "a.htm", false},
      {"/a.htm", "a.htm", false},
      {"\\docs\\A B.HTM", "docs/A B.HTM", false},
      {"docs//.\\/x", "docs/x", false},
      {"docs/", "docs", true},
      {"docs\\", "docs", true},
      {"docs/.", "docs", true},
      {"docs/..", "", true},
      {"docs/x/..", "docs", true},
      {"docs/../a", "a", false},
      {"a/b/c/../../d", "a/d", false},
      {"a\\..\\b", "b", false},
      {"...", "...", false},
      {"..a/a..", "..a/a..", false},
      {". /x", ". /x", false},
      {"\xC3\xBC", "\xC3\xBC", false},
  };
  for (const auto& c : cases) {
    const auto collapsed = CollapsePath(c.given);
    ASSERT_TRUE(collapsed) << c.given;
    EXPECT_EQ(collapsed->text, c.text) << c.given;
    EXPECT_EQ(collapsed->asFolder, c.asFolder) << c.given;
  }
}

TEST(CollapsePathTest, RefusesWhatClimbsAboveTheStart) {
  for (const std::string_view path :
       {"..", "/..", "\\..", "../x", "a/../..", "a/../../a", "a\\..\\..\\etc", "./../x"}) {
    EXPECT_FALSE(CollapsePath(path)) << path;
  }
}

TEST(CollapsePathTest, RefusesControlCharactersAnywhere) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string path = std::string("a") + static_cast<char>(byte) + "b/../c";
    EXPECT_EQ(CollapsePath(path).has_value(), byte >= 0x20 && byte != 0x7F) << byte;
  }
}

TEST(CollapsePathTest, HoldsItsLimits) {
  EXPECT_TRUE(CollapsePath(std::string(255, 'a')));
  EXPECT_FALSE(CollapsePath(std::string(256, 'a')));
  EXPECT_FALSE(CollapsePath(std::string(256, 'a') + "/../b")) << "also where it would fall away";
  EXPECT_TRUE(CollapsePath(std::string(4096, '/')));
  EXPECT_FALSE(CollapsePath(std::string(4097, '/')));
}

class TrueSpellingTest : public testing::Test {
 protected:
  TrueSpellingTest() : root_(open(tree_.Text().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
  ~TrueSpellingTest() override { close(root_); }

  std::string Spell(std::string_view path) const { return TrueSpelling(&OpenBeneath, root_, path).value_or("nothing"); }

  Kit::TemporaryTree tree_;
  int root_;
};

TEST_F(TrueSpellingTest, PrefersTheSpellingGivenThenTheFirstInByteOrder) {
  for (const auto* name : {"Docs/one.htm", "docs/Two.HTM", "docs/TWO.htm", "docs/two.htm", "docs/123"}) {
    tree_.Write(name, "x");
  }
  struct {
    std::string_view given, found, why;
  } const cases[] = {
      {"docs/two.htm", "docs/two.htm", "as given"},
      {"docs/Two.HTM", "docs/Two.HTM", "as given"},
      {"docs/tWO.HTM", "docs/TWO.htm", "capitals come first in byte order"},
      {"DOCS/ONE.HTM", "Docs/one.htm", "the first folder holds it"},
      {"DOCS/TWO.HTM", "nothing", "the first folder does not, and no other is tried"},
      {"docs/123", "docs/123", "no letters"},
      {"docs/1234", "nothing", "no letters, nothing to look for"},
      {"docs/two.htm/x", "nothing", "a file is no folder"},
      {"", "", "the folder itself"},
  };
  for (const auto& c : cases) EXPECT_EQ(Spell(c.given), c.found) << c.given << ": " << c.why;
}

TEST_F(TrueSpellingTest, ComparesAsciiLettersOnly) {
  tree_.Write("\xC3\xA4", "x");  // small a with two dots
  EXPECT_EQ(Spell("\xC3\x84"), "nothing");
  tree_.Write("[", "x");
  EXPECT_EQ(Spell("{"), "nothing") << "32 apart, but no letters";
}

TEST_F(TrueSpellingTest, FindsOneNameAmongThousands) {
  for (int i = 0; i < 5000; ++i) tree_.Write("File" + std::to_string(i), "");
  EXPECT_EQ(Spell("fILE4321"), "File4321");
}

TEST_F(TrueSpellingTest, WalksOnFromTheEndOfALinkThatComesBack) {
  tree_.Write("Real/Page.htm", "x");
  std::filesystem::create_symlink(tree_.Path() / "Real", tree_.Path() / "Link");
  std::filesystem::create_symlink("Real", tree_.Path() / "Near");
  EXPECT_EQ(Spell("LINK/PAGE.HTM"), "Real/Page.htm") << "absolute";
  EXPECT_EQ(Spell("NEAR/PAGE.HTM"), "Near/Page.htm") << "relative";
}

TEST_F(TrueSpellingTest, FindsEachMixtureOfSpellingsOnALongPath) {
  std::string real;
  for (int i = 0; i < 9; ++i) real += i == 0 ? "x" : "/x";
  tree_.Write(real + "/page", "x");
  for (unsigned other = 0; other < 512; ++other) {
    std::string asked = real;
    for (unsigned i = 0; i < 9; ++i) {
      if ((other >> i & 1) != 0) asked[2 * i] = 'X';
    }
    EXPECT_EQ(Spell(asked), real);
    EXPECT_EQ(Spell(asked + "/PAGE"), real + "/page");
    EXPECT_EQ(Spell(asked + "/none"), "nothing");
    EXPECT_EQ(Spell(asked + "/1"), "nothing");
    EXPECT_EQ(Spell(asked + "/page/x/x"), "nothing") << "a file is no folder";
  }
}

TEST_F(TrueSpellingTest, FollowsALinkThatClimbsWithinTheFolder) {
  tree_.Write("a/b/c/Page.htm", "x");
  tree_.Write("d/e/f/Other.htm", "x");
  std::filesystem::create_symlink("../../../d/e", tree_.Path() / "a/b/c/up");
  std::filesystem::create_symlink("../../../../d", tree_.Path() / "a/b/c/out");
  EXPECT_EQ(Spell("a/b/c/up/f/OTHER.htm"), "a/b/c/up/f/Other.htm");
  EXPECT_EQ(Spell("A/b/c/UP/F/other.htm"), "a/b/c/up/f/Other.htm");
  EXPECT_EQ(Spell("a/b/c/out/e/f/OTHER.htm"), "nothing") << "it leaves the folder";
}

// What is opened in one call is counted in components.
struct CountedOpening {
  static inline std::size_t calls = 0, components = 0;
  static int Open(int folder, const std::string& path, int flags) {
    calls += 1;
    components += static_cast<std::size_t>(std::count(path.begin(), path.end(), '/')) + 1;
    return OpenBeneath(folder, path, flags);
  }
};

TEST_F(TrueSpellingTest, WalksADeepPathOnce) {
  constexpr std::size_t kDepth = 300;
  std::string folder = "x";
  for (std::size_t i = 1; i < kDepth; ++i) folder += "/x";
  tree_.Write(folder + "/page", "x");
  std::string other = folder;
  std::replace(other.begin(), other.end(), 'x', 'X');
  struct {
    std::string asked;
    bool isFound;
    std::size_t mostCalls, mostComponents;
  } const cases[] = {
      {folder + "/PAGE", true, 5, kDepth + 5},
      {folder + "/none", false, 5, kDepth + 5},
      {folder + "/1", false, 5, kDepth + 5},
      {folder.substr(0, kDepth + 1) + folder.substr(1) + "/1", false, 40, 8 * kDepth},
      {other + "/page", true, 4 * kDepth, 6 * kDepth},
  };
  for (const auto& c : cases) {
    CountedOpening::calls = CountedOpening::components = 0;
    EXPECT_EQ(TrueSpelling(&CountedOpening::Open, root_, c.asked).has_value(), c.isFound) << c.asked;
    EXPECT_LE(CountedOpening::calls, c.mostCalls) << c.asked;
    EXPECT_LE(CountedOpening::components, c.mostComponents) << c.asked;
  }
}

TEST(WithSlashesTest, TurnsEveryBackslash) {
  EXPECT_EQ(WithSlashes("\\srv\\www/a"), "/srv/www/a");
  EXPECT_EQ(WithSlashes(""), "");
}

}  // namespace
}  // namespace TesselServer
