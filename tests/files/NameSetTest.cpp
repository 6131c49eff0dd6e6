#include <gtest/gtest.h>

#include <string>

#include "files/NameSet.h"

namespace TesselServer {
namespace {

TEST(NameSetTest, ANameIsNewOnce) {
  NameSet names;
  EXPECT_EQ(names.Bytes(), 0U);
  for (const char* name : {"a", "b", "A", "", "a ", "\xFF"}) EXPECT_TRUE(names.Add(name)) << name;
  for (const char* name : {"\xFF", "a ", "", "A", "b", "a"}) EXPECT_FALSE(names.Add(name)) << name;
}

TEST(NameSetTest, HoldsAsManyAsAFolderHas) {
  constexpr int kNames = 200'000;
  NameSet names;
  for (int i = 0; i < kNames; ++i) ASSERT_TRUE(names.Add("entry number " + std::to_string(i))) << i;
  for (int i = 0; i < kNames; ++i) ASSERT_FALSE(names.Add("entry number " + std::to_string(i))) << i;
  EXPECT_LT(names.Bytes(), 64U * kNames);
}

TEST(NameSetTest, GrowsByAFewKiBAtATime) {
  NameSet names;
  std::size_t before = 0;
  for (int i = 0; i < 20'000; ++i) {
    names.Add(std::to_string(i));
    ASSERT_LE(names.Bytes(), before + 8 * 1024) << i;
    before = names.Bytes();
  }
}

}  // namespace
}  // namespace TesselServer
