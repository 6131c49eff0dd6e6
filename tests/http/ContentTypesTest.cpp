#include <gtest/gtest.h>

#include "http/ContentTypes.h"

namespace TesselServer {
namespace {

TEST(ContentTypesTest, SearchesTheLinesOfAFileInOrder) {
  const std::vector<std::string> lines = {
      "",           "no comma here", "one,text/one", "ONE,text/second", "two,text/two,with comma",
      ",text/none", "three,",        "# x,y",
  };
  const struct {
    const char *extension, *type, *why;
  } cases[] = {
      {"one", "text/one", "the first match counts"},
      {"One", "text/one", "case does not count"},
      {"two", "text/two,with comma", "the type is all that follows the first comma"},
      {"", "text/none", "an empty extension has an entry of its own here"},
      {"three", "", "an entry with an empty type"},
      {"no comma here", "", "lines without a comma are passed over"},
      {"four", "", "not listed"},
  };
  for (const auto& c : cases) EXPECT_EQ(FindContentType(lines, c.extension), c.type) << c.why;
  EXPECT_EQ(FindContentType(std::vector<std::string>(), "one"), "");
}

TEST(ContentTypesTest, ReadsTheRegistry) {
  RegistryStore registry;
  registry.PutText(RegistryStore::kClassesRoot, ".odd", "Content Type", "application/odd");
  registry.PutBytes(RegistryStore::kClassesRoot, ".empty", "Content Type", "");
  registry.PutText(RegistryStore::kClassesRoot, ".other", "", "unnamed");
  EXPECT_EQ(RegistryContentType(registry, "html"), "text/html");
  EXPECT_EQ(RegistryContentType(registry, "HTML"), "text/html");
  EXPECT_EQ(RegistryContentType(registry, "odd"), "application/odd");
  EXPECT_EQ(RegistryContentType(registry, "empty"), "");
  EXPECT_EQ(RegistryContentType(registry, "other"), "");
  EXPECT_EQ(RegistryContentType(registry, "missing"), "");
  EXPECT_EQ(RegistryContentType(registry, ""), "");
}

}  // namespace
}  // namespace TesselServer
