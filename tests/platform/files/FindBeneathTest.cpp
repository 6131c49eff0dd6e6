#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>

#include "platform/files/PathWalk.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

// Each test runs with both ways of keeping the look-up beneath the root.
class FindBeneathTest : public testing::TestWithParam<OpenFunction> {
 protected:
  FindBeneathTest() : root_(open(tree_.Text().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

  FoundEntry Find(std::string_view relative) const {
    const auto path = CollapsePath(relative);
    return path ? FindBeneath(GetParam(), root_.Get(), *path) : FoundEntry();
  }
  EntryKind KindOf(std::string_view relative) const { return Find(relative).kind; }
  std::string BytesOf(std::string_view relative) const {
    std::string bytes;
    return Find(relative).file.ReadAll(bytes, 1000) ? bytes : "nothing";
  }
  bool FollowsLinks() const { return GetParam() == &OpenBeneath; }
  std::string Followed(std::string bytes) const { return FollowsLinks() ? bytes : "nothing"; }

  Kit::TemporaryTree tree_;
  UniqueDescriptor root_;
};

INSTANTIATE_TEST_SUITE_P(, FindBeneathTest, testing::Values(&OpenBeneath, &OpenWithoutLinks), [](const auto& each) {
  return std::string(each.param == &OpenBeneath ? "KernelKeeps" : "WalkKeeps");
});

TEST_P(FindBeneathTest, FindsFilesAndFoldersByAnySpelling) {
  tree_.Write("index.html", "index");
  tree_.Write("docs/a b.htm", "a b");
  tree_.Write("docs/.dot", "dot");
  tree_.MakeFolder("Empty");
  struct {
    std::string_view given;
    EntryKind kind;
    std::string_view name;
  } const cases[] = {
      {"", EntryKind::kDirectory, ""},
      {"/", EntryKind::kDirectory, ""},
      {"docs/..", EntryKind::kDirectory, ""},
      {"index.html", EntryKind::kFile, "index.html"},
      {"/index.html", EntryKind::kFile, "index.html"},
      {"INDEX.HTML", EntryKind::kFile, "index.html"},
      {"DOCS\\A B.HTM", EntryKind::kFile, "docs/a b.htm"},
      {"docs/./x/../a b.htm", EntryKind::kFile, "docs/a b.htm"},
      {"docs/.dot", EntryKind::kFile, "docs/.dot"},
      {"empty", EntryKind::kDirectory, "Empty"},
      {"empty/", EntryKind::kDirectory, "Empty"},
      {"EMPTY\\", EntryKind::kDirectory, "Empty"},
      {"index.html/", EntryKind::kNone, ""},
      {"index.html/.", EntryKind::kNone, ""},
      {"INDEX.HTML\\", EntryKind::kNone, ""},
      {"index.html/x", EntryKind::kNone, ""},
      {"index.htm", EntryKind::kNone, ""},
      {"docs./a b.htm", EntryKind::kNone, ""},
      {"docs /a b.htm", EntryKind::kNone, ""},
      {"a b.htm", EntryKind::kNone, ""},
      {"../index.html", EntryKind::kNone, ""},
      {"docs/../../etc/passwd", EntryKind::kNone, ""},
      {"\\..\\..\\etc\\passwd", EntryKind::kNone, ""},
      {"C:\\index.html", EntryKind::kNone, ""},
      {std::string_view("index.html\0.exe", 15), EntryKind::kNone, ""},
      {std::string_view("index.html\0", 11), EntryKind::kNone, ""},
      {"index.html\n", EntryKind::kNone, ""},
  };
  for (const auto& c : cases) {
    const FoundEntry found = Find(c.given);
    EXPECT_EQ(found.kind, c.kind) << c.given;
    EXPECT_EQ(found.name, c.name) << c.given;
    EXPECT_EQ(found.readable, c.kind != EntryKind::kNone) << c.given;
    EXPECT_EQ(found.file.IsOpen(), found.readable) << c.given;
    EXPECT_EQ(found.file.Kind(), c.kind) << c.given;
  }
}

TEST_P(FindBeneathTest, ANameOnDiskWithAControlCharacterOrBackslashIsNotReached) {
  tree_.Write("a\tb", "x");
  tree_.Write("a\\b", "x");
  EXPECT_EQ(KindOf("a\tb"), EntryKind::kNone);
  EXPECT_EQ(KindOf("a\\b"), EntryKind::kNone);
}

TEST_P(FindBeneathTest, TakesNamesUpToTheLimit) {
  const std::string longest(255, 'n');
  tree_.Write(longest, "x");
  EXPECT_EQ(KindOf(longest), EntryKind::kFile);
  EXPECT_EQ(KindOf(std::string(255, 'N')), EntryKind::kFile);
  EXPECT_EQ(KindOf(longest + 'n'), EntryKind::kNone);
  EXPECT_EQ(KindOf(std::string(4096 - 255, '/') + longest), EntryKind::kFile) << "4096 bytes";
  EXPECT_EQ(KindOf(std::string(4097 - 255, '/') + longest), EntryKind::kNone) << "4097 bytes";
  std::string deep;
  while (deep.size() + 2 <= 4096) deep += "d/";
  EXPECT_EQ(KindOf(deep), EntryKind::kNone) << "2048 folders that are not there";
}

TEST_P(FindBeneathTest, LinksInsideAreFollowedAndKeepTheirNames) {
  tree_.Write("real/page.htm", "page");
  fs::create_symlink("real", tree_.Path() / "Link");
  fs::create_symlink("../real/page.htm", tree_.Path() / "real/again.htm");
  EXPECT_EQ(BytesOf("Link/page.htm"), Followed("page"));
  EXPECT_EQ(BytesOf("LINK/PAGE.HTM"), Followed("page"));
  EXPECT_EQ(BytesOf("real/again.htm"), Followed("page"));
  if (!FollowsLinks()) return;
  const FoundEntry found = Find("LINK/PAGE.HTM");
  EXPECT_EQ(found.name, "Link/page.htm");
  EXPECT_EQ(found.file.CanonicalPath(), fs::canonical(tree_.Path()) / "real/page.htm");
}

TEST_P(FindBeneathTest, AnAbsoluteLinkIsFollowedWhereItEndsInside) {
  tree_.Write("real/Page.htm", "page");
  fs::create_symlink(tree_.Path() / "real", tree_.Path() / "abs");
  fs::create_symlink(tree_.Path() / "real/Page.htm", tree_.Path() / "file.htm");
  fs::create_symlink(tree_.Path(), tree_.Path() / "self");
  fs::create_symlink("../" + tree_.Path().filename().string() + "/real", tree_.Path() / "around");
  for (const auto* path : {"abs/Page.htm", "ABS/PAGE.HTM", "file.htm", "FILE.HTM", "self/abs/page.htm",
                           "around/page.htm", "self/self/file.htm"}) {
    EXPECT_EQ(BytesOf(path), Followed("page")) << path;
    EXPECT_EQ(Find(path).name, FollowsLinks() ? "real/Page.htm" : "") << path;
  }
  EXPECT_EQ(KindOf("self"), FollowsLinks() ? EntryKind::kDirectory : EntryKind::kNone);
  EXPECT_EQ(Find("self").name, "");
}

TEST_P(FindBeneathTest, ALinkThatLeavesTheRootIsNotFound) {
  Kit::TemporaryTree outside;
  outside.Write("secret.htm", "secret");
  // A folder beside the root whose name begins like the root's own.
  const fs::path beside = tree_.Text() + "x";
  fs::create_directory(beside);
  fs::create_symlink(outside.Path(), tree_.Path() / "far");
  fs::create_symlink(outside.Path() / "secret.htm", tree_.Path() / "secret.htm");
  fs::create_symlink("../" + outside.Path().filename().string(), tree_.Path() / "up");
  fs::create_symlink("far", tree_.Path() / "chain");
  fs::create_symlink(beside, tree_.Path() / "beside");
  fs::create_symlink("/", tree_.Path() / "slash");
  fs::create_symlink("/proc/self/cwd", tree_.Path() / "magic");
  fs::create_symlink("/dev/null", tree_.Path() / "device");
  for (const auto* path : {"far", "far/secret.htm", "FAR/SECRET.HTM", "secret.htm", "up", "up/secret.htm", "chain",
                           "chain/secret.htm", "beside", "slash", "slash/etc/passwd", "magic", "device"}) {
    const FoundEntry found = Find(path);
    EXPECT_EQ(found.kind, EntryKind::kNone) << path;
    EXPECT_FALSE(found.file.IsOpen()) << path;
    EXPECT_EQ(found.name, "") << path;
  }
  fs::remove(beside);
}

TEST_P(FindBeneathTest, LinksThatLeadNowhereAreNotFound) {
  fs::create_symlink("b", tree_.Path() / "a");
  fs::create_symlink("a", tree_.Path() / "b");
  fs::create_symlink("self", tree_.Path() / "self");
  fs::create_symlink("gone", tree_.Path() / "dangling");
  for (const auto* path : {"a", "A", "b/x", "self", "self/self", "dangling", "DANGLING", "dangling/x"}) {
    EXPECT_EQ(KindOf(path), EntryKind::kNone) << path;
  }
}

TEST_P(FindBeneathTest, AFifoNeitherExistsNorHoldsTheThread) {
  ASSERT_EQ(mkfifo((tree_.Path() / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(KindOf("fifo"), EntryKind::kNone);
  EXPECT_EQ(KindOf("FIFO"), EntryKind::kNone);
}

TEST_P(FindBeneathTest, ASocketDoesNotExist) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = tree_.Text() + "/socket";
  ASSERT_LT(path.size(), sizeof address.sun_path);
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const UniqueDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(KindOf("socket"), EntryKind::kNone);
}

TEST_P(FindBeneathTest, ADeviceDoesNotExist) {
  if (mknod((tree_.Path() / "null").c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0) {
    GTEST_SKIP() << "only root makes device nodes";
  }
  EXPECT_EQ(KindOf("null"), EntryKind::kNone);
}

TEST_P(FindBeneathTest, HiddenAndSystemFilesAreNotFound) {
  const std::string path = tree_.Write("Page.htm", "x");
  const std::string folder = tree_.MakeFolder("Folder");
  if (setxattr(path.c_str(), "user.DOSATTRIB", "0x0", 3, 0) != 0) {
    GTEST_SKIP() << "the temporary folder's file system keeps no extended attributes";
  }
  struct {
    std::string_view value;
    EntryKind kind;
    const char* why;
  } const cases[] = {
      {"0x0", EntryKind::kFile, "no attribute"},
      {"0x20", EntryKind::kFile, "archive"},
      {"0x1", EntryKind::kFile, "read-only"},
      {"0x2", EntryKind::kNone, "hidden"},
      {"0x4", EntryKind::kNone, "system"},
      {"0x27", EntryKind::kNone, "all of them"},
      {"0X22", EntryKind::kNone, "a capital X"},
      {std::string_view("0x22\0\1\2", 7), EntryKind::kNone, "something else behind it"},
      {"", EntryKind::kFile, "empty"},
      {"0x", EntryKind::kFile, "no digits"},
      {"22", EntryKind::kFile, "another form"},
      {"hidden", EntryKind::kFile, "another form"},
      {"0x123456789012", EntryKind::kFile, "no such attributes"},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(setxattr(path.c_str(), "user.DOSATTRIB", c.value.data(), c.value.size(), 0), 0);
    EXPECT_EQ(KindOf("Page.htm"), c.kind) << c.why;
    EXPECT_EQ(KindOf("PAGE.HTM"), c.kind) << c.why;
  }
  ASSERT_EQ(setxattr(folder.c_str(), "user.DOSATTRIB", "0x2", 3, 0), 0);
  EXPECT_EQ(KindOf("Folder"), EntryKind::kDirectory) << "folders are found all the same";
}

TEST_P(FindBeneathTest, WhatMayNotBeOpenedIsThereButNotReadable) {
  const std::string file = tree_.Write("closed.htm", "x");
  const std::string folder = tree_.MakeFolder("list");
  tree_.Write("locked/x", "x");
  tree_.Write("search/x", "x");
  fs::permissions(tree_.Path(), fs::perms(0755));
  fs::permissions(file, fs::perms(0));
  fs::permissions(folder, fs::perms(0));
  fs::permissions(tree_.Path() / "locked", fs::perms(0));
  fs::permissions(tree_.Path() / "search", fs::perms(0311));
  const int status = Kit::InUnprivilegedChild([this] {
    const auto isClosed = [this](std::string_view path, EntryKind kind, std::string_view name) {
      const FoundEntry found = Find(path);
      return found.kind == kind && found.name == name && !found.readable && !found.file.IsOpen();
    };
    if (!isClosed("closed.htm", EntryKind::kFile, "closed.htm")) return 1;
    if (!isClosed("CLOSED.HTM", EntryKind::kFile, "closed.htm")) return 2;
    if (!isClosed("list", EntryKind::kDirectory, "list")) return 3;
    if (!isClosed("closed.htm/", EntryKind::kNone, "")) return 4;
    if (!isClosed("locked/x", EntryKind::kNone, "")) return 5;
    if (!isClosed("locked/X", EntryKind::kNone, "")) return 6;
    if (BytesOf("search/x") != "x") return 7;
    if (!isClosed("search/X", EntryKind::kNone, "")) return 8;  // its names may not be read
    return 0;
  });
  for (const auto* each : {"list", "locked", "search"}) fs::permissions(tree_.Path() / each, fs::perms(0700));
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "root, and no other user to be had";
  EXPECT_EQ(status, 0);
}

TEST_P(FindBeneathTest, LeavesNoDescriptorOpen) {
  tree_.Write("Docs/page.htm", "x");
  fs::create_symlink("/etc", tree_.Path() / "far");
  fs::create_symlink(tree_.Path() / "Docs", tree_.Path() / "abs");
  ASSERT_EQ(mkfifo((tree_.Path() / "fifo").c_str(), 0600), 0);
  const std::size_t before = Kit::CountDescriptors();
  for (int i = 0; i < 125; ++i) {
    for (const auto* path :
         {"Docs/page.htm", "docs/PAGE.HTM", "none", "far/passwd", "abs/page.htm", "fifo", "Docs/", "Docs/page.htm/"}) {
      Find(path);
    }
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST_P(FindBeneathTest, ARaceOfRenamesNeverLeadsOutside) {
  Kit::TemporaryTree outside;
  outside.Write("deep/f", "outside");
  tree_.Write("d/deep/f", "inside");
  tree_.Write("other/deep/f", "inside");
  fs::create_symlink("other/../d", tree_.Path() / "in");
  fs::create_symlink(outside.Path(), tree_.Path() / "swap");
  std::atomic<bool> isOver = false;
  std::thread renamer([&] {
    const std::string one = tree_.Text() + "/d", two = tree_.Text() + "/swap";
    while (!isOver) renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, two.c_str(), RENAME_EXCHANGE);
  });
  int inside = 0;
  for (int i = 0; i < 3000; ++i) {
    for (const auto* path : {"d/deep/f", "in/deep/f", "D/DEEP/F", "swap/deep/f"}) {
      const std::string bytes = BytesOf(path);
      EXPECT_NE(bytes, "outside") << path;
      if (bytes == "inside") ++inside;
    }
  }
  isOver = true;
  renamer.join();
  EXPECT_GT(inside, 0) << "the folder was never met where it belongs";
}

}  // namespace
}  // namespace TesselServer
