#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/FileSystem.h"
#include "platform/files/FolderRecord.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

// A record of a folder with files of these names.
std::shared_ptr<FolderRecord> RecordOf(const std::vector<std::string>& names, std::size_t limit = 1'000'000) {
  const Kit::TemporaryTree tree;
  for (const std::string& name : names) tree.Write(name, "");
  const OpenFile folder = OpenPath(tree.Text());
  return FolderRecord::Read(folder.Descriptor(), Reading(folder.Stamp(), Kit::FakeWorld()), nullptr, limit);
}

TEST(FolderRecordTest, FindsTheFirstEqualNameInByteOrder) {
  const auto names = RecordOf({"b.htm", "README", "ReadMe", "readme", "a", "A_", "_a", "\xC3\xA4.txt", "0", "Z"});
  struct {
    std::string_view asked, found;
    const char* why;
  } const cases[] = {
      {"b.htm", "b.htm", "as it is"},
      {"B.HTM", "b.htm", "in another spelling"},
      {"readme", "README", "the smallest of several, though one is exact"},
      {"rEADmE", "README", "the smallest of several"},
      {"a", "a", "shorter than another"},
      {"a_", "A_", "a sign between the two cases"},
      {"_A", "_a", "a sign in front"},
      {"\xC3\xA4.TXT", "\xC3\xA4.txt", "beyond ASCII as it is"},
      {"\xC3\x84.txt", "", "beyond ASCII in another spelling is another name"},
      {"0", "0", "no letter"},
      {"z", "Z", "the last"},
      {"", "", "nothing"},
      {"b.ht", "", "the beginning of a name"},
      {"b.htmx", "", "more than a name"},
      {"zz", "", "behind the last"},
  };
  for (const auto& c : cases) EXPECT_EQ(names->FirstEqual(c.asked), c.found) << c.why;
}

TEST(FolderRecordTest, AnEmptyFolderHasNone) { EXPECT_EQ(RecordOf({})->FirstEqual("a"), ""); }

TEST(FolderRecordTest, TellsWhatItKeepsAndHasALimit) {
  const std::vector<std::string> names = {std::string(100, 'a'), std::string(200, 'b')};
  const auto record = RecordOf(names);
  EXPECT_EQ(record->Count(), 4u) << "with the folder itself and the one above";
  EXPECT_GE(record->Bytes(), 300u);
  EXPECT_LE(record->Bytes(), 1200u);
  const std::size_t before = record->Bytes();
  record->FirstEqual("a");
  EXPECT_EQ(record->Bytes(), before) << "sorted or not";
  EXPECT_EQ(RecordOf(names, 300), nullptr);
}

TEST(FolderRecordTest, AFolderWithoutSpellingsOfItsOwnIsKnownAsSuch) {
  EXPECT_FALSE(RecordOf({"a"})->TakesOtherSpellings());
}

}  // namespace
}  // namespace TesselServer
