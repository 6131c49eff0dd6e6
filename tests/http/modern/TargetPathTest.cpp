#include <gtest/gtest.h>

#include <random>
#include <string>

#include "http/modern/TargetPath.h"

namespace TesselServer::Modern {
namespace {

// What a path reads as; "bad" where it is refused.
std::string PathOf(std::string_view sent) {
  std::string decoded = "left from before";
  switch (ReadPath(sent, decoded)) {
    case PathForm::kAsSent:
      return std::string(sent);
    case PathForm::kDecoded:
      return decoded;
    case PathForm::kBad:
      break;
  }
  return "bad";
}

TEST(ModernTargetPathTest, PercentCodesAreDecodedOnce) {
  const struct {
    const char *sent, *path, *why;
  } cases[] = {
      {"/", "/", "the root"},
      {"/a/b.html", "/a/b.html", "as sent"},
      {"/a%20b", "/a b", "a blank"},
      {"/a+b", "/a+b", "a plus is a plus"},
      {"/%41%6a%6A", "/Ajj", "digits in either case"},
      {"/%C3%A9", "/\xC3\xA9", "bytes of UTF-8"},
      {"/\xC3\xA9", "/\xC3\xA9", "the same, not encoded"},
      {"/%FF", "/\xFF", "bytes that are no UTF-8"},
      {"/%2541", "/%41", "once, not twice"},
      {"/%252e%252e/", "/%2e%2e/", "nor are dots"},
      {"/a%3Fb%23c%25", "/a?b#c%", "marks that mean something where they are not encoded"},
      {"/%7Ea", "/~a", "a byte that needs no code"},
      {"/%", "bad", "no digits"},
      {"/%4", "bad", "one digit"},
      {"/%4g", "bad", "a letter that is no digit"},
      {"/%g4", "bad", "in front, too"},
      {"/%%41", "bad", "a percent sign in place of a digit"},
      {"/%u0041", "bad", "another kind of code"},
      {"/%+4", "bad", "a sign"},
      {"/%00", "bad", "NUL"},
      {"/a.cgi%00.html", "bad", "NUL, behind which a name would be cut"},
      {"/a%2Fb", "bad", "a slash"},
      {"/a%2fb", "bad", "in lower case"},
      {"/a%5Cb", "bad", "a backslash"},
      {"/..%5c..%5cb", "bad", "a backslash behind dots"},
      {"/a%0Ab", "bad", "LF"},
      {"/a%0D%0ALocation: b", "bad", "the end of a line"},
      {"/a%1Fb", "bad", "the last control"},
      {"/a%7Fb", "bad", "DEL"},
      {"/a%09b", "bad", "HTAB"},
  };
  for (const auto& c : cases) EXPECT_EQ(PathOf(c.sent), c.path) << c.sent << ": " << c.why;
}

TEST(ModernTargetPathTest, EmptyAndDotSegmentsAreRemoved) {
  const struct {
    const char *sent, *path, *why;
  } cases[] = {
      {"//", "/", "the root"},
      {"///a///b///", "/a/b/", "empty segments; the final slash stays"},
      {"/./a/./b/.", "/a/b/", "a dot at the end is a folder (RFC 3986 5.2.4)"},
      {"/a/b/..", "/a/", "two dots at the end, too"},
      {"/a/b/../", "/a/", "with a slash"},
      {"/a/../b", "/b", "a segment and back"},
      {"/a/b/../../c", "/c", "two"},
      {"/a//..", "/", "empty segments are none to go back from"},
      {"/a/%2E%2e/b", "/b", "dots that are encoded"},
      {"/a/.%2e/b", "/b", "one of them"},
      {"/a/%2e/b", "/a/b", "one dot that is encoded"},
      {"/%61/../b", "/b", "a code in what goes"},
      {"/...", "/...", "three dots are a name"},
      {"/a/..b/.c", "/a/..b/.c", "names that begin with dots"},
      {"/a./b..", "/a./b..", "names that end with dots"},
      {"/.", "/", "the root"},
      {"/..", "bad", "beyond the root"},
      {"/../", "bad", "with a slash"},
      {"/../a", "bad", "and something behind"},
      {"/a/../..", "bad", "beyond it later"},
      {"/a/../../a", "bad", "and back"},
      {"//..", "bad", "an empty segment is none"},
      {"/./..", "bad", "nor is a dot"},
      {"/%2e%2e/etc/passwd", "bad", "encoded"},
      {"/a/%2e%2e/%2e%2e/%2e%2e/etc/passwd", "bad", "encoded, behind a name"},
  };
  for (const auto& c : cases) EXPECT_EQ(PathOf(c.sent), c.path) << c.sent << ": " << c.why;
}

TEST(ModernTargetPathTest, WhatIsReadHasNoSegmentsToRemove) {
  constexpr std::string_view kParts[] = {"/", "/", "/", ".", ".", "a", "%2e", "%41", "..", "b"};
  std::mt19937 random(20260911);
  std::string decoded;
  int read = 0;
  for (int i = 0; i < 20000; ++i) {
    std::string sent = "/";
    for (auto parts = random() % 12; parts > 0; --parts) sent += kParts[random() % std::size(kParts)];
    const PathForm form = ReadPath(sent, decoded);
    if (form == PathForm::kBad) continue;
    const std::string path = form == PathForm::kAsSent ? sent : decoded;
    ASSERT_TRUE(path.starts_with('/')) << sent;
    const std::string around = path + "/";
    for (const char* part : {"//", "/./", "/../"}) {
      const auto at = around.find(part);
      ASSERT_TRUE(at == std::string::npos || (part == std::string_view("//") && at + 2 == around.size()))
          << sent << " reads as " << path;
    }
    ++read;
  }
  EXPECT_GT(read, 5000);
}

TEST(ModernTargetPathTest, SegmentsThatBeginWithADotAreHidden) {
  const struct {
    const char* path;
    bool isHidden;
    const char* why;
  } cases[] = {
      {"/", false, "the root"},
      {"/a/b.c", false, "a dot within"},
      {"/.htpasswd", true, "a file"},
      {"/a/.git/config", true, "a folder"},
      {"/.well-known", false, "the folder that is asked for by rule (RFC 8615)"},
      {"/.well-known/", false, "with its slash"},
      {"/.well-known/security.txt", false, "what it holds"},
      {"/.well-known/.git", true, "what is hidden in it"},
      {"/.well-knownx", true, "a longer name"},
      {"/.well-know", true, "a shorter one"},
      {"/a/.well-known/b", true, "not in front"},
      {"/.Well-Known/b", true, "names have case"},
  };
  for (const auto& c : cases) EXPECT_EQ(HasHiddenSegment(c.path), c.isHidden) << c.path << ": " << c.why;
}

}  // namespace
}  // namespace TesselServer::Modern
