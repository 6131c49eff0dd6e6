#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/access/AccessObject.h"
#include "tests/kit/AccessTools.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/Limits.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

constexpr Trustee kUser42{Trustee::Kind::kUser, 42};

class AccessObjectTest : public testing::Test {
 protected:
  void SetUp() override {
    tree_ = Kit::TreeWithAccessLists();
    if (!tree_) GTEST_SKIP() << Kit::kNoAccessLists;
    file_ = tree_->Write("file.txt", "x");
    ASSERT_EQ(chmod(file_.c_str(), 0640), 0);
  }

  std::string At(std::string_view name) const { return (tree_->Path() / name).string(); }

  static AccessList ListWithUser(unsigned mode = 0640) {
    AccessList list = AccessList::FromMode(mode);
    list.Put(kUser42, AccessList::kRead | AccessList::kWrite);
    return list;
  }
  static bool HasOwnList(const std::string& path) {
    return getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) >= 0;
  }
  static unsigned ModeOf(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : ~0U;
  }

  std::unique_ptr<Kit::TemporaryTree> tree_;
  std::string file_;
  AccessList list_ = AccessList::FromMode(0);
};

TEST_F(AccessObjectTest, AFileWithoutAListHasOneMadeOfItsPermissionBits) {
  EXPECT_EQ(AccessObject(file_).Read(list_), std::errc());
  EXPECT_EQ(list_, AccessList::FromMode(0640));
}

TEST_F(AccessObjectTest, WhatIsWrittenIsReadBackAndShownByTheSystem) {
  const AccessObject object(file_);
  ASSERT_EQ(object.Write(ListWithUser()), std::errc());
  EXPECT_EQ(object.Read(list_), std::errc());
  EXPECT_EQ(list_, ListWithUser());
  EXPECT_EQ(Kit::Getfacl(file_), "user::rw- user:42:rw- group::r-- mask::rw- other::---");
  EXPECT_EQ(ModeOf(file_), 0660U);
}

TEST_F(AccessObjectTest, WhatTheSystemWroteIsRead) {
  Kit::Setfacl("u:42:r-x,g:7:-w-,g:0:---,m::r--", file_);
  EXPECT_EQ(AccessObject(file_).Read(list_), std::errc());
  const std::vector<AccessList::NamedEntry> expected = {
      {kUser42, 5}, {{Trustee::Kind::kGroup, 0}, 0}, {{Trustee::Kind::kGroup, 7}, 2}};
  EXPECT_EQ(list_.NamedEntries(), expected);
  EXPECT_EQ(list_.Mode(), 0640U);
}

TEST_F(AccessObjectTest, AListOfPermissionBitsLeavesNoAttribute) {
  const AccessObject object(file_);
  ASSERT_EQ(object.Write(ListWithUser()), std::errc());
  EXPECT_TRUE(HasOwnList(file_));
  ASSERT_EQ(object.Write(AccessList::FromMode(0604)), std::errc());
  EXPECT_FALSE(HasOwnList(file_));
  EXPECT_EQ(ModeOf(file_), 0604U);
}

TEST_F(AccessObjectTest, FoldersHaveListsOfTheirOwnAndKeepWhatTheyHandDown) {
  const std::string folder = tree_->MakeFolder("folder");
  ASSERT_EQ(chmod(folder.c_str(), 03750), 0);
  Kit::RunTool({"setfacl", "-d", "-m", "u:9:rwx", folder});
  const std::string handedDown = Kit::Getfacl(folder, "-d");
  ASSERT_EQ(AccessObject(folder).Write(ListWithUser(0750)), std::errc());
  EXPECT_EQ(Kit::Getfacl(folder), "user::rwx user:42:rw- group::r-x mask::rwx other::---");
  EXPECT_EQ(Kit::Getfacl(folder, "-d"), handedDown);
  EXPECT_EQ(ModeOf(folder), 03770U) << "the special bits stay";
}

TEST_F(AccessObjectTest, IsFoundAsOtherFilesAre) {
  fs::create_symlink("file.txt", At("link"));
  tree_->Write("Folder/x", "x");
  const std::string base = tree_->Text();
  struct {
    std::string path;
    std::errc error;
  } const cases[] = {
      {base + "/file.txt", {}},
      {base + "\\file.txt", {}},
      {base + "/FILE.txt", {}},
      {base + "/link", {}},
      {base + "/LINK", {}},
      {base + "/folder/X", {}},
      {base + "/FOLDER/", {}},
      {base + "//folder/../file.txt", {}},
      {base + "/file.txt/", std::errc::not_a_directory},
      {base + "/FILE.TXT/", std::errc::not_a_directory},
      {base + "/file.txt/x", std::errc::not_a_directory},
      {base + "/file", std::errc::no_such_file_or_directory},
      {base + "/file.txt" + std::string("\0", 1), std::errc::invalid_argument},
      {std::string("\0", 1), std::errc::invalid_argument},
      {"", std::errc::no_such_file_or_directory},
      {std::string(256, 'x'), std::errc::filename_too_long},
      {std::string(5000, '/') + "x", std::errc::filename_too_long},
      {std::string(70000, '/'), std::errc::filename_too_long},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(AccessObject(c.path).Read(list_), c.error) << c.path;
    if (c.error != std::errc()) {
      EXPECT_EQ(AccessObject(c.path).Write(ListWithUser()), c.error) << c.path;
    }
  }
  EXPECT_FALSE(HasOwnList(file_));
}

TEST_F(AccessObjectTest, TheEndOfALinkIsChangedAndNotTheLink) {
  fs::create_symlink("file.txt", At("link"));
  ASSERT_EQ(AccessObject(At("link")).Write(ListWithUser()), std::errc());
  EXPECT_EQ(Kit::Getfacl(file_), "user::rw- user:42:rw- group::r-- mask::rw- other::---");
  fs::create_symlink("loop", At("loop"));
  EXPECT_EQ(AccessObject(At("loop")).Read(list_), std::errc::too_many_symbolic_link_levels);
}

TEST_F(AccessObjectTest, WhatIsWrittenGoesToTheObjectThatWasRead) {
  const AccessObject object(file_);
  ASSERT_EQ(object.Read(list_), std::errc());
  fs::rename(file_, At("moved"));
  tree_->Write("file.txt", "another file");
  ASSERT_EQ(object.Write(ListWithUser()), std::errc());
  EXPECT_TRUE(HasOwnList(At("moved")));
  EXPECT_FALSE(HasOwnList(file_));
}

TEST_F(AccessObjectTest, WhatCannotBeOpenedHasAListAsWell) {
  ASSERT_EQ(mkfifo(At("fifo").c_str(), 0600), 0);
  EXPECT_EQ(AccessObject(At("fifo")).Write(ListWithUser()), std::errc()) << "and nobody waits for a writer";
  ASSERT_EQ(chmod(file_.c_str(), 0), 0);
  EXPECT_EQ(AccessObject(file_).Write(ListWithUser(0)), std::errc());
  EXPECT_EQ(Kit::Getfacl(file_), "user::--- user:42:rw- group::--- mask::rw- other::---");
}

TEST_F(AccessObjectTest, ManyEntriesAreKeptWholeOrNotAtAll) {
  const AccessObject object(file_);
  ASSERT_EQ(object.Write(ListWithUser()), std::errc());
  AccessList many = ListWithUser();
  for (std::uint32_t id = 1000; many.Size() <= AccessList::kMaxEntries; ++id) {
    many.Put({Trustee::Kind::kUser, id}, 4);
    if (many.Size() != 100 && many.Size() != 5000) continue;
    const std::errc error = object.Write(many);
    ASSERT_EQ(object.Read(list_), std::errc());
    if (error == std::errc()) {
      EXPECT_EQ(list_, many);
    } else {
      EXPECT_EQ(error, std::errc::no_space_on_device);
      EXPECT_EQ(list_.Size(), 100U) << "the list before stays";
    }
  }
  EXPECT_EQ(object.Write(many), std::errc::argument_list_too_long);
  ASSERT_EQ(object.Read(list_), std::errc());
  EXPECT_GE(list_.Size(), 100U);
}

TEST_F(AccessObjectTest, OnlyTheOwnerAndRootChangeAList) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody who is not the owner";
  ASSERT_EQ(chmod(tree_->Text().c_str(), 0755), 0);
  ASSERT_EQ(AccessObject(file_).Write(ListWithUser(0600)), std::errc());
  const int result = Kit::InUnprivilegedChild([this] {
    const AccessObject object(file_);
    if (object.Read(list_) != std::errc() || list_ != ListWithUser(0600)) return 1;  // to be seen by all
    return object.Write(AccessList::FromMode(0666)) == std::errc::operation_not_permitted ? 0 : 2;
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(AccessObject(file_).Read(list_), std::errc());
  EXPECT_EQ(list_, ListWithUser(0600));
}

TEST_F(AccessObjectTest, AFolderThatMayNotBeEnteredHidesItsFiles) {
  const uid_t owner = geteuid() == 0 ? 65534 : geteuid();  // who the child is
  ASSERT_EQ(chown(tree_->Text().c_str(), owner, static_cast<gid_t>(-1)), 0);
  const int result = Kit::InUnprivilegedChild([this] {
    if (chmod(tree_->Text().c_str(), 0600) != 0) return 1;
    const bool isRefused = AccessObject(file_).Read(list_) == std::errc::permission_denied;
    return chmod(tree_->Text().c_str(), 0700) == 0 && isRefused ? 0 : 2;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(AccessObjectTest, WithoutDescriptorsNothingIsFound) {
  const Kit::DescriptorFamine famine;
  EXPECT_EQ(AccessObject(file_).Read(list_), std::errc::too_many_files_open);
}

TEST(AccessObjectWithoutListsTest, IsAnErrorWhereTheFileSystemKeepsNone) {
  AccessList list = AccessList::FromMode(0123);
  EXPECT_EQ(AccessObject("/proc/self/status").Read(list), std::errc::operation_not_supported);
  EXPECT_EQ(list.Mode(), 0123U) << "unchanged";
  EXPECT_EQ(AccessObject("/proc/self/status").Write(list), std::errc::operation_not_supported);
}

TEST(AccessObjectWithoutListsTest, LeavesNoDescriptorOpen) {
  const std::size_t before = Kit::CountDescriptors();
  AccessList list = AccessList::FromMode(0);
  for (const char* path : {"/", "/proc/self/status", "/no such file"}) (void)AccessObject(path).Read(list);
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

}  // namespace
}  // namespace TesselServer
