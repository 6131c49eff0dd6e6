#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/programs/ChildEnvironment.h"

namespace TesselServer {
namespace {

using testing::UnorderedElementsAreArray;
using Lines = std::vector<std::string>;

TEST(ChildEnvironmentTest, AddsAndReplacesByWholeNames) {
  using namespace std::string_literals;
  struct {
    std::vector<const char*> inherited;
    std::vector<std::pair<std::string, std::string>> added;
    Lines lines;
    const char* why;
  } const cases[] = {
      {{}, {}, {}, "nothing of nothing"},
      {{"HOME=/root", "LANG=C"}, {}, {"HOME=/root", "LANG=C"}, "inherited alone"},
      {{}, {{"PORT", "80"}}, {"PORT=80"}, "added alone"},
      {{"HOME=/root"}, {{"PORT", "80"}}, {"HOME=/root", "PORT=80"}, "both"},
      {{"HOME=/root", "LANG=C"}, {{"LANG", "de"}}, {"HOME=/root", "LANG=de"}, "replaced, not doubled"},
      {{"A=1", "B=2", "A=3"}, {{"A", "4"}}, {"B=2", "A=4"}, "every inherited line of the name"},
      {{"A=1", "B=2", "A=3"}, {}, {"A=1", "B=2", "A=3"}, "what the host doubled stays doubled"},
      {{"PORT_A=1", "POR=2", "port=3"}, {{"PORT", "80"}}, {"PORT_A=1", "POR=2", "port=3", "PORT=80"}, "similar names"},
      {{"A=b=c"}, {}, {"A=b=c"}, "a value with ="},
      {{"A=b=c"}, {{"A", "d=e"}}, {"A=d=e"}, "an added value with ="},
      {{"LINE", ""}, {{"A", "1"}}, {"LINE", "", "A=1"}, "inherited lines that are no assignment"},
      {{"A="}, {{"B", ""}}, {"A=", "B="}, "empty values"},
      {{"A=1"}, {{"A", ""}}, {"A="}, "replaced by an empty value"},
      {{}, {{"A", "1"}, {"A", "2"}}, {"A=2"}, "the later of two"},
      {{}, {{"A", "one\0two"s}, {"B", "\0"s}}, {"A=one", "B="}, "values are cut at NUL"},
      {{"=x"}, {{"", "1"}, {"A=B", "2"}, {"A\0"s, "3"}}, {"=x"}, "names that cannot be"},
      {{"A=1"}, {{"A=B", "2"}, {"B", "\xff\n "}}, {"A=1", "B=\xff\n "}, "values are bytes"},
  };
  for (const auto& c : cases) {
    std::vector<const char*> inherited = c.inherited;
    inherited.push_back(nullptr);
    EXPECT_THAT(ChildEnvironment(inherited.data(), c.added), UnorderedElementsAreArray(c.lines)) << c.why;
  }
}

TEST(ChildEnvironmentTest, AHostMayHaveNone) {
  EXPECT_EQ(ChildEnvironment(nullptr, {{"A", "1"}}), Lines{"A=1"});
  EXPECT_EQ(ChildEnvironment(nullptr, {}), Lines{});
}

}  // namespace
}  // namespace TesselServer
