#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/access/Accounts.h"
#include "tests/kit/Child.h"
#include "tests/kit/Limits.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

constexpr auto kUser = Trustee::Kind::kUser;
constexpr auto kGroup = Trustee::Kind::kGroup;

TEST(AccountsTest, FindsUsersAndGroupsByName) {
  struct {
    Trustee::Kind kind;
    const char* name;
    std::optional<std::uint32_t> id;
  } const cases[] = {
      {kUser, "root", 0},          {kUser, "daemon", 1},       {kUser, "nobody", 65534},
      {kGroup, "root", 0},         {kGroup, "daemon", 1},      {kGroup, "nogroup", 65534},
      {kUser, "nogroup", {}},      {kGroup, "nobody", {}},     {kUser, "", {}},
      {kUser, "ROOT", {}},         {kUser, "root ", {}},       {kUser, "root:x:0", {}},
      {kUser, "no-such-user", {}}, {kGroup, "no such \n", {}}, {kUser, "\x80\xFF", {}},
  };
  Accounts accounts;
  for (const auto& c : cases) {
    std::optional<std::uint32_t> id = 12345;
    EXPECT_EQ(accounts.Find(c.kind, c.name, id), std::errc()) << c.name;
    EXPECT_EQ(id, c.id) << c.name;
  }
}

TEST(AccountsTest, NamesUsersAndGroups) {
  Accounts accounts;
  EXPECT_STREQ(accounts.Name({kUser, 0}), "root");
  EXPECT_STREQ(accounts.Name({kUser, 65534}), "nobody");
  EXPECT_STREQ(accounts.Name({kGroup, 65534}), "nogroup");
  EXPECT_EQ(accounts.Name({kUser, 3'999'999'999}), nullptr);
  EXPECT_EQ(accounts.Name({kGroup, 3'999'999'999}), nullptr);
  EXPECT_EQ(accounts.Name({kUser, Trustee::kNobodyAtAll}), nullptr);
}

TEST(AccountsTest, ALongNameIsNoAccount) {
  Accounts accounts;
  std::optional<std::uint32_t> id = 1;
  (void)accounts.Find(kUser, std::string(100'000, 'x'), id);
  EXPECT_EQ(id, std::nullopt);
}

TEST(AccountsTest, WhoCannotBeLookedUpIsNotTakenForMissing) {
  Accounts accounts;
  std::optional<std::uint32_t> id;
  // The first look-ups load what the system's library needs to ask each of its databases.
  for (const auto kind : {kUser, kGroup}) ASSERT_EQ(accounts.Find(kind, "no-such-name", id), std::errc());
  {
    const Kit::DescriptorFamine famine;
    EXPECT_EQ(accounts.Find(kUser, "daemon", id), std::errc::too_many_files_open);
    EXPECT_EQ(id, std::nullopt);
    EXPECT_EQ(accounts.Find(kGroup, "daemon", id), std::errc::too_many_files_open);
    EXPECT_EQ(accounts.Name({kUser, 1}), nullptr);
  }
  EXPECT_STREQ(accounts.Name({kUser, 1}), "daemon");
}

// Puts `groups` in the place of the machine's own for this process and those that it starts.
bool HasOwnGroups(const std::string& groups) {
  return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount(groups.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) == 0;
}

TEST(AccountsTest, GroupsOfManyMembersAreReadUpToTheLimit) {
  constexpr int kCannotMount = 100;
  std::string members = "somebody";
  while (members.size() < 100'000) members += ",somebody";
  const Kit::TemporaryTree tree;
  const std::string large = tree.Write("large", "crowd:x:4000:" + members + "\n");
  while (members.size() < Accounts::kMaxRecordBytes) members += "," + members;
  const std::string huge = tree.Write("huge", "crowd:x:4000:" + members + "\n");
  const int result = Kit::InChild([&] {
    Accounts accounts;
    std::optional<std::uint32_t> id;
    if (!HasOwnGroups(large)) return kCannotMount;
    if (accounts.Find(kGroup, "crowd", id) != std::errc() || id != 4000) return 1;
    if (accounts.Name({kGroup, 4000}) != std::string_view("crowd")) return 2;
    if (!HasOwnGroups(huge)) return kCannotMount;
    if (accounts.Find(kGroup, "crowd", id) != std::errc::result_out_of_range || id) return 3;
    return accounts.Name({kGroup, 4000}) == nullptr ? 0 : 4;
  });
  if (result == kCannotMount) GTEST_SKIP() << "no right to put another file in the place of /etc/group";
  EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace TesselServer
