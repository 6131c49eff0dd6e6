#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/access/AccessList.h"

namespace TesselServer {
namespace {

constexpr Trustee User(std::uint32_t id) { return {Trustee::Kind::kUser, id}; }
constexpr Trustee Group(std::uint32_t id) { return {Trustee::Kind::kGroup, id}; }

std::string Number(std::uint32_t number, std::size_t size) {
  std::string bytes;
  for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>(number >> (8 * i));
  return bytes;
}

// One entry as the kernel writes it.
std::string Entry(std::uint32_t tag, std::uint32_t rights, std::uint32_t id = 0xFFFFFFFF) {
  return Number(tag, 2) + Number(rights, 2) + Number(id, 4);
}

const std::string kVersion = Number(2, 4);
const std::string kOwner = Entry(0x01, 6);
const std::string kUser7 = Entry(0x02, 7, 7);
const std::string kOwningGroup = Entry(0x04, 4);
const std::string kGroup7 = Entry(0x08, 1, 7);
const std::string kMask = Entry(0x10, 5);
const std::string kOthers = Entry(0x20, 0);

TEST(AccessListTest, PermissionBitsAreAListOfThreeEntries) {
  for (unsigned mode = 0; mode <= 0777; ++mode) {
    const AccessList list = AccessList::FromMode(mode);
    ASSERT_EQ(list.Mode(), mode);
    ASSERT_EQ(list.Bytes(), kVersion + Entry(0x01, mode >> 6) + Entry(0x04, (mode >> 3) & 7) + Entry(0x20, mode & 7));
    ASSERT_EQ(list.Size(), 3U);
  }
  EXPECT_EQ(AccessList::FromMode(0107640).Mode(), 0640U) << "a file's type and special bits are no rights";
}

TEST(AccessListTest, ReadsWhatTheKernelWrites) {
  const auto list = AccessList::FromBytes(kVersion + kOwner + Entry(0x02, 0, 0) + Entry(0x02, 6, 4294967294) +
                                          kOwningGroup + kGroup7 + kMask + kOthers);
  ASSERT_TRUE(list);
  EXPECT_EQ(list->Mode(), 0650U) << "the mask shows in the place of the owning group";
  EXPECT_EQ(list->Size(), 7U);
  const std::vector<AccessList::NamedEntry> expected = {{User(0), 0}, {User(4294967294), 6}, {Group(7), 1}};
  EXPECT_EQ(list->NamedEntries(), expected);
  EXPECT_EQ(list->RightsOf(User(0)), 0U);
  EXPECT_EQ(list->RightsOf(Group(7)), 1U);
  EXPECT_EQ(list->RightsOf(User(7)), std::nullopt) << "a group's number is not a user's";
}

TEST(AccessListTest, WritesEntriesInTheOrderOfTheKernel) {
  AccessList list = AccessList::FromMode(0640);
  list.Put(Group(9), 1);
  list.Put(User(300), 2);
  list.Put(Group(7), 0);
  list.Put(User(7), 4);
  EXPECT_EQ(list.Bytes(), kVersion + kOwner + Entry(0x02, 4, 7) + Entry(0x02, 2, 300) + kOwningGroup +
                              Entry(0x08, 0, 7) + Entry(0x08, 1, 9) + Entry(0x10, 7) + kOthers);
  EXPECT_EQ(AccessList::FromBytes(list.Bytes()), list);
}

TEST(AccessListTest, NamesInAnyOrderAreRead) {
  const auto list =
      AccessList::FromBytes(kVersion + kOwner + Entry(0x02, 1, 9) + kUser7 + kOwningGroup + kMask + kOthers);
  ASSERT_TRUE(list);
  const std::vector<AccessList::NamedEntry> expected = {{User(7), 7}, {User(9), 1}};
  EXPECT_EQ(list->NamedEntries(), expected);
}

TEST(AccessListTest, AMaskWithoutNamesIsRead) {
  const auto list = AccessList::FromBytes(kVersion + kOwner + kOwningGroup + Entry(0x10, 1) + kOthers);
  ASSERT_TRUE(list);
  EXPECT_EQ(list->Mode(), 0610U);
  EXPECT_EQ(list->Size(), 4U);
}

TEST(AccessListTest, RefusesWhatIsNoList) {
  const std::string named = kVersion + kOwner + kUser7 + kOwningGroup + kMask + kOthers;
  ASSERT_TRUE(AccessList::FromBytes(named));
  struct {
    std::string bytes;
    const char* why;
  } const cases[] = {
      {"", "nothing"},
      {kVersion, "no entries"},
      {kVersion.substr(1), "not even a version"},
      {Number(1, 4) + named.substr(4), "an older version"},
      {Number(0x02000000, 4) + named.substr(4), "the version the wrong way round"},
      {named + "x", "something behind it"},
      {named.substr(0, named.size() - 1), "cut short"},
      {named.substr(0, named.size() - 8), "none for others"},
      {kVersion + kUser7 + kOwningGroup + kMask + kOthers, "none for the owner"},
      {kVersion + kOwner + kUser7 + kMask + kOthers, "none for the owning group"},
      {kVersion + kOwner + kUser7 + kOwningGroup + kOthers, "a name and no mask"},
      {kVersion + kOwner + kOwningGroup + kGroup7 + kOthers, "a group's name and no mask"},
      {kVersion + kOwner + kOwner + kOwningGroup + kOthers, "two owners"},
      {kVersion + kOwner + kOwningGroup + kOwningGroup + kOthers, "two owning groups"},
      {kVersion + kOwner + kOwningGroup + kMask + kMask + kOthers, "two masks"},
      {kVersion + kOwner + kOwningGroup + kOthers + kOthers, "others twice"},
      {kVersion + kOwner + kUser7 + kUser7 + kOwningGroup + kMask + kOthers, "a user twice"},
      {kVersion + kOwner + kUser7 + Entry(0x02, 1, 1) + kUser7 + kOwningGroup + kMask + kOthers, "twice, apart"},
      {kVersion + kOwner + kOwningGroup + kGroup7 + kGroup7 + kMask + kOthers, "a group twice"},
      {kVersion + kOwner + kOwningGroup + kUser7 + kMask + kOthers, "a user behind the owning group"},
      {kVersion + kOthers + kOwningGroup + kOwner, "backwards"},
      {kVersion + Entry(0x01, 8) + kOwningGroup + kOthers, "a right that there is not"},
      {kVersion + Entry(0x01, 0x106) + kOwningGroup + kOthers, "one in the upper byte"},
      {kVersion + kOwner + kOwningGroup + kOthers + Entry(0x40, 0), "a tag that there is not"},
      {kVersion + Entry(0, 0) + kOwner + kOwningGroup + kOthers, "no tag"},
      {kVersion + kOwner + Entry(0x03, 0, 7) + kOwningGroup + kMask + kOthers, "two tags in one"},
      {kVersion + kOwner + Entry(0x02, 0) + kOwningGroup + kMask + kOthers, "a user without a number"},
      {kVersion + kOwner + kOwningGroup + Entry(0x08, 0) + kMask + kOthers, "a group without a number"},
  };
  for (const auto& c : cases) EXPECT_EQ(AccessList::FromBytes(c.bytes), std::nullopt) << c.why;
}

TEST(AccessListTest, EveryCutAndEveryChangedBitIsReadOrRefused) {
  const std::string named = kVersion + kOwner + kUser7 + kOwningGroup + kGroup7 + kMask + kOthers;
  for (std::size_t length = 0; length < named.size(); ++length) {
    EXPECT_FALSE(AccessList::FromBytes(std::string_view(named).substr(0, length))) << length;
  }
  int read = 0;
  for (std::size_t bit = 0; bit < 8 * named.size(); ++bit) {
    std::string changed = named;
    changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << bit % 8));
    const auto list = AccessList::FromBytes(changed);
    if (!list) continue;
    ++read;
    EXPECT_EQ(AccessList::FromBytes(list->Bytes()), list) << bit;
  }
  // Three bits of rights in each of six entries, the numbers of two names and those of four entries that need none.
  EXPECT_EQ(read, 6 * 3 + 6 * 32);
}

TEST(AccessListTest, TheMaskIsWhatTheGroupAndAllNamesHoldTogether) {
  AccessList list = AccessList::FromMode(0740);
  list.Put(User(1), 0);
  EXPECT_EQ(list.Mode(), 0740U) << "the owner is not counted";
  list.Put(User(1), 2);
  EXPECT_EQ(list.Mode(), 0760U);
  list.Put(Group(1), 1);
  EXPECT_EQ(list.Mode(), 0770U);
  list.Put(User(1), 0);
  EXPECT_EQ(list.Mode(), 0750U);
}

TEST(AccessListTest, AChangeMakesANarrowerMaskAnew) {
  auto list = AccessList::FromBytes(kVersion + kOwner + kUser7 + kOwningGroup + Entry(0x10, 0) + kOthers);
  ASSERT_TRUE(list);
  EXPECT_EQ(list->Mode(), 0600U);
  list->Put(User(8), 0);
  EXPECT_EQ(list->Mode(), 0670U);
}

TEST(AccessListTest, WithItsLastNameAListIsPermissionBitsAgain) {
  for (const unsigned mode : {0U, 0640U, 0604U, 0777U}) {
    AccessList list = AccessList::FromMode(mode);
    list.Put(User(1), 7);
    list.Put(Group(1), 7);
    EXPECT_TRUE(list.Remove(User(1)));
    EXPECT_EQ(list.Size(), 5U);
    EXPECT_TRUE(list.Remove(Group(1)));
    EXPECT_EQ(list, AccessList::FromMode(mode)) << mode;
  }
}

TEST(AccessListTest, WhoHasNoEntryLosesNone) {
  auto list = AccessList::FromBytes(kVersion + kOwner + kUser7 + kOwningGroup + Entry(0x10, 0) + kOthers);
  ASSERT_TRUE(list);
  const AccessList before = *list;
  EXPECT_FALSE(list->Remove(User(6)));
  EXPECT_FALSE(list->Remove(Group(7)));
  EXPECT_EQ(*list, before) << "the mask included";
}

TEST(AccessListTest, OnlyRightsThatThereAreAreKept) {
  AccessList list = AccessList::FromMode(0);
  for (const unsigned rights : {0xFFFFFFFEU, 0xFFFFFFFDU}) {
    list.Put(User(1), rights);
    EXPECT_EQ(list.RightsOf(User(1)), rights & 7);
    EXPECT_TRUE(AccessList::FromBytes(list.Bytes()));
  }
}

TEST(AccessListTest, ReadsAsManyEntriesAsFitAndNoMore) {
  AccessList list = AccessList::FromMode(0640);
  std::uint32_t id = 0;
  while (list.Size() < AccessList::kMaxEntries) list.Put(User(id++), 4);
  EXPECT_LE(list.Bytes().size(), AccessList::kMaxBytes);
  EXPECT_EQ(AccessList::FromBytes(list.Bytes()), list);
  list.Put(User(id), 4);
  EXPECT_GT(list.Bytes().size(), AccessList::kMaxBytes);
  EXPECT_EQ(AccessList::FromBytes(list.Bytes()), std::nullopt);
}

}  // namespace
}  // namespace TesselServer
