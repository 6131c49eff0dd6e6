#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "control/answer/RequestTarget.h"
#include "support/cls_Strings.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

TEST(MapPathTest, JoinsWithOneSeparatorAndWritesUpperCase) {
  struct {
    const char *root, *path, *mapped;
  } const cases[] = {
      {"/srv/www", "docs/a%20b.htm", "\\SRV\\WWW\\DOCS\\A B.HTM"},
      {"/srv/www/", "docs/a%20b.htm", "\\SRV\\WWW\\DOCS\\A B.HTM"},
      {"/srv/www\\", "/docs/a%20b.htm", "\\SRV\\WWW\\DOCS\\A B.HTM"},
      {"/srv/www", "\\docs\\a b.htm", "\\SRV\\WWW\\DOCS\\A B.HTM"},
      {"/srv/www", "/", "\\SRV\\WWW\\"},
      {"/srv/www/", "", "\\SRV\\WWW\\"},
      {"/srv/www//", "x", "\\SRV\\WWW\\\\X"},
      {"", "x", "\\X"},
      {"/r", "a%2fb%2E%2520", "\\R\\A%2FB%2E%2520"},
      {"/r", "\xC3\xA4.htm", "\\R\\\xC3\xA4.HTM"},
  };
  for (const auto& c : cases) EXPECT_EQ(MapPath(c.root, c.path), c.mapped) << c.root << " and " << c.path;
}

TEST(DecodePathTest, DecodesOnceAndRefusesWhatNoNameMayHold) {
  struct {
    const char *path, *decoded, *why;
  } const cases[] = {
      {"a.htm", "a.htm", "nothing to decode"},
      {"my%2Ddir/%61%5f.htm", "my-dir/a_.htm", "digits of either case"},
      {"%41", "A", "nothing else"},
      {"a%20b", "a b", "a blank"},
      {"%2520", "%20", "once"},
      {"%252e%252e", "%2e%2e", "once"},
      {"%2e%2e/x", "../x", "the look-up judges it"},
      {"%C3%A4", "\xC3\xA4", "bytes above 127"},
      {"%00", "", "NUL"},
      {"a%00.exe", "", "NUL inside"},
      {"%1F", "", "control"},
      {"%0D%0A", "", "line end"},
      {"%7F", "", "delete"},
      {"%2f", "", "separator"},
      {"%5C", "", "separator"},
      {"%", "", "cut off"},
      {"%4", "", "cut off"},
      {"a%4", "", "cut off"},
      {"%G1", "", "no digit"},
      {"%1G", "", "no digit"},
      {"%%41", "", "no digit"},
      {"", "", "nothing"},
  };
  for (const auto& c : cases) EXPECT_EQ(DecodePath(c.path), c.decoded) << c.path << ": " << c.why;
}

TEST(TrapExtensionTest, IsTheTextAfterTheLastDotOfTheName) {
  FoundEntry file;
  file.kind = EntryKind::kFile;
  FoundEntry folder;
  folder.kind = EntryKind::kDirectory;
  const FoundEntry none;
  struct {
    const FoundEntry* target;
    const char *name, *extension;
  } const cases[] = {
      {&file, "page.trp", "trp"},
      {&file, "sub/page.TRP", "TRP"},
      {&none, "a.b.c", "c"},
      {&file, "name", "name"},
      {&file, "dotted.d/n", "n"},
      {&file, "ends.", ""},
      {&none, "", ""},
      {&none, "sub/", ""},
      {&none, "a\\b.x", "x"},
      {&none, "a.x\\b", "b"},
      {&none, "a\\b/c.x", "x"},
      {&folder, "a.d", ""},
      {&folder, "", ""},
      {&none, ".htaccess", "htaccess"},
  };
  for (const auto& c : cases) EXPECT_EQ(TrapExtension(*c.target, c.name), c.extension) << c.name;
}

TEST(ScriptNameOfTest, IsTheClientsNameUnlessAnotherWasFound) {
  struct {
    EntryKind kind;
    const char *found, *path, *name;
  } const cases[] = {
      {EntryKind::kFile, "index.html", "/", "index.html"},
      {EntryKind::kFile, "docs/index.html", "docs", "index.html"},
      {EntryKind::kFile, "docs/index.html", "DOCS/Index.HTML", "Index.HTML"},
      {EntryKind::kFile, "docs/index.html", "docs\\Index.html", "Index.html"},
      {EntryKind::kFile, "a b.txt", "A%20b.txt", "A b.txt"},
      {EntryKind::kFile, "my-file.txt", "my%2Dfile.txt", "my-file.txt"},
      {EntryKind::kNone, "", "sub/x%20y.cgi", "x y.cgi"},
      {EntryKind::kNone, "", "sub/", ""},
      {EntryKind::kDirectory, "docs", "docs", ""},
  };
  for (const auto& c : cases) {
    FoundEntry target;
    target.kind = c.kind;
    target.name = c.found;
    EXPECT_EQ(ScriptNameOf(target, c.path), c.name) << c.path;
  }
}

class ResolveTargetTest : public testing::Test {
 protected:
  ResolveTargetTest() {
    tree.Write("index.html", "index");
    tree.Write("a b.htm", "blank");
    tree.Write("a%20b.raw", "percent");
    tree.Write("docs/default.htm", "default");
    tree.Write("docs/my-file.txt", "dash");
    tree.Write("docs/secret.txt", "secret");
    tree.MakeFolder("empty");
    tree.MakeFolder("odd/index.html");  // a folder with the name of an index page
    tree.Write("odd/second.html", "second");
  }

  // "F name", "D name" or "-".
  std::string Resolve(std::string_view path, std::string_view pages = "index.html,default.htm") const {
    const auto list = cls_Strings::ListStrToArray(pages, ",");
    const std::string found = Named(RunNow(ResolveTarget(root, std::string(path), list, secrets, nullptr)));
    const auto atOnce = ResolveAtOnce(root, path, list, secrets);
    if (atOnce) {
      EXPECT_EQ(Named(*atOnce), found) << path;
    }
    return found;
  }
  static std::string Named(const FoundEntry& entry) {
    if (entry.kind == EntryKind::kNone) return "-";
    return (entry.kind == EntryKind::kFile ? "F " : "D ") + entry.name;
  }

  Kit::TemporaryTree tree;
  RootFolder root{tree.Text()};
  SecretFiles secrets{"secret.txt", e_AuthSource::DirectoryFile, ""};
};

TEST_F(ResolveTargetTest, TheUsualTargetIsFoundAtOnce) {
  const std::vector<std::string> pages = {"index.html"};
  for (const char* path : {"index.html", "a%20b.htm", "/", "odd", "docs/secret.txt"}) {
    EXPECT_TRUE(ResolveAtOnce(root, path, pages, secrets)) << path;
  }
}

TEST_F(ResolveTargetTest, WhatNeedsTheNamesOfAFolderIsNotFoundAtOnce) {
  for (const char* path : {"INDEX.html", "docs/MY-file.txt", "docs/my%2Dfile.txt", "none%20at.all", "docs"}) {
    EXPECT_FALSE(ResolveAtOnce(root, path, std::vector<std::string>{"index.html"}, secrets)) << path;
  }
}

TEST_F(ResolveTargetTest, FindsFilesFoldersAndIndexPages) {
  struct {
    const char *path, *found, *why;
  } const cases[] = {
      {"/", "F index.html", "the root's index page"},
      {"index.html", "F index.html", "a file"},
      {"INDEX.HTML", "F index.html", "in any case"},
      {"docs", "F docs/default.htm", "a folder's index page"},
      {"docs/", "F docs/default.htm", "with a separator"},
      {"DOCS\\", "F docs/default.htm", "with either separator"},
      {"docs//default.htm", "F docs/default.htm", "empty components are dropped"},
      {"docs/./default.htm", "F docs/default.htm", "as are dots"},
      {"empty/../docs", "F docs/default.htm", "two dots take one back"},
      {"empty", "D empty", "no index page"},
      {"empty/", "D empty", "no index page"},
      {"a%20b.htm", "F a b.htm", "%20 is a blank"},
      {"a b.htm", "F a b.htm", "as a blank is"},
      {"docs/my%2Dfile.txt", "F docs/my-file.txt", "decoded where nothing stands otherwise"},
      {"%64ocs/my%2dfile%2Etxt", "F docs/my-file.txt", "decoded all over"},
      {"docs%2Fdefault.htm", "-", "no separator comes from decoding"},
      {"a%20b.raw", "-", "%20 is never itself"},
      {"a%2520b.raw", "F a%20b.raw", "but can be named"},
      {"index.html/", "-", "a file is no folder"},
      {"missing", "-", "nothing there"},
      {"../index.html", "-", "above the root"},
      {"%2e%2e/index.html", "-", "above the root, decoded"},
      {"docs/%2e%2e/index.html", "F index.html", "within the root, decoded"},
      {"docs/secret.txt", "-", "secret"},
      {"docs/secret%2Etxt", "-", "secret, decoded"},
  };
  for (const auto& c : cases) EXPECT_EQ(Resolve(c.path), c.found) << c.path << ": " << c.why;
}

TEST_F(ResolveTargetTest, IndexPagesAreTriedInTheirOrder) {
  tree.Write("docs/index.html", "index");
  struct {
    const char *pages, *found, *why;
  } const cases[] = {
      {"index.html,default.htm", "F docs/index.html", "the first"},
      {"default.htm,index.html", "F docs/default.htm", "the first"},
      {"missing.htm,default.htm", "F docs/default.htm", "the second"},
      {",,default.htm,", "F docs/default.htm", "empty names are none"},
      {"secret.txt,default.htm", "F docs/default.htm", "a secret is no index page"},
      {"secret.txt", "D docs", "nor does it hide the folder"},
      {"", "D docs", "no names"},
      {"DEFAULT.HTM", "F docs/default.htm", "in any case"},
  };
  for (const auto& c : cases) EXPECT_EQ(Resolve("docs", c.pages), c.found) << c.pages << ": " << c.why;
  EXPECT_EQ(Resolve("odd", "index.html,second.html"), "F odd/second.html") << "a folder is no index page";
}

TEST_F(ResolveTargetTest, RawControlBytesNameNothing) {
  EXPECT_EQ(Resolve(std::string("index.html\0.txt", 15)), "-");
  EXPECT_EQ(Resolve("index.html\x01"), "-");
  EXPECT_EQ(Resolve("index\t.html"), "-");
}

TEST_F(ResolveTargetTest, LongPathsNameSomethingUpToTheLongestThatCanBeOpened) {
  constexpr std::size_t kMost = RootFolder::kMaxPathBytes;
  // A path of so many bytes once it is decoded, each component of which but the last one says "here".
  const auto path = [](std::string_view here, std::string_view name, std::size_t bytes) {
    std::string text;
    for (std::size_t i = 0; i < (bytes - sizeof "index.html" + 1) / 2; ++i) text += std::string(here) + "/";
    return std::string(bytes % 2, '/') + text + std::string(name);
  };
  struct {
    std::string path;
    const char *found, *why;
  } const cases[] = {
      {path(".", "index.html", kMost), "F index.html", "at the limit"},
      {path(".", "index.html", kMost + 1), "-", "one beyond"},
      {path(".", "INDEX.html", kMost), "F index.html", "at the limit, in any case"},
      {path(".", "INDEX.html", kMost + 1), "-", "one beyond, in any case"},
      {path("%2E", "%69%6E%64%65%78%2E%68%74%6D%6C", kMost), "F index.html", "longer, but decoded it is not"},
      {path("%2E", "%69%6E%64%65%78%2E%68%74%6D%6C", kMost + 1), "-", "one beyond, decoded"},
      {std::string(kMost, '/'), "F index.html", "separators count"},
      {std::string(kMost + 1, '/'), "-", "separators count"},
  };
  for (const auto& c : cases) EXPECT_EQ(Resolve(c.path), c.found) << c.path.size() << " bytes: " << c.why;
}

TEST_F(ResolveTargetTest, APathThatIsTooLongHoweverItIsReadIsNotReadAtAll) {
  constexpr std::size_t kMost = 3 * RootFolder::kMaxPathBytes;
  std::string decodable;
  while (decodable.size() < kMost) decodable += "%41";
  struct {
    std::string path;
    bool isKnownAtOnce;
    const char* why;
  } const cases[] = {
      {decodable, false, "at the limit it is to be decoded"},
      {decodable + "x", true, "one beyond"},
      {"x" + decodable, true, "one beyond"},
      {decodable + decodable, true, "far beyond"},
      {std::string(kMost, 'x'), true, "nothing to decode, at the limit"},
      {std::string(kMost + 1, 'x'), true, "nothing to decode, one beyond"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.path.size()) + " bytes: " + c.why);
    EXPECT_EQ(ResolveAtOnce(root, c.path, {}, secrets).has_value(), c.isKnownAtOnce);
    EXPECT_EQ(Resolve(c.path), "-");
  }
}

TEST_F(ResolveTargetTest, LinksLeadNowhereOutside) {
  const Kit::TemporaryTree outside;
  outside.Write("x.txt", "outside");
  std::filesystem::create_symlink(outside.Path() / "x.txt", tree.Path() / "out.txt");
  std::filesystem::create_directory_symlink(outside.Path(), tree.Path() / "out");
  std::filesystem::create_symlink("docs/default.htm", tree.Path() / "in.htm");
  EXPECT_EQ(Resolve("out.txt"), "-");
  EXPECT_EQ(Resolve("out/x.txt"), "-");
  EXPECT_EQ(Resolve("in.htm"), "F in.htm");
}

TEST(IsProgramRequestTest, TheEndOfThePathOrExeAndAMarkAnywhere) {
  struct {
    const char *path, *query;
    bool is;
    const char* why;
  } const cases[] = {
      {"cgi/prog.exe", "", true, "the end"},
      {"PROG.EXE", "", true, "in any case"},
      {"cgi/prog.exe", "x=1", true, "with a query"},
      {".exe", "", true, "nothing else"},
      {"prog.exe/x", "", false, "a folder of that name"},
      {"prog.exe ", "", false, "another name"},
      {"exe", "", false, "no dot"},
      {"prog.bat", "", false, "another kind"},
      {"secret.ini", "a=.exe?b", true, "in the query"},
      {"secret.ini", "a=.EXE?", true, "in any case"},
      {"secret.ini", "a=.exe", false, "no mark behind it"},
      {"", "", false, "nothing"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(IsProgramRequest(c.path, c.query), c.is) << c.path << "?" << c.query << ": " << c.why;
}

class FindProgramTest : public testing::Test {
 protected:
  FindProgramTest() {
    for (const char* name : {"tool.exe", "my tool.exe", "secret.ini", "sub/deep.exe", "hidden.exe"})
      tree.Write(name, "x");
    tree.MakeFolder("folder.exe");
  }

  std::string Found(const std::string& path) const {
    const RootFolder folder(tree.Text());
    const SecretFiles secrets("hidden.exe", e_AuthSource::DirectoryFile, "");
    const FoundEntry entry = RunNow(FindProgram(folder, path, secrets, nullptr));
    return entry.kind == EntryKind::kFile ? entry.name : "none";
  }

  Kit::TemporaryTree tree;
};

TEST_F(FindProgramTest, IsAProgramOfThatNameInTheFolderItself) {
  struct {
    const char *path, *found, *why;
  } const cases[] = {
      {"tool.exe", "tool.exe", "there"},
      {"TOOL.Exe", "tool.exe", "in any case"},
      {"a/b/tool.exe", "tool.exe", "its name alone counts"},
      {"..\\tool.exe", "tool.exe", "its name alone counts"},
      {"my%20tool.exe", "my tool.exe", "a blank"},
      {"t%6Fol.exe", "tool.exe", "decoded"},
      {"..%2Ftool.exe", "none", "no separator is decoded"},
      {"tool%2Eini", "none", "another name"},
      {"secret.ini", "none", "no program"},
      {"deep.exe", "none", "in a folder below"},
      {"sub/deep.exe", "none", "in a folder below"},
      {"folder.exe", "none", "a folder"},
      {"hidden.exe", "none", "a secret"},
      {"tool.exe/", "none", "no name"},
      {"", "none", "no name"},
      {"..", "none", "no program"},
  };
  for (const auto& c : cases) EXPECT_EQ(Found(c.path), c.found) << c.path << ": " << c.why;
}

}  // namespace
}  // namespace TesselServer
