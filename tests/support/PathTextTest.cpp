#include <gtest/gtest.h>

#include <string_view>

#include "support/PathText.h"

namespace TesselServer {
namespace {

TEST(PathTextTest, TakesTheExtensionFromTheLastComponent) {
  const struct {
    const char *file, *extension, *why;
  } cases[] = {
      {"a.htm", "htm", "plain"},
      {"\\SRV\\WWW\\A.HTM", "HTM", "case is kept"},
      {"/srv/a.tar.gz", "gz", "the last dot counts"},
      {"txt", "txt", "no dot: the whole name"},
      {"/txt", "txt", "the separator is no part of the name"},
      {"\\docs.v2\\readme", "readme", "a dotted folder gives no extension"},
      {"/docs.v2\\a/b.c\\name", "name", "mixed separators"},
      {"name.", "", "nothing behind the dot"},
      {".profile", "profile", "a leading dot is a dot"},
      {"/docs/", "", "no name"},
      {"", "", "nothing"},
  };
  for (const auto& c : cases) EXPECT_EQ(ExtensionOf(c.file), c.extension) << c.why;
}

TEST(PathTextTest, LastComponentIsAfterTheLastSeparatorOfEitherKind) {
  struct {
    std::string_view path, last;
  } const cases[] = {{"a/b", "b"}, {"a\\b", "b"}, {"a/b\\c", "c"}, {"name", "name"}, {"folder/", ""}, {"", ""}};
  for (const auto& c : cases) EXPECT_EQ(LastComponent(c.path), c.last) << c.path;
}

TEST(PathTextTest, BothSlashesSeparate) {
  EXPECT_TRUE(IsSeparator('/'));
  EXPECT_TRUE(IsSeparator('\\'));
  EXPECT_FALSE(IsSeparator('.'));
}

}  // namespace
}  // namespace TesselServer
