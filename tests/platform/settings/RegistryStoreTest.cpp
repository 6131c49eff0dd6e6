#include <gtest/gtest.h>

#include <string>

#include "platform/settings/RegistryStore.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using namespace std::string_literals;

std::string TextOf(const RegistryStore& store, std::string_view key, std::string_view name = "Content Type") {
  return std::string(store.Bytes(RegistryStore::kClassesRoot, key, name).value_or("nothing"));
}

TEST(RegistryStoreTest, KnowsTheTypesOfTheUsualFiles) {
  struct {
    const char *extension, *type;
  } const cases[] = {
      {".htm", "text/html"},
      {".html", "text/html"},
      {".txt", "text/plain"},
      {".text", "text/plain"},
      {".css", "text/css"},
      {".xml", "text/xml"},
      {".csv", "text/csv"},
      {".md", "text/markdown"},
      {".js", "text/javascript"},
      {".gif", "image/gif"},
      {".jpg", "image/jpeg"},
      {".jpeg", "image/jpeg"},
      {".png", "image/png"},
      {".bmp", "image/bmp"},
      {".ico", "image/x-icon"},
      {".svg", "image/svg+xml"},
      {".webp", "image/webp"},
      {".json", "application/json"},
      {".pdf", "application/pdf"},
      {".zip", "application/zip"},
      {".gz", "application/gzip"},
      {".tar", "application/x-tar"},
      {".wasm", "application/wasm"},
      {".mp3", "audio/mpeg"},
      {".wav", "audio/wav"},
      {".ogg", "audio/ogg"},
      {".avi", "video/x-msvideo"},
      {".mpeg", "video/mpeg"},
      {".mpg", "video/mpeg"},
      {".mp4", "video/mp4"},
      {".webm", "video/webm"},
      {".mov", "video/quicktime"},
      {".woff", "font/woff"},
      {".woff2", "font/woff2"},
      {".ttf", "font/ttf"},
      {".shtml", "text/html"},
      {".xht", "application/xhtml+xml"},
      {".svgz", "image/svg+xml"},
      {".m3u8", "application/vnd.apple.mpegurl"},
      {".opus", "audio/ogg"},
      {".m4v", "video/mp4"},
      {".mjs", "text/javascript"},
      {".avif", "image/avif"},
      {".jar", "application/java-archive"},
      {".crt", "application/x-x509-ca-cert"},
      {".deb", "application/vnd.debian.binary-package"},
      {".rar", "application/vnd.rar"},
  };
  const RegistryStore store;
  for (const auto& c : cases) EXPECT_EQ(TextOf(store, c.extension), c.type + "\0"s) << c.extension;
  EXPECT_EQ(TextOf(store, ".exe"), "nothing");
  EXPECT_EQ(TextOf(store, "html"), "nothing");
  EXPECT_EQ(TextOf(store, ".html", ""), "nothing");
}

TEST(RegistryStoreTest, ATypeIsPutForAnExtensionWithOrWithoutItsDot) {
  RegistryStore store;
  EXPECT_TRUE(store.PutContentType(".one", "type/one"));
  EXPECT_TRUE(store.PutContentType("two", "type/two; x=\"y\""));
  EXPECT_TRUE(store.PutContentType(".HTML", "type/html"));
  EXPECT_TRUE(store.PutContentType("tar.gz", "type/both"));
  EXPECT_EQ(TextOf(store, ".one"), "type/one\0"s);
  EXPECT_EQ(TextOf(store, ".two"), "type/two; x=\"y\"\0"s);
  EXPECT_EQ(TextOf(store, ".html"), "type/html\0"s) << "in place of the usual one";
  EXPECT_EQ(TextOf(store, ".tar.gz"), "type/both\0"s);
}

TEST(RegistryStoreTest, WhatCanBeNoTypeIsNotPut) {
  const struct {
    std::string extension, type;
    const char* why;
  } cases[] = {
      {"", "a/b", "no extension"},
      {".", "a/b", "a dot alone"},
      {".x", "", "no type"},
      {".x", "a/b\r\nX: y", "a line end in the type"},
      {".x\0y"s, "a/b", "a NUL"},
      {".x\\y", "a/b", "a step of a key"},
      {".x=y", "a/b", "what ends a key in a file"},
      {".x", "a\x7F", "a control character"},
  };
  RegistryStore store;
  const std::uint64_t before = store.Revision();
  for (const auto& c : cases) EXPECT_FALSE(store.PutContentType(c.extension, c.type)) << c.why;
  EXPECT_EQ(store.Revision(), before);
}

TEST(RegistryStoreTest, NamesHaveNoCaseAndEmptyStepsDoNotCount) {
  RegistryStore store;
  store.PutText(0x80000002, "Software\\Tool", "Path", "x");
  for (const auto* key : {"Software\\Tool", "SOFTWARE\\tool", "\\software\\tool\\", "software\\\\tool"}) {
    EXPECT_EQ(store.Bytes(0x80000002, key, "PATH"), "x\0"s) << key;
  }
  EXPECT_FALSE(store.Bytes(0x80000001, "Software\\Tool", "Path")) << "another root";
  EXPECT_FALSE(store.Bytes(0x80000002, "Software", "Tool\\Path")) << "another key";
  EXPECT_FALSE(store.Bytes(0x80000002, "Software/Tool", "Path")) << "only \\ separates";
  EXPECT_FALSE(store.Bytes(0x80000002, "Software\\Tool", "")) << "another value";
}

TEST(RegistryStoreTest, AKeyAndAValueNameAreNeverMistakenForOneAnother) {
  RegistryStore store;
  store.PutText(1, "a", "\\b", "1");
  store.PutText(1, "a\\b", "", "2");
  store.PutText(1, "a", "b", "3");
  store.PutText(1, "", "a\\\\b", "4");
  EXPECT_EQ(store.Bytes(1, "a", "\\b"), "1\0"s);
  EXPECT_EQ(store.Bytes(1, "a\\b", ""), "2\0"s);
  EXPECT_EQ(store.Bytes(1, "a", "b"), "3\0"s);
  EXPECT_EQ(store.Bytes(1, "", "a\\\\b"), "4\0"s);
}

TEST(RegistryStoreTest, KeepsBytesAsTheyAre) {
  RegistryStore store;
  for (const std::string& bytes : {""s, "\0"s, "no zero"s, "a\0b\0"s, "\xFF\xFE"s}) {
    store.PutBytes(1, "k", "v", bytes);
    EXPECT_EQ(store.Bytes(1, "k", "v"), bytes);
  }
}

TEST(RegistryStoreTest, RootsHaveOneExactName) {
  struct {
    const char* name;
    std::uint32_t handle;
  } const cases[] = {
      {"HKEY_CLASSES_ROOT", 0x80000000}, {"HKEY_CURRENT_USER", 0x80000001},     {"HKEY_LOCAL_MACHINE", 0x80000002},
      {"HKEY_USERS", 0x80000003},        {"HKEY_PERFOrMANCE_DATA", 0x80000004}, {"HKEY_CURRENT_CONFIG", 0x80000005},
      {"HKEY_DYN_DATA", 0x80000006},
  };
  for (const auto& c : cases) EXPECT_EQ(RegistryStore::RootHandle(c.name), c.handle) << c.name;
  for (const auto* name : {"", "HKEY_PERFORMANCE_DATA", "hkey_classes_root", "HKEY_CLASSES_ROOT ", "HKCR"}) {
    EXPECT_FALSE(RegistryStore::RootHandle(name)) << name;
  }
}

TEST(RegistryStoreTest, TakesTheGoodLinesOfAFile) {
  const Kit::TemporaryTree tree;
  const std::string path = tree.Write("registry.txt",
                                      "HKEY_CLASSES_ROOT\\.html\\Content Type=text/x-own\r\n"
                                      "HKEY_CLASSES_ROOT\\.new\\Content Type=a/b; c=d\n"
                                      "HKEY_LOCAL_MACHINE\\Software\\Tool\\*=unnamed\n"
                                      "HKEY_LOCAL_MACHINE\\Software\\Tool\\Empty=\n"
                                      "\n"
                                      "no line of a value\n"
                                      "HKEY_CLASSES_ROOT\\.png=no value name\n"
                                      "HKEY_CLASSES_ROOT=no key\n"
                                      "HKEY_CLASSES_ROOT\\\\Content Type=no key\n"
                                      "HKEY_PERFORMANCE_DATA\\k\\v=no such root\n"
                                      "HKEY_CLASSES_ROOT\\.gif\\Content Type=control\rcharacter\n"
                                      "HKEY_CLASSES_ROOT\\.last\\Content Type=no/line-end");
  RegistryStore store;
  EXPECT_EQ(store.LoadFile(path), 5);
  EXPECT_EQ(TextOf(store, ".html"), "text/x-own\0"s);
  EXPECT_EQ(TextOf(store, ".new"), "a/b; c=d\0"s);
  EXPECT_EQ(store.Bytes(0x80000002, "software\\tool", ""), "unnamed\0"s);
  EXPECT_EQ(store.Bytes(0x80000002, "software\\tool", "empty"), "\0"s);
  EXPECT_EQ(TextOf(store, ".last"), "no/line-end\0"s);
  EXPECT_EQ(TextOf(store, ".gif"), "image/gif\0"s);
}

TEST(RegistryStoreTest, TakesNothingFromAFileItCannotHave) {
  const Kit::TemporaryTree tree;
  const std::string line = "HKEY_CLASSES_ROOT\\.new\\Content Type=a/b\n";
  const std::string large =
      tree.Write("large", line + std::string(RegistryStore::kMaxFileBytes - line.size() + 1, '\n'));
  const std::string largest =
      tree.Write("largest", line + std::string(RegistryStore::kMaxFileBytes - line.size(), '\n'));
  RegistryStore store;
  EXPECT_EQ(store.LoadFile(tree.Text() + "/none"), 0);
  EXPECT_EQ(store.LoadFile(tree.Text()), 0);
  EXPECT_EQ(store.LoadFile(large), 0);
  EXPECT_EQ(TextOf(store, ".new"), "nothing");
  EXPECT_EQ(store.LoadFile(largest), 1);
}

TEST(RegistryStoreTest, TheRevisionChangesWithEveryValue) {
  RegistryStore store;
  const auto before = store.Revision();
  store.Bytes(RegistryStore::kClassesRoot, ".txt", "Content Type");
  EXPECT_EQ(store.Revision(), before) << "looking changes nothing";
  store.PutText(RegistryStore::kClassesRoot, ".own", "Content Type", "a/b");
  const auto put = store.Revision();
  EXPECT_NE(put, before);
  store.PutText(RegistryStore::kClassesRoot, ".own", "Content Type", "a/b");
  EXPECT_NE(store.Revision(), put) << "the same value once more";
}

}  // namespace
}  // namespace TesselServer
