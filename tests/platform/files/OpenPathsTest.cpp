#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cstddef>
#include <filesystem>
#include <string>

#include "platform/files/FileSystem.h"
#include "platform/files/OpenPaths.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/SystemCallFilter.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

constexpr int kRead = O_RDONLY | O_CLOEXEC;

class OpenPathsTest : public testing::Test {
 protected:
  OpenPathsTest() : root_(open(tree_.Text().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    tree_.Write("a/b/file", "inside");
    outside_.Write("file", "outside");
    std::filesystem::create_symlink("a/b", tree_.Path() / "near");
    std::filesystem::create_symlink(outside_.Path(), tree_.Path() / "far");
    std::filesystem::create_symlink("../" + outside_.Path().filename().string(), tree_.Path() / "up");
  }

  // 0 for what was opened.
  int Try(OpenFunction function, const std::string& path) const {
    const UniqueDescriptor opened(function(root_.Get(), path, kRead));
    return opened.IsOpen() ? 0 : opened.Get();
  }

  Kit::TemporaryTree tree_, outside_;
  UniqueDescriptor root_;
};

TEST_F(OpenPathsTest, EachWayKeepsItsRuleAboutLinks) {
  struct {
    const char* path;
    int anywhere, beneath, withoutLinks;
  } const cases[] = {
      {"", 0, 0, 0},
      {"a/b/file", 0, 0, 0},
      {"a//b/./file", 0, 0, 0},
      {"a/b/none", -ENOENT, -ENOENT, -ENOENT},
      {"a/b/file/x", -ENOTDIR, -ENOTDIR, -ENOTDIR},
      {"near", 0, 0, -ELOOP},
      {"near/file", 0, 0, -ENOTDIR},
      {"far/file", 0, -EXDEV, -ENOTDIR},
      {"far", 0, -EXDEV, -ELOOP},
      {"up/file", 0, -EXDEV, -ENOTDIR},
      {"..", 0, -EXDEV, -ENOENT},
      {"a/../../etc", -ENOENT, -EXDEV, -ENOENT},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Try(&OpenAnywhere, c.path), c.anywhere) << c.path;
    EXPECT_EQ(Try(&OpenBeneath, c.path), c.beneath) << c.path;
    EXPECT_EQ(Try(&OpenWithoutLinks, c.path), c.withoutLinks) << c.path;
  }
}

TEST_F(OpenPathsTest, TheDirectWayFollowsNoLinkAnywhere) {
  const std::string root = std::filesystem::canonical(tree_.Path());
  std::filesystem::create_symlink(root, outside_.Path() / "link");
  struct {
    std::string path;
    int opened;
  } const cases[] = {
      {"", 0},
      {"a/b/file", 0},
      {"a/b/none", -ENOENT},
      {"near", -ELOOP},
      {"near/file", -ELOOP},
      {"near/none", -ELOOP},
      {"far/file", -ELOOP},
      {root + "/a/b/file", 0},
      {root + "/near/file", -ELOOP},
      {outside_.Text() + "/link/a/b/file", -ELOOP},
  };
  for (const auto& c : cases) EXPECT_EQ(Try(&OpenDirectly, c.path), c.opened) << c.path;
}

TEST_F(OpenPathsTest, AnAbsolutePathStaysBeneathTheFolderOrIsRefused) {
  EXPECT_EQ(Try(&OpenAnywhere, "/etc/passwd"), 0);
  EXPECT_EQ(Try(&OpenBeneath, "/etc/passwd"), -EXDEV);
  EXPECT_EQ(Try(&OpenWithoutLinks, "/etc/passwd"), -ENOENT);
}

TEST_F(OpenPathsTest, LeavesNoDescriptorOpen) {
  const std::size_t before = Kit::CountDescriptors();
  for (const char* path : {"a/b/file", "a/b/none", "a/b/file/x", "near/file", "far"}) {
    for (const OpenFunction function : {&OpenAnywhere, &OpenBeneath, &OpenDirectly, &OpenWithoutLinks})
      Try(function, path);
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST_F(OpenPathsTest, TellsThePathOfADescriptor) {
  const UniqueDescriptor file(OpenAnywhere(root_.Get(), "near/file", kRead));
  EXPECT_EQ(PathOfDescriptor(file.Get()), std::filesystem::canonical(tree_.Path()) / "a/b/file");
  std::filesystem::remove(tree_.Path() / "a/b/file");
  EXPECT_EQ(PathOfDescriptor(file.Get()),
            (std::filesystem::canonical(tree_.Path()) / "a/b/file").string() + " (deleted)");
  EXPECT_EQ(PathOfDescriptor(-1), "");
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const UniqueDescriptor first(ends[0]), second(ends[1]);
  EXPECT_EQ(PathOfDescriptor(first.Get()), "") << "a pipe has no path";
}

TEST_F(OpenPathsTest, WithoutOpenat2TheRootIsHeldByTheWalk) {
  constexpr int kNoFilter = 100;
  for (const int error : {ENOSYS, EPERM}) {
    const int status = Kit::InChild([this, error] {
      if (!Kit::RefuseSystemCall(SYS_openat2, error)) return kNoFilter;
      const RootFolder root(tree_.Text());
      std::string bytes;
      if (!root.Find("A\\B\\FILE").file.ReadAll(bytes, 100) || bytes != "inside") return 1;
      if (root.Find("").kind != EntryKind::kDirectory) return 2;
      if (root.Find("near/file").kind != EntryKind::kNone) return 3;
      if (root.Find("far/file").kind != EntryKind::kNone) return 4;
      if (root.Find("up/file").kind != EntryKind::kNone) return 5;
      return 0;
    });
    if (status == kNoFilter) GTEST_SKIP() << "this kernel takes no system call filter";
    EXPECT_EQ(status, 0) << error;
  }
}

}  // namespace
}  // namespace TesselServer
