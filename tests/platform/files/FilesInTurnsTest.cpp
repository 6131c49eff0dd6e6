#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/files/FileSystem.h"
#include "platform/files/FolderRecord.h"
#include "platform/files/NeighbourFile.h"
#include "platform/loop/EventLoop.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/TaskTools.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

class FilesInTurnsTest : public testing::Test {
 protected:
  static constexpr int kMany = 1500;

  FilesInTurnsTest() {
    world_.microsecondsPerLook = 300;  // a turn is over after each step
    tree_.Write("Site/Page.htm", "page");
    tree_.Write("Site/Docs/Deep.htm", "deep");
    tree_.Write("Site/alone/x.htm", "x");
    fs::create_symlink("Docs", tree_.Path() / "Site/Link");
    fs::create_symlink(tree_.Path() / "Site/Docs", tree_.Path() / "Site/Far");
    fs::create_symlink("nowhere", tree_.Path() / "Site/dangling");
  }

  // Fills the site with names, so that reading or sorting them takes many steps.
  void WriteMany() const {
    for (int i = 0; i < kMany; ++i) tree_.Write("Site/many/name-" + std::to_string(i * 7919 % kMany) + ".txt", "");
  }

  std::string At(const std::string& name) const { return (tree_.Path() / name).string(); }

  template <typename Value>
  Value Await(Task<Value> task) {
    turns_.Begin();
    Kit::TaskUnderWay<Value> running(std::move(task));
    turnsTaken_ = running.Finish(loop_);
    return std::move(running.Get());
  }

  static void ExpectSame(const FoundEntry& found, const FoundEntry& expected, const std::string& asked) {
    EXPECT_EQ(found.kind, expected.kind) << asked;
    EXPECT_EQ(found.name, expected.name) << asked;
    EXPECT_EQ(found.readable, expected.readable) << asked;
    EXPECT_EQ(found.isOwnName, expected.isOwnName) << asked;
    EXPECT_EQ(found.mayBeRemembered, expected.mayBeRemembered) << asked;
    EXPECT_EQ(found.file.Identity(), expected.file.Identity()) << asked;
  }

  // What a folder's names are remembered after: two look-ups within a minute.
  void LearnNames(const RootFolder& root, const std::string& folder) const {
    for (int i = 0; i < 2; ++i) root.Find(folder + "/no such name");
  }

  Kit::TemporaryTree tree_;
  Kit::TickingWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  Turns turns_{loop_, workers_};
  int turnsTaken_ = 0;
};

const char* const kPaths[] = {"",
                              "Page.htm",
                              "page.HTM",
                              "docs",
                              "DOCS/deep.htm",
                              "docs/",
                              "docs/missing.htm",
                              "page.htm/",
                              "page.htm/below",
                              "LINK/deep.htm",
                              "far/DEEP.htm",
                              "Far/Deep.htm",
                              "dangling",
                              "DANGLING",
                              "1234",
                              "none/at/all",
                              "..",
                              "docs/../PAGE.htm",
                              "a\nb"};

TEST_F(FilesInTurnsTest, ALookUpFindsTheSameInTurns) {
  world_.LetFilesSettle();
  const RootFolder remembering(At("Site"), world_), other(At("Site"), world_), plain(At("Site")), none("");
  for (int time = 0; time < 3; ++time) {
    for (const char* path : kPaths) {
      const FoundEntry expected = other.Find(path);
      ExpectSame(Await(remembering.FindInTurns(path, &turns_)), expected, path);
      ExpectSame(RunNow(remembering.FindInTurns(path, nullptr)), expected, path);
      FoundEntry atAll = plain.Find(path);
      ExpectSame(Await(plain.FindInTurns(path, &turns_)), atAll, path);
      EXPECT_EQ(Await(none.FindInTurns(path, &turns_)).kind, EntryKind::kNone) << path;
    }
  }
}

TEST_F(FilesInTurnsTest, AtOnceALookUpFindsTheSameOrNothing) {
  world_.LetFilesSettle();
  const RootFolder root(At("Site"), world_);
  struct {
    const char* path;
    bool atFirst, later;
    const char* why;
  } const cases[] = {
      {"Page.htm", true, true, "as it is spelled"},
      {"", true, true, "the root"},
      {"Link/Deep.htm", true, true, "through a link"},
      {"1234", true, true, "no other spelling is possible"},
      {"Page.htm/1", true, true, "below a file"},
      {"..", true, true, "above the root"},
      {"page.HTM", false, true, "in another spelling"},
      {"missing.htm", false, true, "not there"},
      {"DOCS/Deep.htm", false, true, "a folder in another spelling"},
  };
  for (const auto& c : cases) EXPECT_EQ(root.FindAtOnce(c.path).has_value(), c.atFirst) << c.why;
  LearnNames(root, "");
  for (const auto& c : cases) {
    const auto found = root.FindAtOnce(c.path);
    ASSERT_EQ(found.has_value(), c.later) << c.why;
    ExpectSame(*found, root.Find(c.path), c.path);
  }
}

// So deep that each of its folders, spelled otherwise, is a step or more.
std::string DeepPath(std::string_view name, int depth) {
  std::string path(name);
  for (int i = 1; i < depth; ++i) path.append("/").append(name);
  return path;
}

TEST_F(FilesInTurnsTest, APathOfManyLinksIsWalkedInTurns) {
  constexpr int kLinks = 300;
  fs::create_symlink(At("Site"), tree_.Path() / "Site/1");
  const RootFolder root(At("Site"), world_);
  EXPECT_EQ(Await(root.FindInTurns(DeepPath("1", kLinks) + "/Page.htm", &turns_)).name, "Page.htm");
  EXPECT_GE(turnsTaken_, kLinks);
}

TEST_F(FilesInTurnsTest, ADeepPathIsWalkedInTurns) {
  constexpr int kDepth = 200;
  tree_.Write("Site/" + DeepPath("x", kDepth) + "/Page.htm", "page");
  const RootFolder root(At("Site"), world_);
  const std::string asked = DeepPath("X", kDepth) + "/PAGE.htm";
  const std::string found = DeepPath("x", kDepth) + "/Page.htm";
  EXPECT_EQ(Await(root.FindInTurns(asked, &turns_)).name, found);
  EXPECT_GE(turnsTaken_, kDepth);
  EXPECT_EQ(root.Find(asked).name, found);
  EXPECT_EQ(Await(IdentifyInTurns(At("Site/" + asked), &turns_)).identity, IdentifyPath(At("Site/" + found)).identity);
  EXPECT_GE(turnsTaken_, kDepth);
}

// Whether nothing but folders leads to a file that is remembered is asked of each of them.
TEST_F(FilesInTurnsTest, NoDeepFileIsRemembered) {
  const std::string deep = DeepPath("x", 40) + "/Page.htm", shallow = DeepPath("x", 4) + "/Page.htm";
  tree_.Write("Site/" + deep, "page");
  tree_.Write("Site/" + shallow, "page");
  world_.LetFilesSettle();
  const RootFolder root(At("Site"), world_);
  FoundEntry found, near;
  for (int time = 0; time < 3; ++time) {
    found = root.Find(deep);
    root.Remember(found);
    near = root.Find(shallow);
    root.Remember(near);
  }
  EXPECT_EQ(found.name, deep);
  EXPECT_EQ(found.file.Cached(), nullptr);
  EXPECT_NE(near.file.Cached(), nullptr);
}

TEST_F(FilesInTurnsTest, AtOnceNoDeepPathIsWalked) {
  fs::create_symlink(At("Site"), tree_.Path() / "Site/1");
  tree_.Write("Site/" + DeepPath("2", 700) + "/3", "");
  const RootFolder root(At("Site"), world_);
  struct {
    std::string path;
    bool isKnown;
    const char* why;
  } const cases[] = {
      {DeepPath("1", 5) + "/4", true, "a few links"},
      {DeepPath("1", 300) + "/4", false, "hundreds of links, each a step"},
      {DeepPath("2", 100) + "/4", true, "a hundred folders are one step"},
      {DeepPath("2", 700) + "/4", false, "seven hundred are too much"},
      {DeepPath("2", 700) + "/3", true, "as it is spelled"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(root.FindAtOnce(c.path).has_value(), c.isKnown) << c.why;
    EXPECT_EQ(IdentifyAtOnce(At("Site/" + c.path)).has_value(), c.isKnown || c.path.starts_with('1')) << c.why;
    ExpectSame(Await(root.FindInTurns(c.path, &turns_)), root.Find(c.path), c.path);
  }
}

// A listing remembers names without sorting them.
TEST_F(FilesInTurnsTest, ManyNamesAreSortedInTurns) {
  WriteMany();
  world_.LetFilesSettle();
  const RootFolder root(At("Site"), world_);
  const FoundEntry folder = root.Find("many");
  EXPECT_EQ(Await(root.NamesInTurns(folder, &turns_)), nullptr) << "the first request";
  const auto names = Await(root.NamesInTurns(folder, &turns_));
  ASSERT_NE(names, nullptr);
  EXPECT_GT(turnsTaken_, 1);
  EXPECT_EQ(names->Count(), static_cast<std::size_t>(kMany) + 2);
  EXPECT_EQ(RunNow(root.NamesInTurns(folder, nullptr)), names);
  EXPECT_FALSE(names->IsSorted());
  EXPECT_FALSE(root.FindAtOnce("many/NAME-7.txt").has_value()) << "they would have to be sorted";
  EXPECT_EQ(Await(root.FindInTurns("many/NAME-7.txt", &turns_)).name, "many/name-7.txt");
  EXPECT_GT(turnsTaken_, 10);
  EXPECT_TRUE(names->IsSorted());
  for (int i = 0; i < kMany; i += 100) {
    const std::string name = "name-" + std::to_string(i) + ".txt";
    EXPECT_EQ(names->FirstEqual("NAME-" + std::to_string(i) + ".TXT"), name);
    EXPECT_EQ(root.FindAtOnce("many/NAME-" + std::to_string(i) + ".txt").value_or(FoundEntry()).name, "many/" + name);
  }
}

TEST_F(FilesInTurnsTest, ATaskThatSearchesManyNamesGivesWayToOthers) {
  WriteMany();
  const RootFolder root(At("Site"));
  std::string order;
  const auto search = [&](std::string path) -> Task<void> {
    auto found = root.FindInTurns(std::move(path), &turns_);
    const FoundEntry entry = co_await found;
    order += entry.name == "many/name-1.txt" ? "S" : "?";
  };
  const auto other = [&]() -> Task<void> {
    for (int i = 0; i < 3; ++i) {
      order += "o";
      auto next = turns_.Next();
      co_await next;
    }
  };
  turns_.Begin();
  const RunningTask first = RunningTask::Start(search("many/NAME-1.TXT"));
  EXPECT_EQ(order, "") << "it is not done in the call";
  const RunningTask second = RunningTask::Start(other());
  for (const auto start = Kit::Clock::now(); !first.IsDone() && Kit::Since(start) < Kit::kTooLong;) loop_.RunOnce(0);
  EXPECT_EQ(order, "oooS");
}

TEST_F(FilesInTurnsTest, AFolderThatChangesWhileItIsReadIsNotTakenForKnown) {
  WriteMany();
  world_.LetFilesSettle();
  const RootFolder root(At("Site"), world_);
  const FoundEntry folder = root.Find("many");
  EXPECT_EQ(RunNow(root.NamesInTurns(folder, nullptr)), nullptr) << "the first request";
  turns_.Begin();
  Kit::TaskUnderWay<std::shared_ptr<FolderRecord>> reading(root.NamesInTurns(folder, &turns_));
  ASSERT_FALSE(reading.IsDone());
  tree_.Write("Site/many/New.htm", "");
  fs::remove(tree_.Path() / "Site/many/name-5.txt");
  reading.Finish(loop_);
  ASSERT_NE(reading.Get(), nullptr);
  EXPECT_EQ(reading.Get()->FirstEqual("name-9.txt"), "name-9.txt") << "what did not change is there";
  for (int time = 0; time < 2; ++time) {
    EXPECT_EQ(Await(root.FindInTurns("many/NEW.htm", &turns_)).name, "many/New.htm");
    EXPECT_EQ(Await(root.FindInTurns("many/NAME-5.txt", &turns_)).kind, EntryKind::kNone);
  }
}

TEST_F(FilesInTurnsTest, TwoTasksReadOneFolderSideBySide) {
  WriteMany();
  world_.LetFilesSettle();
  const RootFolder root(At("Site"), world_);
  root.Find("many/NAME");  // the first request
  turns_.Begin();
  Kit::TaskUnderWay<FoundEntry> one(root.FindInTurns("many/NAME-1.txt", &turns_));
  Kit::TaskUnderWay<FoundEntry> two(root.FindInTurns("MANY/name-2.TXT", &turns_));
  Kit::TaskUnderWay<FoundEntry> none(root.FindInTurns("many/NAME-x.txt", &turns_));
  EXPECT_FALSE(one.IsDone() || two.IsDone() || none.IsDone());
  one.Finish(loop_);
  two.Finish(loop_);
  none.Finish(loop_);
  EXPECT_EQ(one.Get().name, "many/name-1.txt");
  EXPECT_EQ(two.Get().name, "many/name-2.txt");
  EXPECT_EQ(none.Get().kind, EntryKind::kNone);
  EXPECT_TRUE(root.FindAtOnce("many/NAME-3.txt").has_value()) << "it is remembered, and sorted";
}

TEST_F(FilesInTurnsTest, OneFolderAtATimeIsReadToBeRemembered) {
  WriteMany();
  world_.LetFilesSettle();
  const RootFolder root(At("Site"), world_);
  const FoundEntry many = root.Find("many"), docs = root.Find("Docs");
  for (const FoundEntry* folder : {&many, &docs})
    EXPECT_EQ(RunNow(root.NamesInTurns(*folder, nullptr)), nullptr) << "the first request";
  {
    turns_.Begin();
    const Kit::TaskUnderWay<std::shared_ptr<FolderRecord>> reading(root.NamesInTurns(many, &turns_));
    ASSERT_FALSE(reading.IsDone());
    EXPECT_EQ(RunNow(root.NamesInTurns(docs, nullptr)), nullptr) << "another one is being read";
    EXPECT_EQ(root.Find("docs/DEEP.htm").name, "Docs/Deep.htm") << "as if there were no cache";
  }
  EXPECT_NE(RunNow(root.NamesInTurns(docs, nullptr)), nullptr) << "the reading was cancelled";
  EXPECT_NE(RunNow(root.NamesInTurns(many, nullptr)), nullptr);
}

TEST_F(FilesInTurnsTest, ATaskThatIsDestroyedLeavesNothing) {
  WriteMany();
  const std::string large = tree_.Write("large", std::string(1'000'000, 'x'));
  world_.LetFilesSettle();
  const OpenFile file = OpenPath(large), folder = OpenPath(At("Site/many"));
  std::string bytes;
  const std::size_t before = Kit::CountDescriptors();
  for (int turns = 0; turns < 6; ++turns) {
    {
      const RootFolder root(At("Site"), world_);
      const FoundEntry many = root.Find("many");
      RunNow(root.NamesInTurns(many, nullptr));
      turns_.Begin();
      const Kit::TaskUnderWay<FoundEntry> find(root.FindInTurns("many/NAME-1.txt", &turns_));
      const Kit::TaskUnderWay<std::shared_ptr<FolderRecord>> names(root.NamesInTurns(many, &turns_));
      const Kit::TaskUnderWay<OpenFile> open(OpenPathInTurns(At("Site/many/NAME-1.txt"), &turns_));
      const Kit::TaskUnderWay<PathIdentity> identify(IdentifyInTurns(At("Site/many/NAME-x.txt"), &turns_));
      const Kit::TaskUnderWay<EntryKind> kind(KindInTurns(At("Site/many/NAME-x.txt"), &turns_));
      const Kit::TaskUnderWay<NeighbourFile> beside(FindBesideInTurns(folder, "NAME-x.txt", &turns_));
      const Kit::TaskUnderWay<bool> read(ReadInTurns(file, bytes, 2'000'000, &turns_));
      for (int i = 0; i < turns; ++i) loop_.RunOnce(0);
      EXPECT_GT(TaskPromise::living, 0);
    }
    EXPECT_EQ(TaskPromise::living, 0) << turns;
    EXPECT_EQ(Kit::CountDescriptors(), before) << turns;
    while (loop_.RunOnce(0)) {
    }
  }
}

TEST_F(FilesInTurnsTest, PathsOfTheHostsAreFoundAlikeInTurns) {
  for (const char* path : kPaths) {
    const std::string asked = At("Site") + "/" + path;
    EXPECT_EQ(Await(OpenPathInTurns(asked, &turns_)).Identity(), OpenPath(asked).Identity()) << path;
    EXPECT_EQ(Await(KindInTurns(asked, &turns_)), KindOfPath(asked)) << path;
    const PathIdentity expected = IdentifyPath(asked), identity = Await(IdentifyInTurns(asked, &turns_));
    EXPECT_EQ(identity.state, expected.state) << path;
    EXPECT_EQ(identity.identity, expected.identity) << path;
    if (const auto atOnce = IdentifyAtOnce(asked)) {
      EXPECT_EQ(atOnce->state, expected.state) << path;
      EXPECT_EQ(atOnce->identity, expected.identity) << path;
    }
  }
  EXPECT_TRUE(IdentifyAtOnce(At("Site/Page.htm")).has_value());
  EXPECT_TRUE(IdentifyAtOnce(At("Site/1234")).has_value());
  EXPECT_FALSE(IdentifyAtOnce(At("Site/page.HTM")).has_value());
  EXPECT_FALSE(Await(OpenPathInTurns("", &turns_)).IsOpen());
}

TEST_F(FilesInTurnsTest, NeighboursAreFoundAlikeInTurns) {
  const OpenFile folder = OpenPath(At("Site")), file = OpenPath(At("Site/Docs/Deep.htm")), nothing;
  for (const OpenFile* entry : {&folder, &file, &nothing}) {
    for (const char* name : {"Page.htm", "PAGE.HTM", "deep.htm", "docs", "Docs", "missing", "DANGLING"}) {
      const NeighbourFile expected = FindBeside(*entry, name);
      const NeighbourFile found = Await(FindBesideInTurns(*entry, name, &turns_));
      EXPECT_EQ(found.state, expected.state) << name;
      EXPECT_EQ(found.file.Identity(), expected.file.Identity()) << name;
    }
  }
}

TEST_F(FilesInTurnsTest, AFileIsReadAlikeInTurns) {
  constexpr std::int64_t kPiece = 64 * 1024;
  for (const std::int64_t size : {std::int64_t{0}, std::int64_t{1}, kPiece - 1, kPiece, kPiece + 1, 5 * kPiece}) {
    std::string text(static_cast<std::size_t>(size), 'x');
    for (std::size_t i = 0; i < text.size(); i += 100) text[i] = static_cast<char>('a' + i / 100 % 26);
    const OpenFile file = OpenPath(tree_.Write("file", text));
    for (const std::int64_t limit : {std::int64_t{-1}, std::int64_t{0}, size - 1, size, size + 1, 10 * kPiece}) {
      std::string expected, bytes = "what was there";
      const bool isWhole = file.ReadAll(expected, limit);
      EXPECT_EQ(Await(ReadInTurns(file, bytes, limit, &turns_)), isWhole) << size << " bytes, limit " << limit;
      EXPECT_EQ(bytes, expected) << size << " bytes, limit " << limit;
      EXPECT_EQ(RunNow(ReadInTurns(file, bytes, limit, nullptr)), isWhole);
    }
  }
  std::string bytes = "what was there";
  EXPECT_FALSE(Await(ReadInTurns(OpenFile(), bytes, 100, &turns_)));
  const OpenFile folder = OpenPath(At("Site"));
  EXPECT_FALSE(Await(ReadInTurns(folder, bytes, 100, &turns_)));
  EXPECT_EQ(bytes, "");
  const OpenFile made = OpenPath("/proc/self/status");
  EXPECT_TRUE(Await(ReadInTurns(made, bytes, 100'000, &turns_))) << "a file that says it has no length";
  EXPECT_NE(bytes.find("Pid:"), std::string::npos);
}

TEST_F(FilesInTurnsTest, AFileThatGrowsOrShrinksWhileItIsReadIsReadToItsEnd) {
  for (const std::size_t later : {std::size_t{2'000'000}, std::size_t{1'500'000}, std::size_t{400'000}}) {
    const std::string path = tree_.Write("file", std::string(1'000'000, 'x'));
    const OpenFile file = OpenPath(path);
    std::string bytes;
    turns_.Begin();
    Kit::TaskUnderWay<bool> reading(ReadInTurns(file, bytes, 3'000'000, &turns_));
    ASSERT_FALSE(reading.IsDone());
    fs::resize_file(path, later);
    reading.Finish(loop_);
    EXPECT_TRUE(reading.Get());
    EXPECT_EQ(bytes.size(), later);
  }
}

TEST_F(FilesInTurnsTest, ALargeFileIsReadInManyTurns) {
  const OpenFile file = OpenPath(tree_.Write("file", std::string(4'000'000, 'x')));
  std::string bytes;
  EXPECT_TRUE(Await(ReadInTurns(file, bytes, 4'000'000, &turns_)));
  EXPECT_GT(turnsTaken_, 10);
}

}  // namespace
}  // namespace TesselServer
