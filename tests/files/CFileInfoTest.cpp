#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <string>

#include "files/CFileInfo.h"
#include "support/Format.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {

// The class's private operations.
struct CFileInfoInsides {
  using WhichTime = CFileInfo::WhichTime;
  static Date FileTimeToDate(const CFileInfo& info, std::int64_t time, bool toLocal) {
    return info.FileTimeToDate(time, toLocal);
  }
  static std::int64_t DateToFileTime(const CFileInfo& info, Date date, bool fromLocal) {
    return info.DateToFileTime(date, fromLocal);
  }
  static bool WriteAttributes(CFileInfo& info, std::int32_t attributes) { return info.WriteAttributes(attributes); }
  static bool WriteFileTime(CFileInfo& info, Date date, int which) {
    return info.WriteFileTime(date, static_cast<WhichTime>(which));
  }
  static std::string GetTruePathCase(std::string_view path) { return CFileInfo::GetTruePathCase(path); }
  static std::string_view StripAtNul(std::string_view text) { return CFileInfo::StripAtNul(text); }
};

namespace {

namespace fs = std::filesystem;
using Insides = CFileInfoInsides;

constexpr std::int64_t kMoment = 1794766805;          // Sunday, 15 November 2026, 18:20:05 UTC
constexpr std::int64_t kSummerBeginsAt = 1774746000;  // 29 March 2026, 01:00 UTC: in Berlin 02:00 becomes 03:00
constexpr std::int64_t kSummerEnds = 1792890000;      // 25 October 2026, 01:00 UTC: in Berlin 03:00 becomes 02:00

std::int32_t BerlinBias(std::int64_t utcSeconds) {
  return utcSeconds >= kSummerBeginsAt && utcSeconds < kSummerEnds ? -120 : -60;
}

Date DateOf(std::int64_t year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  return DateFromCivil({year, month, day, hour, minute, second, 1});
}

std::string Shown(Date date) { return FormatDate(date, "yyyy/mm/dd hh:nn:ss"); }

class CFileInfoTest : public testing::Test {
 protected:
  std::string At(std::string_view name) const { return tree_.Text() + "/" + std::string(name); }
  std::int64_t ModifiedOnDisk(const std::string& path) const {
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mtim.tv_sec : -1;
  }

  Kit::TemporaryTree tree_;
  Kit::FakeWorld world_;
  CFileInfo info_{world_};
};

TEST_F(CFileInfoTest, ANewOneIsEmpty) {
  EXPECT_EQ(info_.FullPathName(), "");
  EXPECT_FALSE(info_.FileExists());
  EXPECT_FALSE(info_.PathExists());
  EXPECT_EQ(info_.FileSize(), 0);
  EXPECT_EQ(info_.Attributes(), 0);
  EXPECT_EQ(info_.ModifyTime(), 0);
  info_.Refresh();
  EXPECT_FALSE(info_.FileExists());
}

TEST_F(CFileInfoTest, DescribesAFile) {
  const std::string path = tree_.Write("Report.txt", "12345");
  Kit::SetModified(path, kMoment, 999'000'000);
  info_.FullPathName(path);
  EXPECT_EQ(info_.FullPathName(), path);
  EXPECT_TRUE(info_.FileExists());
  EXPECT_TRUE(info_.PathExists());
  EXPECT_EQ(info_.FileSize(), 5);
  EXPECT_EQ(info_.Attributes(), 32);
  EXPECT_EQ(Shown(info_.ModifyTime()), "2026/11/15 18:20:05") << "parts of a second are dropped";
}

TEST_F(CFileInfoTest, DescribesAFolder) {
  info_.FullPathName(tree_.MakeFolder("folder"));
  EXPECT_TRUE(info_.FileExists());
  EXPECT_EQ(info_.FileSize(), 0);
  EXPECT_EQ(info_.Attributes(), 16);
}

TEST_F(CFileInfoTest, MostValuesAreNeverFilled) {
  const std::string path = tree_.Write("Report.txt", "12345");
  info_.FullPathName(path);
  info_.CreationTime(DateOf(2020, 1, 2));
  info_.LastAccessTime(DateOf(2020, 1, 3));
  EXPECT_EQ(info_.FileName(), "");
  EXPECT_EQ(info_.FilePath(), "");
  EXPECT_EQ(info_.FileExtension(), "");
  EXPECT_EQ(info_.ShortPathName(), "");
  EXPECT_EQ(info_.ShortName(), "");
  EXPECT_EQ(info_.ShortPath(), "");
  EXPECT_EQ(info_.DisplayName(), "");
  EXPECT_EQ(info_.TypeName(), "");
  EXPECT_EQ(info_.FileSizeHigh(), 0);
  EXPECT_EQ(info_.CompressedFileSize(), 0);
  EXPECT_EQ(info_.CompressedFileSizeHigh(), 0);
  EXPECT_EQ(info_.CreationTime(), 0);
  EXPECT_EQ(info_.LastAccessTime(), 0);
  EXPECT_EQ(info_.hIcon(), 0);
}

TEST_F(CFileInfoTest, AMissingPathKeepsTheValuesOfTheOneBefore) {
  const std::string path = tree_.Write("a", "12345");
  Kit::SetModified(path, kMoment);
  info_.FullPathName(path);
  const Date modified = info_.ModifyTime();
  info_.FullPathName(At("missing"));
  EXPECT_EQ(info_.FullPathName(), At("missing"));
  EXPECT_FALSE(info_.FileExists());
  EXPECT_TRUE(info_.PathExists());
  EXPECT_EQ(info_.FileSize(), 5);
  EXPECT_EQ(info_.Attributes(), 32);
  EXPECT_EQ(info_.ModifyTime(), modified);
}

TEST_F(CFileInfoTest, ATextWithoutAFullPathChangesNothing) {
  const std::string path = tree_.Write("a", "12345");
  info_.FullPathName(path);
  for (const std::string& text :
       {std::string(), std::string("/a\0b", 4), "/" + std::string(5000, 'x'), std::string("\0", 1)}) {
    info_.FullPathName(text);
    EXPECT_EQ(info_.FullPathName(), path);
    EXPECT_TRUE(info_.FileExists());
  }
}

TEST_F(CFileInfoTest, ResolvesAPathBeforeItIsStored) {
  tree_.Write("docs/a b.txt", "12345");
  struct {
    std::string given, stored;
    bool exists;
    const char* why;
  } const cases[] = {
      {At("docs\\a b.txt"), At("docs/a b.txt"), true, "the other separator"},
      {At("x/../docs//./a b.txt"), At("docs/a b.txt"), true, "a way around"},
      {At("DOCS/A B.TXT"), At("DOCS/A B.TXT"), true, "another spelling, stored as given"},
      {At("docs/"), At("docs/"), false, "a separator at the end"},
      {At("docs/a b.txt/"), At("docs/a b.txt/"), false, "behind a file"},
      {At("docs/*"), At("docs/*"), false, "no wildcards"},
      {At("docs/a?b.txt"), At("docs/a?b.txt"), false, "none of one character"},
      {"/", "/", false, "the top, a separator at the end as well"},
      {"C:\\Windows", fs::current_path().string() + "/C:/Windows", false, "no drives"},
  };
  for (const auto& c : cases) {
    info_.FullPathName(c.given);
    EXPECT_EQ(info_.FullPathName(), c.stored) << c.why;
    EXPECT_EQ(info_.FileExists(), c.exists) << c.why;
  }
}

TEST_F(CFileInfoTest, APathMayBeAsLongAsTheSystemTakes) {
  const std::string folder = std::string(200, 'f') + "/" + std::string(200, 'g');
  const std::string path = tree_.Write(folder + "/a", "123");
  info_.FullPathName(path);
  EXPECT_EQ(info_.FullPathName(), path);
  EXPECT_EQ(info_.FileSize(), 3);
}

TEST_F(CFileInfoTest, RefreshReadsAgain) {
  const std::string path = tree_.Write("a", "12345");
  info_.FullPathName(path);
  tree_.Write("a", "1234567");
  EXPECT_EQ(info_.FileSize(), 5);
  info_.Refresh();
  EXPECT_EQ(info_.FileSize(), 7);
  fs::remove(path);
  info_.Refresh();
  EXPECT_FALSE(info_.FileExists());
  EXPECT_EQ(info_.FileSize(), 7);
}

TEST_F(CFileInfoTest, TakesFactsThatAreKnownAlready) {
  FileFacts facts;
  facts.kind = EntryKind::kFile;
  facts.size = 42;
  facts.attributes = 34;
  facts.modified = kMoment;
  info_.SetEntry("/nowhere\\", "a", facts);
  EXPECT_EQ(info_.FullPathName(), "/nowhere\\a");
  EXPECT_TRUE(info_.FileExists());
  EXPECT_EQ(info_.FileSize(), 42);
  EXPECT_TRUE(info_.attrHidden());
  EXPECT_EQ(Shown(info_.ModifyTime()), "2026/11/15 18:20:05");
  info_.SetEntry("/nowhere\\", "b", {});
  EXPECT_FALSE(info_.FileExists());
  EXPECT_EQ(info_.FileSize(), 42);
}

TEST_F(CFileInfoTest, SetsTimesOfFilesAndFoldersToTheSecond) {
  world_.bias = &BerlinBias;
  const std::string file = tree_.Write("a", "x"), folder = tree_.MakeFolder("folder");
  for (const std::string& path : {file, folder}) {
    info_.FullPathName(path);
    info_.ModifyTime(DateOf(2026, 11, 15, 19, 20, 5));
    EXPECT_EQ(ModifiedOnDisk(path), kMoment);
    EXPECT_EQ(Shown(info_.ModifyTime()), "2026/11/15 19:20:05") << "read back";
    info_.LastAccessTime(DateOf(2026, 7, 1, 2, 0, 0));
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_atim.tv_sec, 1782864000);
    EXPECT_EQ(status.st_atim.tv_nsec, 0);
    EXPECT_EQ(status.st_mtim.tv_sec, kMoment) << "the other time stays";
  }
}

TEST_F(CFileInfoTest, ASuccessfulWriteReadsTheEntryAgainAndAFailedOneDoesNot) {
  const std::string path = tree_.Write("a", "12345");
  info_.FullPathName(path);
  tree_.Write("a", "1234567");
  info_.CreationTime(DateOf(2020, 1, 1));
  EXPECT_EQ(info_.FileSize(), 5) << "no time of creation is ever set";
  info_.LastAccessTime(DateOf(2020, 1, 1));
  EXPECT_EQ(info_.FileSize(), 7);
  tree_.Write("a", "1");
  info_.attrReadOnly(true);
  EXPECT_EQ(info_.FileSize(), 1);
  fs::remove(path);
  info_.ModifyTime(DateOf(2020, 1, 1));
  EXPECT_TRUE(info_.FileExists()) << "nothing was written, nothing read";
}

TEST_F(CFileInfoTest, NothingIsWrittenToWhatDoesNotExist) {
  info_.FullPathName(At("later"));
  tree_.Write("later", "x");
  Kit::SetModified(At("later"), kMoment);
  info_.ModifyTime(DateOf(2020, 1, 1));
  info_.LastAccessTime(DateOf(2020, 1, 1));
  info_.Attributes(1);
  info_.attrReadOnly(true);
  EXPECT_FALSE(info_.FileExists());
  EXPECT_EQ(ModifiedOnDisk(At("later")), kMoment);
  EXPECT_EQ(fs::status(At("later")).permissions() & fs::perms::owner_write, fs::perms::owner_write);
  EXPECT_FALSE(Insides::WriteAttributes(info_, 0));
  EXPECT_FALSE(Insides::WriteFileTime(info_, 0, 2));
}

TEST_F(CFileInfoTest, WritingATimeTellsWhetherItWasWritten) {
  info_.FullPathName(tree_.Write("a", "x"));
  EXPECT_FALSE(Insides::WriteFileTime(info_, DateOf(2020, 1, 1), 0)) << "creation";
  EXPECT_TRUE(Insides::WriteFileTime(info_, DateOf(2020, 1, 1), 1)) << "last access";
  EXPECT_TRUE(Insides::WriteFileTime(info_, DateOf(2020, 1, 1), 2)) << "last write";
}

TEST_F(CFileInfoTest, FlagsAreBitsOfTheAttributes) {
  FileFacts facts;
  facts.kind = EntryKind::kFile;
  struct {
    std::uint32_t bit;
    bool (CFileInfo::*read)() const;
  } const flags[] = {
      {1, &CFileInfo::attrReadOnly}, {2, &CFileInfo::attrHidden},      {4, &CFileInfo::attrSystem},
      {32, &CFileInfo::attrArchive}, {256, &CFileInfo::attrTemporary}, {2048, &CFileInfo::attrCompressed},
  };
  for (const auto& set : flags) {
    facts.attributes = set.bit;
    info_.SetEntry("", "a", facts);
    for (const auto& flag : flags) EXPECT_EQ((info_.*flag.read)(), flag.bit == set.bit) << flag.bit;
  }
}

TEST_F(CFileInfoTest, ReadOnlyIsWrittenAsAPermission) {
  const std::string path = tree_.Write("a", "x");
  info_.FullPathName(path);
  info_.attrReadOnly(true);
  EXPECT_TRUE(info_.attrReadOnly());
  EXPECT_EQ(info_.Attributes(), 33);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0444));
  info_.attrReadOnly(false);
  EXPECT_FALSE(info_.attrReadOnly());
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0644));
}

TEST_F(CFileInfoTest, HiddenSystemAndTemporaryAreWrittenAsAnExtendedAttribute) {
  const std::string file = tree_.Write("a", "x"), folder = tree_.MakeFolder("folder");
  if (!Kit::SetDosAttributes(tree_.Write("probe", ""), "0x0")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  for (const std::string& path : {file, folder}) {
    info_.FullPathName(path);
    const std::int32_t own = info_.Attributes();
    info_.attrHidden(true);
    EXPECT_TRUE(info_.attrHidden()) << path;
    EXPECT_EQ(Kit::DosAttributes(path), "0x2");
    info_.attrSystem(true);
    EXPECT_EQ(Kit::DosAttributes(path), "0x6");
    EXPECT_EQ(info_.Attributes(), own | 6);
    info_.attrHidden(false);
    EXPECT_EQ(Kit::DosAttributes(path), "0x4");
    info_.Attributes(own | 256);
    EXPECT_TRUE(info_.attrTemporary());
    EXPECT_FALSE(info_.attrSystem());
    info_.Attributes(0);
    EXPECT_EQ(info_.Attributes(), own) << "archive and folder follow from what it is";
  }
}

TEST_F(CFileInfoTest, WhereAttributesCannotBeKeptNothingChanges) {
  info_.FullPathName("/proc/self/status");
  ASSERT_TRUE(info_.FileExists());
  const std::int32_t before = info_.Attributes();
  info_.attrHidden(true);
  EXPECT_EQ(info_.Attributes(), before);
  EXPECT_FALSE(info_.attrHidden());
}

TEST_F(CFileInfoTest, AnEqualValueIsNotWritten) {
  const std::string path = tree_.Write("a", "x");
  info_.FullPathName(path);
  fs::permissions(path, fs::perms(0400));
  info_.Attributes(32);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0400)) << "as stored, whatever the file has by now";
  info_.Attributes(0);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600)) << "another one is";
}

TEST_F(CFileInfoTest, TheArchiveBitFollowsFromWhatTheEntryIs) {
  info_.FullPathName(tree_.Write("a", "x"));
  info_.attrArchive(false);
  EXPECT_TRUE(info_.attrArchive());
  info_.FullPathName(tree_.MakeFolder("folder"));
  info_.attrArchive(true);
  EXPECT_FALSE(info_.attrArchive());
}

TEST_F(CFileInfoTest, SettingTemporaryOrCompressedDoesNothing) {
  const std::string path = tree_.Write("a", "x");
  info_.FullPathName(path);
  for (const bool set : {true, false}) {
    info_.attrTemporary(set);
    info_.attrCompressed(set);
    EXPECT_EQ(info_.Attributes(), 32);
    EXPECT_EQ(Kit::DosAttributes(path), "none");
  }
}

TEST_F(CFileInfoTest, DatesAreLocalTimeOfTheirOwnMoment) {
  world_.bias = &BerlinBias;
  struct {
    std::int64_t time;
    const char* local;
    const char* why;
  } const cases[] = {
      {kSummerBeginsAt - 1, "2026/03/29 01:59:59", "the last second of winter"},
      {kSummerBeginsAt, "2026/03/29 03:00:00", "the first of summer"},
      {kSummerEnds - 1, "2026/10/25 02:59:59", "the last of summer"},
      {kSummerEnds, "2026/10/25 02:00:00", "the first of winter"},
      {-1, "1970/01/01 00:59:59", "before 1970"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Shown(Insides::FileTimeToDate(info_, c.time, true)), c.local) << c.why;
    EXPECT_EQ(Shown(Insides::FileTimeToDate(info_, c.time, false)), Shown(DateFromSeconds(c.time))) << c.why;
  }
}

TEST_F(CFileInfoTest, LocalDatesLeadBackToTheirMoment) {
  world_.bias = &BerlinBias;
  struct {
    Date local;
    std::int64_t time;
    const char* why;
  } const cases[] = {
      {DateOf(2026, 3, 29, 1, 59, 59), kSummerBeginsAt - 1, "the last second of winter"},
      {DateOf(2026, 3, 29, 3, 0, 0), kSummerBeginsAt, "the first of summer"},
      {DateOf(2026, 3, 29, 2, 30, 0), kSummerBeginsAt + 1800, "left out: moved on, as if winter had not ended"},
      {DateOf(2026, 10, 25, 1, 59, 59), kSummerEnds - 3601, "just before the hour that comes twice"},
      {DateOf(2026, 10, 25, 2, 30, 0), kSummerEnds - 1800, "twice: the first"},
      {DateOf(2026, 10, 25, 3, 0, 0), kSummerEnds + 3600, "just behind it"},
      {DateOf(2026, 7, 1, 12, 0, 0), 1782900000, "in summer"},
      {DateOf(2026, 12, 24, 18, 0, 0), 1798131600, "in winter"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Insides::DateToFileTime(info_, c.local, true), c.time) << c.why;
    EXPECT_EQ(Insides::DateToFileTime(info_, c.local, false), SecondsFromDate(c.local)) << c.why;
  }
}

TEST_F(CFileInfoTest, EveryShownDateCanBeSetAndIsShownAgain) {
  world_.bias = &BerlinBias;
  for (const std::int64_t change : {kSummerBeginsAt, kSummerEnds}) {
    for (std::int64_t time = change - 2 * 86400; time < change + 2 * 86400; time += 599) {
      const Date date = Insides::FileTimeToDate(info_, time, true);
      const std::int64_t back = Insides::DateToFileTime(info_, date, true);
      EXPECT_EQ(Insides::FileTimeToDate(info_, back, true), date) << time;
    }
  }
}

TEST_F(CFileInfoTest, AnyNumberIsADate) {
  info_.FullPathName(tree_.Write("a", "x"));
  constexpr Date kNoNumber = std::numeric_limits<Date>::quiet_NaN();
  for (const Date date : {kNoNumber, 1e300, -1e300, HUGE_VAL, -HUGE_VAL}) {
    info_.ModifyTime(date);
    EXPECT_TRUE(info_.FileExists());
    EXPECT_NE(info_.FormatFileDate(date), " ");
  }
}

TEST_F(CFileInfoTest, PathsOfFoldersAreReturnedInTheirTrueSpelling) {
  tree_.Write("Docs/Sub Folder/a.txt", "x");
  std::string root = tree_.Text();
  for (char& c : root) {
    if (c == '/') c = '\\';
  }
  struct {
    std::string given, told;
    const char* why;
  } const cases[] = {
      {root + "\\docs\\SUB FOLDER", root + "\\Docs\\Sub Folder", "another spelling"},
      {root + "\\docs\\sub folder\\", root + "\\Docs\\Sub Folder", "a separator at the end"},
      {tree_.Text() + "/DOCS", root + "\\Docs", "the other separator"},
      {root + "\\Docs\\Sub Folder\\a.txt", "", "a file"},
      {root + "\\missing", "", "nothing"},
      {root + "\\missing\\docs", "", "in nothing"},
      {"c:\\", "C:\\", "a drive's root"},
      {"c:", "C:", "a drive"},
      {"docs", "DOCS", "no separator"},
      {"c:\\windows", "", "no drives on this system"},
      {"\\\\Server\\share", "\\\\Server\\share", "a bare share, any case kept"},
      {"\\\\Server\\share\\", "\\\\Server\\share", "with a separator"},
      {"\\\\Server\\share\\x", "", "below a share"},
      {"", "", "nothing at all"},
      {"\\", "", "the top"},
  };
  for (const auto& c : cases) EXPECT_EQ(Insides::GetTruePathCase(c.given), c.told) << c.why;
}

TEST_F(CFileInfoTest, TextEndsAtItsFirstNul) {
  EXPECT_EQ(Insides::StripAtNul(std::string_view("abc\0def\0", 8)), "abc");
  EXPECT_EQ(Insides::StripAtNul(std::string_view(" a \0b", 5)), " a ") << "with its blanks";
  EXPECT_EQ(Insides::StripAtNul(std::string_view("\0abc", 4)), "");
  EXPECT_EQ(Insides::StripAtNul("  abc  "), "abc") << "without a NUL";
  EXPECT_EQ(Insides::StripAtNul(""), "");
}

}  // namespace
}  // namespace TesselServer
