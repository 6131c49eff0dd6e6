// What the host is offered and told, value by value; TrapTest has the whole road.

#include <gtest/gtest.h>

#include <string>

#include "control/answer/Trapping.h"

namespace TesselServer {
namespace {

Slot SlotFor(const std::string& requestPath, EntryKind kind, const std::string& found, bool inCGIDirectory = false) {
  Slot slot(std::make_unique<Reception>());
  slot.Fields().RequestPath = requestPath;
  slot.Target.kind = kind;
  slot.Target.name = found;
  slot.TargetIsInCGIDirectory = inCGIDirectory;
  return slot;
}

TEST(TrappingTest, ThePathIsWhatWasFoundBelowTheRootElseWhatWasAskedFor) {
  constexpr EntryKind kNone = EntryKind::kNone, kFile = EntryKind::kFile, kFolder = EntryKind::kDirectory;
  const struct {
    std::string asked;
    EntryKind kind;
    std::string found;
    bool inCGIDirectory;
    std::string told;
  } cases[] = {
      {"DOCS/A%20B.TRP", kFile, "docs/a b.trp", false, "docs/a b.trp"},
      {"docs", kFile, "docs/index.html", false, "docs/index.html"},
      {"docs/", kFolder, "docs", false, "docs"},
      {"/", kFolder, "", false, ""},
      {"none/a%20b.trp", kNone, "", false, "none/a b.trp"},
      {"none\\a%41.trp", kNone, "", false, "none/a%41.trp"},
      {"/none.trp", kNone, "", false, "none.trp"},
      {"/", kNone, "", false, ""},
      {"//etc/none", kNone, "", false, "etc/none"},
      {"\\etc\\none", kNone, "", false, "etc/none"},
      {"//", kNone, "", false, ""},
      {std::string("none\0.trp", 9), kNone, "", false, ""},
      {"none\x01.trp", kNone, "", false, ""},
      {"../a.trp", kNone, "", false, ""},
      {"x/..\\a.trp", kNone, "", false, ""},
      {"x/..", kNone, "", false, ""},
      {"%2e%2e/%2E./a.trp", kNone, "", false, "%2e%2e/%2E./a.trp"},
      {"..a/b..", kNone, "", false, "..a/b.."},
      {"cgi/Tool.exe", kFile, "tool.exe", true, "cgi/Tool.exe"},
      {"../tool.exe", kFile, "tool.exe", true, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(PathForHost(SlotFor(c.asked, c.kind, c.found, c.inCGIDirectory)), c.told) << c.asked;
  }
}

TEST(TrappingTest, TheExtensionIsThatOfWhatWasFoundWhereverThatLies) {
  Settings settings;
  settings.TrapFileEnable = true;
  settings.TrapFileTypes = "exe,html";
  EXPECT_TRUE(IsTrapped(SlotFor("a.exe", EntryKind::kFile, "a.exe"), settings));
  EXPECT_TRUE(IsTrapped(SlotFor("a.exe", EntryKind::kNone, ""), settings));
  EXPECT_TRUE(IsTrapped(SlotFor("docs", EntryKind::kFile, "docs/index.html"), settings));
  EXPECT_TRUE(IsTrapped(SlotFor("a%2Eexe", EntryKind::kFile, "a.exe"), settings));
  EXPECT_TRUE(IsTrapped(SlotFor("../tool.exe", EntryKind::kFile, "tool.exe", true), settings));
  EXPECT_FALSE(IsTrapped(SlotFor("../none.exe", EntryKind::kNone, ""), settings)) << "it is told as nothing";
  EXPECT_FALSE(IsTrapped(SlotFor("a.txt", EntryKind::kFile, "a.txt"), settings));
  EXPECT_FALSE(IsTrapped(SlotFor("a.exe", EntryKind::kDirectory, "a.exe"), settings)) << "a folder has none";
  EXPECT_FALSE(IsTrapped(SlotFor("", EntryKind::kNone, ""), settings)) << "a request for nothing";
  settings.TrapFileTypes = " ";
  EXPECT_TRUE(IsTrapped(SlotFor("a.txt", EntryKind::kFile, "a.txt"), settings)) << "every type";
  EXPECT_TRUE(IsTrapped(SlotFor("../none.exe", EntryKind::kNone, ""), settings));
  EXPECT_FALSE(IsTrapped(SlotFor("", EntryKind::kNone, ""), settings)) << "a request for nothing";
  settings.TrapFileEnable = false;
  EXPECT_FALSE(IsTrapped(SlotFor("a.txt", EntryKind::kFile, "a.txt"), settings));
}

TEST(TrappingTest, CredentialsAreOneTextOrNone) {
  const struct {
    const char *user, *password, *told;
  } cases[] = {
      {"user", "pw", "user:pw"}, {"user", "", "user:"}, {"", "pw", ":pw"}, {"", "", ""}, {" ", " ", ""},
      {"", "a:b", ":a:b"},
  };
  for (const auto& c : cases) {
    RequestFields request;
    request.AuthUser = c.user;
    request.AuthPassword = c.password;
    EXPECT_EQ(UserAuthentication(request), c.told);
  }
}

}  // namespace
}  // namespace TesselServer
