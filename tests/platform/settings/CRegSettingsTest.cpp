#include <gtest/gtest.h>

#include <string>

#include "platform/settings/CRegSettings.h"

namespace TesselServer {
namespace {

using namespace std::string_literals;

TEST(CRegSettingsTest, ReadsAValueWithoutItsTerminatingZero) {
  RegistryStore store;
  store.PutBytes(0x80000001, "k", "three", "abc\0"s);
  store.PutBytes(0x80000001, "k", "empty", "");
  store.PutBytes(0x80000001, "k", "zero", "\0"s);
  store.PutBytes(0x80000001, "k", "number", "\1\2\3\4");
  store.PutText(0x80000001, "k", "", "unnamed");
  const CRegSettings settings(store);
  struct {
    const char *root, *key, *name;
    std::string found;
    const char* why;
  } const cases[] = {
      {"HKEY_CURRENT_USER", "k", "three", "abc", "three characters and a zero"},
      {"HKEY_CURRENT_USER", "K", "THREE", "abc", "names have no case"},
      {"HKEY_CURRENT_USER", "k", "empty", "default", "no byte at all"},
      {"HKEY_CURRENT_USER", "k", "zero", "", "the zero alone"},
      {"HKEY_CURRENT_USER", "k", "number", "\1\2\3", "the type is not looked at"},
      {"HKEY_CURRENT_USER", "k", "*", "unnamed", "the unnamed value"},
      {"HKEY_CURRENT_USER", "k", "", "unnamed", "the unnamed value"},
      {"HKEY_CURRENT_USER", "k", "none", "default", "no such value"},
      {"HKEY_CURRENT_USER", "none", "three", "default", "no such key"},
      {"HKEY_USERS", "k", "three", "default", "another root"},
      {"hkey_current_user", "k", "three", "default", "roots have case"},
      {"", "k", "three", "default", "no root"},
  };
  for (const auto& c : cases) EXPECT_EQ(settings.GetValue(c.root, c.key, c.name, "default"), c.found) << c.why;
}

TEST(CRegSettingsTest, ReachesEachRootByItsOwnName) {
  RegistryStore store;
  const char* const names[] = {"HKEY_CLASSES_ROOT",     "HKEY_CURRENT_USER",   "HKEY_LOCAL_MACHINE", "HKEY_USERS",
                               "HKEY_PERFOrMANCE_DATA", "HKEY_CURRENT_CONFIG", "HKEY_DYN_DATA"};
  for (std::uint32_t i = 0; i < 7; ++i) store.PutText(0x80000000 + i, "key", "value", std::to_string(i));
  const CRegSettings settings(store);
  for (std::size_t i = 0; i < 7; ++i) {
    EXPECT_EQ(settings.GetValue(names[i], "key", "value", "default"), std::to_string(i)) << names[i];
  }
  EXPECT_EQ(settings.GetValue("HKEY_PERFORMANCE_DATA", "key", "value", "default"), "default");
}

TEST(CRegSettingsTest, FindsTheContentTypesOfTheStore) {
  const RegistryStore store;
  const CRegSettings settings(store);
  EXPECT_EQ(settings.GetValue("HKEY_CLASSES_ROOT", ".HTML", "Content Type", ""), "text/html");
  EXPECT_EQ(settings.GetValue("HKEY_CLASSES_ROOT", ".unknown", "Content Type", ""), "");
}

}  // namespace
}  // namespace TesselServer
