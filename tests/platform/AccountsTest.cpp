#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/Accounts.h"
#include "tests/kit/Limits.h"

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

TEST(AccountsTest, ALongNameIsNobody) {
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

}  // namespace
}  // namespace TesselServer
