#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "control/answer/PasswordSearch.h"
#include "tests/kit/Cuts.h"

namespace TesselServer {
namespace {

TEST(PasswordSearchTest, LooksForThePairAnywhereInAnyCase) {
  const struct {
    const char *text, *user, *password;
    bool holds;
    const char* why;
  } cases[] = {
      {"ann:secret\n", "ann", "secret", true, "the whole line"},
      {"ann:secret", "ann", "secret", true, "no line end"},
      {"realm: X\r\nbob:b\r\nann:secret\r\n", "ann", "secret", true, "a later line"},
      {"ann:secret", "ANN", "SeCrEt", true, "kept: case does not count"},
      {"ann:secret", "ann", "sec", true, "kept: the beginning of a password"},
      {"joann:secret", "ann", "secret", true, "kept: the end of a name"},
      {"realm: X", "realm", "", true, "kept: the realm line is text like any other"},
      {"ann:secret", "ann", "other", false, "wrong password"},
      {"ann:secret", "bob", "secret", false, "wrong name"},
      {"ann :secret", "ann", "secret", false, "blanks count"},
      {"ann:\nsecret", "ann", "secret", false, "a line end inside the pair"},
      {":x", "", "x", false, "no name"},
      {"", "ann", "secret", false, "an empty file"},
  };
  for (const auto& c : cases) {
    for (const Kit::Pieces& pieces : Kit::AllCuts(c.text)) {
      PasswordSearch search(c.user, c.password);
      for (const std::string_view piece : pieces) search.Take(piece);
      EXPECT_EQ(search.Holds(), c.holds) << c.why << ", pieces: " << pieces.size();
    }
  }
}

TEST(PasswordSearchTest, FindsAPairThatRepeatsItself) {
  const std::string hashes(100, '#');
  const struct {
    std::string text, user, password;
    bool holds;
  } cases[] = {
      {hashes + ":#", "#", "#", true},
      {hashes + ":" + hashes, "##", hashes, true},
      {hashes + ":##", "#", "###", false},
      {"#:#:#", "#:#", "#", true},
      {"a:a:b:a:a:c", "a:a", "c", true},
      {"a:a:b:a:a:c", "a:a", "d", false},
      {"aB:aB:aaB:aB:c", "ab", "aab:ab:C", true},
      {"aB:aB:aaB:aB:c", "ab", "aab:abC", false},
  };
  for (const auto& c : cases) {
    for (const Kit::Pieces& pieces : Kit::AllCuts(c.text)) {
      PasswordSearch search(c.user, c.password);
      for (const std::string_view piece : pieces) search.Take(piece);
      EXPECT_EQ(search.Holds(), c.holds) << c.user << ":" << c.password << ", pieces: " << pieces.size();
    }
  }
}

// A search that goes back for each byte would take a million steps for each of these: none would ever be over.
TEST(PasswordSearchTest, IsLinearWhateverTheClientSends) {
  const std::string hashes(4 * 1024 * 1024, '#');
  const std::string file = hashes + ":" + hashes;
  const struct {
    std::string user, password;
    bool holds;
  } cases[] = {{"#", hashes, true}, {hashes, "#", true}, {"#", hashes + "x", false}, {"x" + hashes, hashes, false}};
  for (const auto& c : cases) {
    PasswordSearch search(c.user, c.password);
    for (std::string_view left = file; !left.empty();) {
      const std::size_t bytes = std::min(left.size(), PasswordSearch::kStretchBytes);
      search.Take(left.substr(0, bytes));
      left.remove_prefix(bytes);
    }
    EXPECT_EQ(search.Holds(), c.holds);
  }
}

TEST(PasswordSearchTest, TheRealmIsTheRestOfItsLine) {
  const struct {
    const char *text, *realm, *why;
  } cases[] = {
      {"realm:Members\nann:x", "Members", "up to LF"},
      {"realm:  Members only \r\nann:x", "Members only", "trimmed, up to CR"},
      {"ann:x\nREALM:Members", "Members", "any case, any line, up to the end"},
      {"realm:\"Quoted\"", "\"Quoted\"", "quotes are the author's"},
      {"realm:One\nrealm:Two", "One", "the first"},
      {"xrealm:One\nann:x", "Tessel", "inside a word it may be a password"},
      {"ann:x\n  realm:Members", "Members", "blanks before it"},
      {"realm:A\tB\x01\x7F"
       "C",
       "ABC", "control characters go"},
      {"realm:   \nann:x", "Tessel", "blank"},
      {"realm:", "Tessel", "empty"},
      {"rea\nrealm:Members", "Members", "a line that only begins like it"},
      {"realm\n:One", "Tessel", "a line end inside the key"},
      {"ann:x", "Tessel", "no such line"},
      {"", "Tessel", "an empty file"},
  };
  for (const auto& c : cases) {
    for (const Kit::Pieces& pieces : Kit::AllCuts(c.text)) {
      PasswordSearch search("ann", "x");
      for (const std::string_view piece : pieces) search.Take(piece);
      EXPECT_EQ(search.Realm(), c.realm) << c.why << ", pieces: " << pieces.size();
    }
  }
}

}  // namespace
}  // namespace TesselServer
