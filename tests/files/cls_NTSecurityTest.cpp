#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "files/cls_NTSecurity.h"
#include "tests/kit/AccessTools.h"
#include "tests/kit/Child.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

constexpr std::int32_t kFile = cls_NTSecurity::kFileObject;
constexpr std::int32_t kGrant = cls_NTSecurity::kGrant;
constexpr std::int32_t kSet = cls_NTSecurity::kSet;
constexpr std::int32_t kDeny = cls_NTSecurity::kDeny;
constexpr std::int32_t kRevoke = cls_NTSecurity::kRevoke;
constexpr std::uint32_t kRead = 0x1200A9;
constexpr std::uint32_t kAddAndRead = 0x1201BF;
constexpr std::uint32_t kAdd = 0x1201B6;
constexpr std::uint32_t kChange = 0x1301BF;
constexpr std::uint32_t kAll = 0x1F01FF;
constexpr std::uint32_t kGenericAll = 0x10000000;

TEST(cls_NTSecurityNamesTest, MasksHaveTheWordsOfFileSharing) {
  struct {
    std::uint32_t mask;
    const char* word;
    const char* denyWord;
  } const cases[] = {
      {kGenericAll, "Full Control", "None"},
      {kAll, "All", "None"},
      {kAdd, "Add ", "Add "},
      {kAddAndRead, "Add & Read", "Add & Read"},
      {kChange, "Change", "Change"},
      {kRead, "Read", "Read"},
      {0, "", ""},
      {1, "", ""},
      {0x1F01FE, "", ""},
      {0x101F01FF, "", ""},
      {0x80000000, "", ""},
      {0xFFFFFFFF, "", ""},
  };
  for (const auto& c : cases) {
    for (const std::int32_t mode : {0, kGrant, kSet, kRevoke, 5, -3}) {
      EXPECT_EQ(cls_NTSecurity::PermissionName(mode, c.mask), c.word) << std::hex << c.mask << " in mode " << mode;
    }
    EXPECT_EQ(cls_NTSecurity::PermissionName(kDeny, c.mask), c.denyWord) << std::hex << c.mask;
  }
}

class cls_NTSecurityTest : public testing::Test {
 protected:
  void SetUp() override {
    tree_ = Kit::TreeWithAccessLists();
    if (!tree_) GTEST_SKIP() << Kit::kNoAccessLists;
    file_ = tree_->Write("file.txt", "content");
    ASSERT_EQ(chmod(file_.c_str(), 0640), 0);
  }

  bool Grant(std::string_view trustee, std::uint32_t mask, std::int32_t mode = kGrant) {
    return security_.GrantAccess(file_, kFile, trustee, mask, mode);
  }
  std::vector<AccessEntry> Entries() {
    std::vector<AccessEntry> entries;
    EXPECT_TRUE(security_.GetAccessEntries(file_, kFile, entries)) << security_.LastErrorText();
    return entries;
  }
  bool HasOwnList() const { return getxattr(file_.c_str(), "system.posix_acl_access", nullptr, 0) >= 0; }
  unsigned Mode() const {
    struct stat status;
    return stat(file_.c_str(), &status) == 0 ? status.st_mode & 07777 : ~0U;
  }

  // The file's list between the owner's entry and that for others, as the system shows it.
  std::string Named() const {
    const std::string text = Kit::Getfacl(file_);
    const std::string begin = "user::rw- ";
    const std::string end = " other::---";
    if (!text.starts_with(begin) || !text.ends_with(end)) return "changed owner or others: " + text;
    return text.substr(begin.size(), text.size() - begin.size() - end.size());
  }

  std::unique_ptr<Kit::TemporaryTree> tree_;
  std::string file_;
  cls_NTSecurity security_;
};

TEST_F(cls_NTSecurityTest, EveryMaskIsWrittenAsRights) {
  struct {
    std::uint32_t mask;
    const char* rights;
    const char* why;
  } const cases[] = {
      {kRead, "r-x", "read"},
      {kAddAndRead, "rw-", "add and read"},
      {kAdd, "-w-", "add"},
      {kChange, "rwx", "change"},
      {kAll, "rwx", "all"},
      {kGenericAll, "rwx", "generic all"},
      {0x80000000, "r--", "generic read"},
      {0x40000000, "-w-", "generic write"},
      {0x20000000, "--x", "generic execute"},
      {0xC0000000, "rw-", "generic read and write"},
      {0xA0000000, "r-x", "generic read and execute"},
      {0x1, "r--", "read bytes"},
      {0x2, "-w-", "write bytes"},
      {0x4, "-w-", "append bytes"},
      {0x20, "--x", "run"},
      {0x27, "rwx", "all four bits"},
      {0x1200A8, "--x", "read without its first bit"},
      {0x120089, "r--", "read without running"},
      {0x1201BE, "-wx", "add and read without reading, by its bits"},
      {0xFFFFFFFF, "rwx", "every bit"},
      {0, "---", "nothing"},
      {0x1F01D8, "---", "only what lists do not know"},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE(Grant("4242", c.mask, kSet)) << c.why;
    EXPECT_NE(Named().find(std::string("user:4242:") + c.rights + ' '), std::string::npos) << c.why << ": " << Named();
  }
}

TEST_F(cls_NTSecurityTest, GrantAddsSetReplacesDenyEmptiesRevokeRemoves) {
  struct {
    std::uint32_t mask;
    std::int32_t mode;
    const char* list;
  } const steps[] = {
      {0x1, kGrant, "user:42:r-- group::r-- mask::r--"},
      {0x2, kGrant, "user:42:rw- group::r-- mask::rw-"},
      {0x2, kGrant, "user:42:rw- group::r-- mask::rw-"},
      {0x20, kSet, "user:42:--x group::r-- mask::r-x"},
      {kChange, kDeny, "user:42:--- group::r-- mask::r--"},
      {kRead, kGrant, "user:42:r-x group::r-- mask::r-x"},
      {0, kDeny, "user:42:--- group::r-- mask::r--"},
      {kAdd, kSet, "user:42:-w- group::r-- mask::rw-"},
      {kRead, kRevoke, "group::r--"},
      {kRead, kRevoke, "group::r--"},
  };
  for (const auto& step : steps) {
    EXPECT_TRUE(Grant("42", step.mask, step.mode)) << security_.LastErrorText();
    EXPECT_EQ(Named(), step.list) << "mode " << step.mode;
  }
  EXPECT_EQ(security_.LastErrorCode(), 0);
}

TEST_F(cls_NTSecurityTest, WithItsLastNameAListIsPermissionBitsAgain) {
  ASSERT_EQ(chmod(file_.c_str(), 04751), 0);
  ASSERT_TRUE(Grant("daemon", kAll));
  ASSERT_TRUE(Grant("@42", kAdd));
  EXPECT_EQ(Mode(), 04771U) << "the bits of the group show the mask";
  ASSERT_TRUE(Grant("daemon", 0, kRevoke));
  EXPECT_TRUE(HasOwnList());
  ASSERT_TRUE(Grant("@42", 0, kRevoke));
  EXPECT_FALSE(HasOwnList());
  EXPECT_EQ(Mode(), 04751U);
}

TEST_F(cls_NTSecurityTest, AnEntryThatIsNotThereIsRevokedWithoutAWrite) {
  Kit::Setfacl("u:42:rwx,m::r--", file_);
  ASSERT_TRUE(Grant("43", 0, kRevoke));
  EXPECT_EQ(Named(), "user:42:rwx group::r-- mask::r--") << "the narrower mask stays";
}

TEST_F(cls_NTSecurityTest, TheMaskIsMadeAnew) {
  Kit::Setfacl("u:42:rwx,m::---", file_);
  ASSERT_TRUE(Grant("@7", 0x1));
  EXPECT_EQ(Named(), "user:42:rwx group::r-- group:7:r-- mask::rwx");
  ASSERT_TRUE(Grant("42", 0, kRevoke));
  EXPECT_EQ(Named(), "group::r-- group:7:r-- mask::r--");
}

TEST_F(cls_NTSecurityTest, ATrusteeIsANumberAUserOrAGroup) {
  struct {
    std::string_view trustee;
    const char* list;
    const char* why;
  } const cases[] = {
      {"daemon", "user:1:r-- group::r-- mask::r--", "a user before the group of that name"},
      {"@daemon", "group::r-- group:1:r-- mask::r--", "the group of that name"},
      {"nogroup", "group::r-- group:65534:r-- mask::r--", "a group whose name no user has"},
      {"@nogroup", "group::r-- group:65534:r-- mask::r--", "marked all the same"},
      {"nobody", "user:65534:r-- group::r-- mask::r--", "a user whose name no group has"},
      {"root", "user:0:r-- group::r-- mask::r--", "number 0"},
      {"0", "user:0:r-- group::r-- mask::r--", "a number"},
      {"@0", "group::r-- group:0:r-- mask::r--", "a group's number"},
      {"3999999999", "user:3999999999:r-- group::r-- mask::r--", "nobody's number"},
      {"@4294967294", "group::r-- group:4294967294:r-- mask::r--", "the highest"},
      {"007", "user:7:r-- group::r-- mask::r--", "digits are digits"},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE(Grant(c.trustee, 0x1)) << c.why << ": " << security_.LastErrorText();
    EXPECT_EQ(Named(), c.list) << c.why;
    EXPECT_TRUE(Grant(c.trustee, 0, kRevoke)) << c.why;
    EXPECT_FALSE(HasOwnList()) << c.why;
  }
}

TEST_F(cls_NTSecurityTest, AnUnknownTrusteeIsRefused) {
  const std::string_view cases[] = {"",
                                    "@",
                                    "@@daemon",
                                    "no-such-user",
                                    "@no-such-group",
                                    "@nobody",
                                    " daemon",
                                    "daemon ",
                                    "DAEMON",
                                    "-1",
                                    "+1",
                                    "1.0",
                                    "4294967295",
                                    "4294967296",
                                    "@4294967295",
                                    "99999999999999999999999",
                                    "0x1",
                                    "u:daemon",
                                    "daemon:x",
                                    std::string_view("daemon\0", 7),
                                    std::string_view("dae\0mon", 7),
                                    std::string_view("1\0", 2),
                                    std::string_view("\0", 1),
                                    "daemon\n",
                                    "\x80"};
  for (const auto trustee : cases) {
    EXPECT_FALSE(Grant(trustee, kRead)) << trustee;
    EXPECT_EQ(security_.LastErrorCode(), EINVAL) << trustee;
    EXPECT_EQ(security_.LastErrorText(), "Invalid argument") << trustee;
    EXPECT_FALSE(Grant(trustee, 0, kRevoke)) << trustee;
    EXPECT_FALSE(HasOwnList()) << trustee;
  }
  EXPECT_FALSE(Grant(std::string(1'000'000, 'x'), kRead));
  EXPECT_FALSE(HasOwnList());
}

TEST_F(cls_NTSecurityTest, AnEmptyNameIsRefusedAtOnce) {
  EXPECT_FALSE(security_.GrantAccess("", kFile, "daemon", kRead, kGrant));
  EXPECT_FALSE(security_.GrantAccess("", 77, "", 0, 77));
  EXPECT_EQ(security_.LastErrorCode(), 0) << "no call was made that could fail";
  EXPECT_EQ(security_.LastErrorText(), "");
}

TEST_F(cls_NTSecurityTest, OnlyFilesAndTheFourModesAreKnown) {
  for (const std::int32_t type : {0, 2, 3, 13, -1}) {
    EXPECT_FALSE(security_.GrantAccess(file_, type, "daemon", kRead, kGrant)) << type;
    EXPECT_EQ(security_.LastErrorCode(), EINVAL) << type;
    std::vector<AccessEntry> entries(1);
    EXPECT_FALSE(security_.GetAccessEntries(file_, type, entries)) << type;
    EXPECT_TRUE(entries.empty()) << type;
  }
  for (const std::int32_t mode : {0, 5, -1, 65537}) EXPECT_FALSE(Grant("daemon", kRead, mode)) << mode;
  EXPECT_FALSE(HasOwnList());
}

TEST_F(cls_NTSecurityTest, AGrantThatGivesNothingIsRefused) {
  ASSERT_TRUE(Grant("42", kRead));
  for (const std::uint32_t mask : {0U, 0x120000U, 0xF0198U, 0x100000U}) {
    EXPECT_FALSE(Grant("42", mask)) << mask;
    EXPECT_EQ(security_.LastErrorCode(), EINVAL) << mask;
    EXPECT_FALSE(Grant("43", mask)) << mask;
  }
  EXPECT_EQ(Named(), "user:42:r-x group::r-- mask::r-x");
}

TEST_F(cls_NTSecurityTest, ReadsWhatTheSystemWrote) {
  EXPECT_TRUE(Entries().empty()) << "permission bits are no entries";
  Kit::Setfacl(
      "u:daemon:rwx,u:root:---,u:3999999999:r--,u:nobody:-w-,g:daemon:r-x,g:nogroup:rw-,g:3999999999:--x,g:root:-wx,"
      "m::r--",
      file_);
  const std::vector<AccessEntry> expected = {
      {kAll, kDeny, 0, "root"},
      {kChange, kGrant, 0, "daemon"},
      {kAdd, kGrant, 0, "nobody"},
      {0x120089, kGrant, 0, "3999999999"},
      {0x1301B6, kGrant, 0, "@root"},
      {kRead, kGrant, 0, "@daemon"},
      {kAddAndRead, kGrant, 0, "nogroup"},
      {0x1200A0, kGrant, 0, "@3999999999"},
  };
  EXPECT_EQ(Entries(), expected);
}

TEST_F(cls_NTSecurityTest, WhatIsReadCanBeWrittenAgain) {
  Kit::Setfacl(
      "u:1:---,u:2:--x,u:3:-w-,u:4:-wx,u:5:r--,u:6:r-x,u:7:rw-,u:8:rwx,"
      "g:1:---,g:2:--x,g:3:-w-,g:4:-wx,g:5:r--,g:6:r-x,g:7:rw-,g:8:rwx",
      file_);
  const std::string list = Named();
  const auto entries = Entries();
  ASSERT_EQ(entries.size(), 16U);
  for (const AccessEntry& entry : entries) EXPECT_TRUE(Grant(entry.trusteeName, 0, kRevoke)) << entry.trusteeName;
  EXPECT_FALSE(HasOwnList());
  for (const AccessEntry& entry : entries) {
    EXPECT_TRUE(Grant(entry.trusteeName, entry.permissions, entry.mode)) << entry.trusteeName;
  }
  EXPECT_EQ(Named(), list);
  EXPECT_EQ(Entries(), entries);
}

TEST_F(cls_NTSecurityTest, FoldersAreObjectsAsWell) {
  const std::string folder = tree_->MakeFolder("folder");
  ASSERT_EQ(chmod(folder.c_str(), 0750), 0);
  Kit::RunTool({"setfacl", "-d", "-m", "u:9:rwx", folder});
  const std::string handedDown = Kit::Getfacl(folder, "-d");
  ASSERT_TRUE(security_.GrantAccess(folder, kFile, "daemon", kAddAndRead, kGrant));
  ASSERT_TRUE(security_.GrantAccess(folder, kFile, "daemon", 0x20, kGrant));
  EXPECT_EQ(Kit::Getfacl(folder), "user::rwx user:1:rwx group::r-x mask::rwx other::---");
  ASSERT_TRUE(security_.GrantAccess(folder + "/", kFile, "daemon", 0, kRevoke));
  EXPECT_EQ(Kit::Getfacl(folder), "user::rwx group::r-x other::---");
  EXPECT_EQ(Kit::Getfacl(folder, "-d"), handedDown) << "what it hands down is left alone";
  std::vector<AccessEntry> entries;
  EXPECT_TRUE(security_.GetAccessEntries(folder, kFile, entries));
  EXPECT_TRUE(entries.empty());
}

TEST_F(cls_NTSecurityTest, ObjectsAreFoundAsOtherFilesAre) {
  fs::create_symlink("file.txt", tree_->Path() / "link");
  std::uint32_t user = 100;
  for (const char* name : {"\\FILE.TXT", "/link", "/./file.txt"}) {
    EXPECT_TRUE(security_.GrantAccess(tree_->Text() + name, kFile, std::to_string(user++), 0x1, kGrant)) << name;
  }
  EXPECT_EQ(Named(), "user:100:r-- user:101:r-- user:102:r-- group::r-- mask::r--");
}

TEST_F(cls_NTSecurityTest, ErrorsAreKeptWithTheirTexts) {
  struct {
    std::string name;
    std::int32_t code;
    const char* text;
  } const cases[] = {
      {file_ + ".gone", ENOENT, "No such file or directory"},
      {file_ + "/x", ENOTDIR, "Not a directory"},
      {file_ + '\0', EINVAL, "Invalid argument"},
      {tree_->Text() + "/" + std::string(256, 'x'), ENAMETOOLONG, "File name too long"},
      {"/proc/self/status", EOPNOTSUPP, "Operation not supported"},
  };
  for (const auto& c : cases) {
    cls_NTSecurity security;
    EXPECT_FALSE(security.GrantAccess(c.name, kFile, "daemon", kRead, kGrant)) << c.name;
    EXPECT_EQ(security.LastErrorCode(), c.code) << c.name;
    EXPECT_EQ(security.LastErrorText(), c.text) << c.name;
    cls_NTSecurity reader;
    std::vector<AccessEntry> entries(3);
    EXPECT_FALSE(reader.GetAccessEntries(c.name, kFile, entries)) << c.name;
    EXPECT_TRUE(entries.empty()) << c.name;
    EXPECT_EQ(reader.LastErrorCode(), c.code) << c.name;
    EXPECT_EQ(reader.LastErrorText(), c.text) << c.name;
  }
}

TEST_F(cls_NTSecurityTest, ASuccessLeavesTheLastError) {
  EXPECT_FALSE(Grant("no-such-user", kRead));
  EXPECT_TRUE(Grant("daemon", kRead));
  EXPECT_EQ(Entries().size(), 1U);
  EXPECT_EQ(security_.LastErrorCode(), EINVAL);
  EXPECT_EQ(security_.LastErrorText(), "Invalid argument");
}

TEST_F(cls_NTSecurityTest, OnlyTheOwnerAndRootChangeAList) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody who is not the owner";
  ASSERT_EQ(chmod(tree_->Text().c_str(), 0755), 0);
  ASSERT_TRUE(Grant("daemon", kRead));
  const std::string list = Named();
  const int result = Kit::InUnprivilegedChild([this] {
    std::vector<AccessEntry> entries;
    if (!security_.GetAccessEntries(file_, kFile, entries) || entries.size() != 1) return 1;
    for (const std::int32_t mode : {kGrant, kSet, kDeny, kRevoke}) {
      if (Grant("daemon", kChange, mode) || security_.LastErrorCode() != EPERM) return 2;
      if (security_.LastErrorText() != "Operation not permitted") return 3;
    }
    return Grant("nobody", 0, kRevoke) ? 0 : 4;  // there is none, so nothing is written
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Named(), list);
}

TEST_F(cls_NTSecurityTest, TheSystemObeysWhatIsWritten) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody who is not the owner";
  ASSERT_EQ(chmod(tree_->Text().c_str(), 0755), 0);
  ASSERT_EQ(chmod(file_.c_str(), 0644), 0);
  const auto opens = [this](int how) {
    return Kit::InUnprivilegedChild([this, how] { return open(file_.c_str(), how | O_CLOEXEC) >= 0 ? 1 : 0; });
  };
  EXPECT_EQ(opens(O_RDONLY), 1) << "others may read";
  ASSERT_TRUE(Grant("nobody", 0, kDeny));
  EXPECT_EQ(opens(O_RDONLY), 0) << "but nobody may not";
  ASSERT_TRUE(Grant("nobody", kAdd, kSet));
  EXPECT_EQ(opens(O_RDONLY), 0);
  EXPECT_EQ(opens(O_WRONLY), 1);
  ASSERT_TRUE(Grant("nobody", kRead, kGrant));
  EXPECT_EQ(opens(O_RDWR), 1);
  ASSERT_TRUE(Grant("nobody", 0, kRevoke));
  EXPECT_EQ(opens(O_RDONLY), 1);
  EXPECT_EQ(opens(O_WRONLY), 0);
  EXPECT_EQ(Mode(), 0644U);
}

}  // namespace
}  // namespace TesselServer
