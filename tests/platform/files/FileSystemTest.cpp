#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>
#include <utility>

#include "platform/files/FileSystem.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

OpenFile Open(const std::string& path) { return OpenFile(open(path.c_str(), O_RDONLY | O_CLOEXEC)); }

TEST(OpenFileTest, TellsWhatItHolds) {
  const Kit::TemporaryTree tree;
  const OpenFile file = Open(tree.Write("a", "12345"));
  EXPECT_EQ(file.Kind(), EntryKind::kFile);
  EXPECT_EQ(file.Size(), 5);
  const OpenFile folder = Open(tree.Text());
  EXPECT_EQ(folder.Kind(), EntryKind::kDirectory);
  EXPECT_EQ(folder.Size(), 0);
  EXPECT_FALSE(file.Identity() == folder.Identity());
  fs::create_hard_link(tree.Path() / "a", tree.Path() / "b");
  EXPECT_EQ(Open(tree.Text() + "/b").Identity(), file.Identity());
}

TEST(OpenFileTest, ClosesAtOnceWhateverIsNeitherFileNorFolder) {
  const std::size_t before = Kit::CountDescriptors();
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const OpenFile reader(ends[0]), writer(ends[1]), device = Open("/dev/null"), bad(-1);
  for (const OpenFile* each : {&reader, &writer, &device, &bad}) {
    EXPECT_FALSE(each->IsOpen());
    EXPECT_EQ(each->Kind(), EntryKind::kNone);
    EXPECT_EQ(each->Descriptor(), -1);
    EXPECT_EQ(each->CanonicalPath(), "");
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST(OpenFileTest, MovesItsDescriptorAndClosesItOnce) {
  const Kit::TemporaryTree tree;
  const std::string path = tree.Write("a", "12345");
  const std::size_t before = Kit::CountDescriptors();
  {
    OpenFile first = Open(path);
    OpenFile second = std::move(first);
    EXPECT_FALSE(first.IsOpen());
    EXPECT_EQ(first.Size(), 0);
    EXPECT_EQ(second.Size(), 5);
    OpenFile third = Open(tree.Text());
    third = std::move(second);
    EXPECT_EQ(third.Kind(), EntryKind::kFile);
    EXPECT_EQ(Kit::CountDescriptors(), before + 1);
    OpenFile& same = third;
    third = std::move(same);
    EXPECT_TRUE(third.IsOpen());
    third = OpenFile();
    EXPECT_EQ(Kit::CountDescriptors(), before);
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST(OpenFileTest, ReadsUpToItsLimit) {
  const Kit::TemporaryTree tree;
  struct {
    std::size_t length;
    std::int64_t limit;
    bool isWhole;
  } const cases[] = {
      {0, 0, true},
      {0, 10, true},
      {1, 0, false},
      {10, 10, true},
      {10, 9, false},
      {10, -1, false},
      {9000, 8999, false},
      {9000, 9000, true},
      {9000, 9001, true},
      {300'000, 1 << 20, true},
      {5, std::numeric_limits<std::int64_t>::max(), true},
  };
  for (const auto& c : cases) {
    std::string whole(c.length, 'x');
    for (std::size_t i = 0; i < whole.size(); ++i) whole[i] = static_cast<char>(i * 31);
    std::string bytes = "old";
    EXPECT_EQ(Open(tree.Write("f", whole)).ReadAll(bytes, c.limit), c.isWhole) << c.length << " of " << c.limit;
    const auto kept = c.isWhole ? whole.size() : static_cast<std::size_t>(std::max<std::int64_t>(c.limit, 0));
    EXPECT_EQ(bytes, whole.substr(0, kept)) << c.length << " of " << c.limit;
  }
}

TEST(OpenFileTest, ReadsAgainFromTheStartAndWhateverLengthItHasNow) {
  const Kit::TemporaryTree tree;
  const std::string path = tree.Write("f", "12345");
  const OpenFile file = Open(path);
  std::string bytes;
  EXPECT_TRUE(file.ReadAll(bytes, 100));
  EXPECT_TRUE(file.ReadAll(bytes, 100));
  EXPECT_EQ(bytes, "12345");
  tree.Write("f", std::string(20'000, 'y'));
  EXPECT_TRUE(file.ReadAll(bytes, 20'000));
  EXPECT_EQ(bytes, std::string(20'000, 'y'));
  EXPECT_FALSE(file.ReadAll(bytes, 19'999));
  tree.Write("f", "1");
  EXPECT_TRUE(file.ReadAll(bytes, 100));
  EXPECT_EQ(bytes, "1");
  EXPECT_EQ(file.Size(), 5) << "what it was when it was opened";
}

TEST(OpenFileTest, ReadsAFileThatSaysItHasNoLength) {
  std::string bytes;
  EXPECT_TRUE(Open("/proc/self/status").ReadAll(bytes, 1 << 20));
  EXPECT_EQ(bytes.substr(0, 5), "Name:");
}

TEST(OpenFileTest, DoesNotReadAFolderOrNothing) {
  std::string bytes = "old";
  EXPECT_FALSE(Open("/").ReadAll(bytes, 100));
  EXPECT_EQ(bytes, "");
  EXPECT_FALSE(OpenFile().ReadAll(bytes, 100));
}

TEST(RootFolderTest, TakesBothSeparatorsALinkAndATrailingSeparator) {
  const Kit::TemporaryTree tree;
  tree.Write("www/a.htm", "x");
  fs::create_directory_symlink("www", tree.Path() / "link");
  std::string withBackslashes = tree.Text() + "\\www\\";
  for (const std::string& path :
       {tree.Text() + "/www", tree.Text() + "/www/", withBackslashes, tree.Text() + "/link"}) {
    const RootFolder root(path);
    EXPECT_EQ(root.Path(), path);
    EXPECT_EQ(root.Find("A.HTM").name, "a.htm") << path;
  }
}

TEST(RootFolderTest, FindsNothingBeneathARootThatIsNoFolder) {
  const Kit::TemporaryTree tree;
  const std::string file = tree.Write("file", "x");
  using namespace std::string_literals;
  for (const std::string& path : {""s, tree.Text() + "/none", file, tree.Text() + "/WWW", tree.Text() + "\0/x"s}) {
    EXPECT_EQ(RootFolder(path).Find("").kind, EntryKind::kNone) << path;
    EXPECT_EQ(RootFolder(path).Find("file").kind, EntryKind::kNone) << path;
  }
}

TEST(RootFolderTest, SeesARootThatComesGoesAndIsReplaced) {
  const Kit::TemporaryTree tree;
  const RootFolder root(tree.Text() + "/www");
  EXPECT_EQ(root.Find("a").kind, EntryKind::kNone);
  tree.Write("www/a", "1");
  EXPECT_EQ(root.Find("a").file.Size(), 1);
  tree.Write("next/a", "22");
  fs::rename(tree.Path() / "www", tree.Path() / "old");
  EXPECT_EQ(root.Find("a").kind, EntryKind::kNone);
  fs::rename(tree.Path() / "next", tree.Path() / "www");
  EXPECT_EQ(root.Find("a").file.Size(), 2);
  const std::size_t before = Kit::CountDescriptors();
  for (int i = 0; i < 100; ++i) {
    fs::rename(tree.Path() / "www", tree.Path() / "swap");
    fs::rename(tree.Path() / "old", tree.Path() / "www");
    fs::rename(tree.Path() / "swap", tree.Path() / "old");
    EXPECT_EQ(root.Find("a").file.Size(), i % 2 == 0 ? 1 : 2);
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST(RootFolderTest, TheWholeSystemMayBeTheRoot) {
  const Kit::TemporaryTree tree;
  tree.Write("real/a", "x");
  fs::create_directory_symlink(tree.Path() / "real", tree.Path() / "abs");
  const RootFolder root("/");
  const std::string folder = fs::canonical(tree.Path()).string().substr(1);
  EXPECT_EQ(root.Find(folder + "/abs/a").name, folder + "/real/a");
}

TEST(RootFolderTest, ARaceOfRenamesNeverLeadsOutside) {
  const Kit::TemporaryTree tree;
  tree.Write("outside/deep/f", "outside");
  tree.Write("www/d/deep/f", "inside");
  fs::create_symlink("../outside", tree.Path() / "www/swap");
  Kit::FakeWorld world;
  world.LetFilesSettle();
  const RootFolder root(tree.Text() + "/www", world);
  std::atomic<bool> isOver = false;
  std::thread renamer([&] {
    const std::string one = tree.Text() + "/www/d", two = tree.Text() + "/www/swap";
    while (!isOver) renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, two.c_str(), RENAME_EXCHANGE);
  });
  int inside = 0;
  for (int i = 0; i < 3000; ++i) {
    for (const auto* path : {"d/deep/f", "D/DEEP/F", "swap/deep/f"}) {
      std::string bytes;
      if (!root.Find(path).file.ReadAll(bytes, 1000)) continue;
      EXPECT_EQ(bytes, "inside") << path;
      ++inside;
    }
  }
  isOver = true;
  renamer.join();
  EXPECT_GT(inside, 0) << "the folder was never met where it belongs";
}

TEST(RootFolderTest, CanBeMovedAndKeepsNoDescriptor) {
  const Kit::TemporaryTree tree;
  tree.Write("a", "x");
  const std::size_t before = Kit::CountDescriptors();
  {
    RootFolder first(tree.Text());
    EXPECT_EQ(first.Find("a").kind, EntryKind::kFile);
    RootFolder second(std::move(first));
    EXPECT_EQ(second.Find("a").kind, EntryKind::kFile);
    RootFolder third("/nonexistent");
    third = std::move(second);
    EXPECT_EQ(third.Path(), tree.Text());
    EXPECT_EQ(third.Find("a").kind, EntryKind::kFile);
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

class OpenPathTest : public testing::Test {
 protected:
  OpenPathTest() { tree_.Write("Docs/Page.htm", "page"); }

  static std::string BytesOf(std::string_view path) {
    std::string bytes;
    return OpenPath(path).ReadAll(bytes, 100) ? bytes : "nothing";
  }

  Kit::TemporaryTree tree_;
};

TEST_F(OpenPathTest, OpensByAnySpelling) {
  struct {
    std::string_view given, bytes;
  } const cases[] = {
      {"/Docs/Page.htm", "page"},
      {"/docs/PAGE.HTM", "page"},
      {"\\DOCS\\PAGE.HTM", "page"},
      {"//Docs/.//Page.htm", "page"},
      {"/docs/../DOCS/page.htm", "page"},
      {"/Docs/Page.htm/", "nothing"},
      {"/docs/page.htm\\", "nothing"},
      {"/docs/page.htm/.", "nothing"},
      {"/docs", "nothing"},
      {"/none", "nothing"},
      {"/docs/none.htm", "nothing"},
  };
  for (const auto& c : cases) EXPECT_EQ(BytesOf(tree_.Text() + std::string(c.given)), c.bytes) << c.given;
  EXPECT_EQ(OpenPath(tree_.Text() + "/DOCS/").Kind(), EntryKind::kDirectory);
  EXPECT_EQ(OpenPath("/").Kind(), EntryKind::kDirectory);
}

TEST_F(OpenPathTest, StartsAtTheWorkingFolderUnlessAbsolute) {
  const int status = Kit::InChild([this] {
    if (chdir(tree_.Text().c_str()) != 0) return 1;
    if (BytesOf("Docs/Page.htm") != "page") return 2;
    if (BytesOf("docs\\page.htm") != "page") return 3;
    if (BytesOf("./docs/../docs/page.htm") != "page") return 4;
    return KindOfPath("DOCS") == EntryKind::kDirectory ? 0 : 5;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(OpenPathTest, FollowsLinksAnywhere) {
  const Kit::TemporaryTree elsewhere;
  fs::create_directory_symlink(tree_.Path(), elsewhere.Path() / "Far");
  EXPECT_EQ(BytesOf(elsewhere.Text() + "/far/docs/page.htm"), "page");
}

TEST_F(OpenPathTest, OpensNothingThatIsNoFileOrFolder) {
  ASSERT_EQ(mkfifo((tree_.Path() / "fifo").c_str(), 0600), 0);
  using namespace std::string_literals;
  for (const std::string& path : {""s, tree_.Text() + "/fifo", "/dev/null"s, tree_.Text() + "/Docs/Page.htm\0"s,
                                  std::string(5000, 'a'), tree_.Text() + "/" + std::string(256, 'a')}) {
    EXPECT_FALSE(OpenPath(path).IsOpen()) << path;
    EXPECT_EQ(KindOfPath(path), EntryKind::kNone) << path;
  }
}

TEST_F(OpenPathTest, KindNeedsNoPermissionToRead) {
  fs::permissions(tree_.Path(), fs::perms(0755));
  fs::permissions(tree_.Path() / "Docs/Page.htm", fs::perms(0));
  const int status = Kit::InUnprivilegedChild([this] {
    if (KindOfPath(tree_.Text() + "/docs/page.htm") != EntryKind::kFile) return 1;
    return OpenPath(tree_.Text() + "/Docs/Page.htm").IsOpen() ? 2 : 0;
  });
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "root, and no other user to be had";
  EXPECT_EQ(status, 0);
}

TEST_F(OpenPathTest, KindKnowsATrailingSeparator) {
  EXPECT_EQ(KindOfPath(tree_.Text() + "/Docs/Page.htm"), EntryKind::kFile);
  EXPECT_EQ(KindOfPath(tree_.Text() + "/Docs/Page.htm/"), EntryKind::kNone);
  EXPECT_EQ(KindOfPath(tree_.Text() + "/docs\\"), EntryKind::kDirectory);
}

TEST_F(OpenPathTest, IdentifiesWhatIsAtAPath) {
  using State = PathIdentity::State;
  const std::string root = tree_.Text();
  fs::create_symlink("Docs/Page.htm", tree_.Path() / "link");
  fs::create_symlink("gone", tree_.Path() / "dangling");
  fs::create_symlink("loop", tree_.Path() / "loop");
  const FileIdentity page = OpenPath(root + "/Docs/Page.htm").Identity();
  for (const char* path : {"/Docs/Page.htm", "/DOCS\\page.HTM", "/link"}) {
    EXPECT_EQ(IdentifyPath(root + path).state, State::kFound) << path;
    EXPECT_EQ(IdentifyPath(root + path).identity, page) << path;
  }
  EXPECT_EQ(IdentifyPath(root + "/none").state, State::kMissing);
  EXPECT_EQ(IdentifyPath(root + "/Docs/Page.htm/none").state, State::kMissing);
  EXPECT_EQ(IdentifyPath("").state, State::kMissing);
  EXPECT_EQ(IdentifyPath(root + "/dangling").state, State::kDangling);
  EXPECT_EQ(IdentifyPath(root + "/loop").state, State::kUnknown);
}

TEST_F(OpenPathTest, WhatPermissionsHideIsUnknown) {
  tree_.Write("closed/file", "f");
  fs::permissions(tree_.Path(), fs::perms(0755));
  for (const int mode : {0000, 0311}) {
    fs::permissions(tree_.Path() / "closed", fs::perms(mode));
    const int status = Kit::InUnprivilegedChild(
        [this] { return IdentifyPath(tree_.Text() + "/closed/FILE").state == PathIdentity::State::kUnknown ? 0 : 1; });
    fs::permissions(tree_.Path() / "closed", fs::perms(0755));
    if (status == Kit::kCannotDropUser) GTEST_SKIP() << "root, and no other user to be had";
    EXPECT_EQ(status, 0) << mode;
  }
}

TEST_F(OpenPathTest, LeavesNoDescriptorOpen) {
  const std::size_t before = Kit::CountDescriptors();
  for (int i = 0; i < 250; ++i) {
    OpenPath(tree_.Text() + "/docs/page.htm");
    OpenPath(tree_.Text() + "/docs/page.htm/");
    KindOfPath(tree_.Text() + "/DOCS");
    KindOfPath(tree_.Text() + "/none");
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

}  // namespace
}  // namespace TesselServer
