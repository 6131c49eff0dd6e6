#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "http/modern/PasswordFile.h"

namespace TesselServer::Modern {
namespace {

constexpr std::string_view kOneHash = "$5$tessel$zrTUzFijWUM12K.ew6Qhu79Jh9Sxu039mDzRKcUWk12";
constexpr std::string_view kOtherHash = "$5$other$zrTUzFijWUM12K.ew6Qhu79Jh9Sxu039mDzRKcUWk12";

// The search through a whole text, as it comes in pieces of so many bytes.
void Search(PasswordFile& file, std::string_view text, std::size_t piece) {
  for (std::size_t begin = 0; begin < text.size(); begin += piece) file.Take(text.substr(begin, piece));
  file.End();
}

bool HoldsPair(std::string_view text, std::string_view user, std::string_view password, std::size_t piece = 1 << 20) {
  PasswordFile file(user, password);
  Search(file, text, piece);
  return file.Holds();
}

TEST(PasswordFileTest, ALineCountsWholeAndExactly) {
  const std::string text =
      "realm:Members\r\nann:secret\r\nbob:pass:word\n\nzo\xC3\xAB:p\xC3\xA4ss\neve:\n dan: blank \n:nobody\n"
      "#carl:x\nrealm:second\nlast:line";
  const struct {
    const char *user, *password;
    bool isRight;
    const char* why;
  } cases[] = {
      {"ann", "secret", true, "a line"},
      {"bob", "pass:word", true, "the first colon ends the name"},
      {"zo\xC3\xAB", "p\xC3\xA4ss", true, "UTF-8"},
      {" dan", " blank ", true, "blanks belong to it"},
      {"last", "line", true, "the end of the text ends a line"},
      {"#carl", "x", true, "there are no comments"},
      {"ann", "secre", false, "the beginning of a password"},
      {"ann", "s", false, "its first byte"},
      {"ann", "secret2", false, "something behind it"},
      {"ann", "secret ", false, "a blank behind it"},
      {"ann", "secret\r", false, "the line's end is no part of it"},
      {"ann", "secret\r\nbob:pass:word", false, "two lines"},
      {"ann", "Secret", false, "another case"},
      {"Ann", "secret", false, "another case of the name"},
      {"nn", "secret", false, "the end of a name"},
      {"an", "n:secret", false, "another colon"},
      {"", "nobody", false, "no name"},
      {"eve", "", false, "an empty password"},
      {"ann", "", false, "none"},
      {"ann", "pass:word", false, "another user's"},
      {"bob", "pass", false, "the text before the second colon"},
      {"bob:pass", "word", true, "the same line, but a name with a colon never comes"},
      {"dan", "blank", false, "without the blanks"},
      {"zoe", "p\xC3\xA4ss", false, "another letter"},
      {"zo\xC3\xAB", "p\xE4ss", false, "Latin-1"},
      {"realm", "Members", false, "the realm"},
      {"realm", "second", false, "a later one"},
      {"last", "lin", false, "the beginning of the last line"},
  };
  for (const auto& c : cases) {
    for (const std::size_t piece : {std::size_t{1}, std::size_t{2}, std::size_t{7}, std::size_t{1} << 20}) {
      EXPECT_EQ(HoldsPair(text, c.user, c.password, piece), c.isRight) << c.why << ", in pieces of " << piece;
    }
  }
}

TEST(PasswordFileTest, ALineOfTheRealmIsNoUserInAnySpelling) {
  for (const char* line : {"realm:x", "REALM:x", "Realm:x", "  realm:x", "\trealm:x"}) {
    EXPECT_FALSE(HoldsPair(std::string("realm: first\n") + line + "\n", "realm", "x")) << line;
    const std::string_view user = std::string_view(line).substr(0, std::string_view(line).find(':'));
    EXPECT_FALSE(HoldsPair(std::string("realm: first\n") + line + "\n", user, "x")) << line;
  }
  EXPECT_TRUE(HoldsPair("realms:x\n", "realms", "x"));
}

TEST(PasswordFileTest, TheFirstRealmCounts) {
  const struct {
    std::string text;
    const char* realm;
  } cases[] = {
      {"", "Tessel"},
      {"ann:x\n", "Tessel"},
      {"realm:\n", "Tessel"},
      {"realm:   \nrealm:Den\n", "Tessel"},
      {"realm: Members only \r\n", "Members only"},
      {"ann:x\n  ReAlM:Den", "Den"},
      {"realm:One\nrealm:Two\n", "One"},
      {"realm:a:b\n", "a:b"},
      {"realm: say \"hi\"\n", "say \"hi\""},
      {"realm:a\tb\x01"
       "c\x7F\n",
       "abc"},
      {"\xEF\xBB\xBFrealm:Den\n", "Den"},
      {"myrealm:Den\n", "Tessel"},
  };
  for (const auto& c : cases) {
    for (const std::size_t piece : {std::size_t{1}, std::size_t{5}, std::size_t{1} << 20}) {
      PasswordFile file("", "");
      Search(file, c.text, piece);
      EXPECT_EQ(file.Realm(), c.realm) << c.text;
    }
  }
}

TEST(PasswordFileTest, AMarkInFrontOfTheTextIsNoPartOfAName) {
  EXPECT_TRUE(
      HoldsPair("\xEF\xBB\xBF"
                "ann:x\n",
                "ann", "x"));
  EXPECT_FALSE(
      HoldsPair("bob:y\n\xEF\xBB\xBF"
                "ann:x\n",
                "ann", "x"));
}

// ---- Hashes.

std::vector<std::string> HashesFor(std::string_view text, std::string_view user, std::string_view password,
                                   bool& areOfUser) {
  PasswordFile file(user, password);
  Search(file, text, 3);
  EXPECT_FALSE(file.Holds());
  const PasswordFile::Hashes found = file.ToCheck();
  areOfUser = found.areOfUser;
  return {found.texts.begin(), found.texts.begin() + static_cast<std::ptrdiff_t>(found.count)};
}

TEST(PasswordFileTest, AHashIsNeverThePassword) {
  const std::string text = "ann:" + std::string(kOneHash) + "\nold:$apr1$salt$abc\n";
  EXPECT_FALSE(HoldsPair(text, "ann", kOneHash));
  EXPECT_FALSE(HoldsPair(text, "old", "$apr1$salt$abc"));
}

TEST(PasswordFileTest, WhoIsNotThereCostsAsMuchAsWhoIs) {
  const std::string text = "plain:text\nann:" + std::string(kOneHash) + "\nbob:" + std::string(kOtherHash) + "\r\n";
  const std::vector<std::string> one = {std::string(kOneHash)}, other = {std::string(kOtherHash)}, none;
  const struct {
    const char *user, *password;
    std::vector<std::string> hashes;
    bool areOfUser;
  } cases[] = {
      {"ann", "x", one, true}, {"bob", "x", other, true}, {"nobody", "x", one, false}, {"plain", "wrong", one, false},
      {"an", "x", one, false}, {"ANN", "x", one, false},  {"", "", none, false},       {"ann", "", none, false},
  };
  for (const auto& c : cases) {
    bool areOfUser = !c.areOfUser;
    EXPECT_EQ(HashesFor(text, c.user, c.password, areOfUser), c.hashes) << c.user;
    EXPECT_EQ(areOfUser, c.areOfUser) << c.user;
  }
  bool areOfUser = true;
  EXPECT_EQ(HashesFor("plain:text\n", "nobody", "x", areOfUser), none);
}

TEST(PasswordFileTest, AUserMayHaveAFewHashes) {
  std::string text = "bob:" + std::string(kOtherHash) + "\n";
  for (int i = 0; i < 10; ++i) text += "ann:$5$" + std::to_string(i) + "$x\n";
  bool areOfUser = false;
  const auto hashes = HashesFor(text, "ann", "x", areOfUser);
  ASSERT_EQ(hashes.size(), PasswordFile::kMaxHashes);
  EXPECT_EQ(hashes.front(), "$5$0$x");
  EXPECT_EQ(hashes.back(), "$5$3$x");
}

// ---- Hostile texts.

TEST(PasswordFileTest, WhatIsTooLongIsNoUser) {
  const std::string password(PasswordFile::kMaxLineBytes - 4, 'p');
  EXPECT_TRUE(HoldsPair("ann:" + password + "\n", "ann", password, 1000));
  EXPECT_FALSE(HoldsPair("ann:" + password + "p\n", "ann", password + "p", 1000));
  EXPECT_FALSE(HoldsPair("ann:" + password + "more\nbob:x\n", "ann", password, 1000));
  EXPECT_TRUE(HoldsPair(std::string(1 << 20, 'x') + "\nbob:x\n", "bob", "x", 1000));
  EXPECT_FALSE(HoldsPair(std::string(1 << 20, 'x') + "bob:x\n", "bob", "x", 1000));
  bool areOfUser = true;
  EXPECT_TRUE(HashesFor("ann:$6$" + std::string(1000, 'x') + "\n", "ann", "x", areOfUser).empty());
}

TEST(PasswordFileTest, ABareReturnAndNulAreBytesOfALine) {
  EXPECT_FALSE(HoldsPair("ann:one\rbob:two\r", "bob", "two"));
  EXPECT_FALSE(HoldsPair("ann:one\rbob:two\r", "ann", "one"));
  EXPECT_FALSE(HoldsPair(std::string("ann:one\0x\n", 10), "ann", "one"));
  EXPECT_TRUE(HoldsPair("ann:one\r", "ann", "one")) << "the end of a text that was cut";
}

}  // namespace
}  // namespace TesselServer::Modern
