#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "http/ContentTypeMemory.h"
#include "http/cls_HTTP.h"
#include "platform/settings/RegistryStore.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

using Lines = std::vector<std::string>;

std::shared_ptr<const Lines> Shared(Lines lines) { return std::make_shared<const Lines>(std::move(lines)); }

TEST(ContentTypeMemoryTest, FindsWhatItKeptByteForByte) {
  ContentTypeMemory memory;
  EXPECT_EQ(memory.Find("txt"), std::nullopt);
  memory.Keep("txt", "text/plain");
  memory.Keep("", "none/at-all");
  memory.Keep("raw", "");
  EXPECT_EQ(memory.Find("txt"), "text/plain");
  EXPECT_EQ(memory.Find(""), "none/at-all");
  EXPECT_EQ(memory.Find("raw"), "") << "that there is no type is remembered too";
  EXPECT_EQ(memory.Find("TXT"), std::nullopt);
}

TEST(ContentTypeMemoryTest, TheOldestMakesRoom) {
  ContentTypeMemory memory;
  for (std::size_t i = 0; i <= ContentTypeMemory::kMaxTypes; ++i) memory.Keep(std::to_string(i), "type");
  EXPECT_EQ(memory.Find("0"), std::nullopt);
  for (std::size_t i = 1; i <= ContentTypeMemory::kMaxTypes; ++i) EXPECT_EQ(memory.Find(std::to_string(i)), "type");
  memory.Keep("new", "type");
  EXPECT_EQ(memory.Find("1"), std::nullopt);
  EXPECT_EQ(memory.Find("2"), "type");
}

TEST(ContentTypeMemoryTest, LongTextsAreNotKept) {
  const std::string extension(ContentTypeMemory::kMaxExtensionBytes, 'e');
  const std::string type(ContentTypeMemory::kMaxTypeBytes, 't');
  ContentTypeMemory memory;
  memory.Keep(extension, type);
  memory.Keep(extension + "e", "t");
  memory.Keep("e", type + "t");
  EXPECT_EQ(memory.Find(extension), type);
  EXPECT_EQ(memory.Find(extension + "e"), std::nullopt);
  EXPECT_EQ(memory.Find("e"), std::nullopt);
}

TEST(ContentTypeMemoryTest, AnotherOriginForgetsAll) {
  const auto one = Shared({"txt,a/b"});
  const auto other = Shared({"txt,a/b"});
  struct {
    e_ContentTypeSource source;
    std::shared_ptr<const Lines> lines;
    std::uint64_t revision;
    bool kept;
    const char* why;
  } const cases[] = {
      {e_ContentTypeSource::File, one, 1, true, "the same"},
      {e_ContentTypeSource::Internal, one, 1, false, "another source"},
      {e_ContentTypeSource::File, other, 1, false, "another list, though with the same lines"},
      {e_ContentTypeSource::File, nullptr, 1, false, "no list"},
      {e_ContentTypeSource::File, one, 2, false, "the registry has changed"},
  };
  for (const auto& c : cases) {
    ContentTypeMemory memory;
    memory.ComesFrom(e_ContentTypeSource::File, one, 1);
    memory.Keep("txt", "a/b");
    memory.ComesFrom(c.source, c.lines, c.revision);
    EXPECT_EQ(memory.Find("txt").has_value(), c.kept) << c.why;
  }
}

// The same record with and without a memory, through all changes of what it looks in.
TEST(ContentTypeMemoryTest, ARecordWithOneAnswersAsARecordWithout) {
  Kit::FakeWorld world;
  cls_HTTP with(world);
  cls_HTTP without(world);
  with.TypeMemory(std::make_shared<ContentTypeMemory>());
  const auto expectEqual = [&](const char* when) {
    for (int round = 0; round < 2; ++round) {
      for (const char* name : {"a.txt", "a.TXT", "b.own", "none", "x.verylongextension", "a.html", "a."}) {
        EXPECT_EQ(with.ContentTypeOf(name), without.ContentTypeOf(name)) << when << ' ' << name;
      }
    }
  };
  expectEqual("the registry as it comes");
  world.registry.PutText(RegistryStore::kClassesRoot, ".own", "Content Type", "own/type");
  expectEqual("a new value");
  EXPECT_EQ(with.ContentTypeOf("b.own"), "own/type");
  world.registry.PutText(RegistryStore::kClassesRoot, ".own", "Content Type", "other/type");
  expectEqual("a changed value");
  EXPECT_EQ(with.ContentTypeOf("b.own"), "other/type");
  for (const auto source : {e_ContentTypeSource::Internal, e_ContentTypeSource::File, e_ContentTypeSource::Registry}) {
    for (const auto& lines : {Shared({"own,line/one"}), Shared({"own,line/two"}), Shared({})}) {
      for (cls_HTTP* record : {&with, &without}) {
        record->ContentTypeSource(source);
        record->ContentTypeLines(lines);
      }
      expectEqual("another source or list");
    }
  }
}

}  // namespace
}  // namespace TesselServer
