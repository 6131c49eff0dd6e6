#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "files/cls_DirListing.h"
#include "platform/files/FolderCache.h"
#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/LoopTools.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// One in which each look at the clock takes time.
struct TickingWorld : Kit::FakeWorld {
  std::int64_t MonotonicMicroseconds() const override { return FakeWorld::MonotonicMicroseconds() + ++looks * each; }

  std::int64_t each = 0;
  mutable std::int64_t looks = 0;
};

class ListingInTurnsTest : public testing::Test {
 protected:
  static constexpr std::int64_t kAWholeTurn = EventLoop::kMicrosecondsPerTurn;

  ListingInTurnsTest() { MakeFolderAt(tree_.Text() + "/folder"); }

  void MakeFolderAt(const std::string& path) {
    folder_ = path;
    fs::create_directory(folder_);
  }
  std::string At(const std::string& name) const { return folder_ + "/" + name; }
  void WriteFile(const std::string& name, const std::string& text = "x") const { std::ofstream(At(name)) << text; }
  // `count` entries, one in ten of them a folder.
  void Fill(int count) const {
    for (int i = 0; i < count; ++i) {
      i % 10 == 0 ? static_cast<void>(fs::create_directory(At(std::to_string(i)))) : WriteFile(std::to_string(i));
    }
  }

  // A page on its way.
  struct Making {
    Making(ListingInTurnsTest& test, std::shared_ptr<FolderRecord> names = nullptr)
        : folder(OpenPath(test.folder_)), listing(test.world_, folder, test.rules_, std::move(names)) {
      if (test.mayHold_) listing.MayHold(test.mayHold_);
    }
    void Start(Turns* turns) {
      turns->Begin();
      task = RunningTask::Start(Run(*this, turns));
    }
    static Task<void> Run(Making& making, Turns* turns) {
      auto page = making.listing.ListInTurns(making.localDir, making.urlPath, making.serverName, turns);
      making.page = co_await page;
      making.isDone = true;
    }

    OpenFile folder;
    cls_DirListing listing;
    std::string localDir = "/srv/www/docs", urlPath = "/docs/", serverName = "My server";
    std::optional<std::string> page;
    bool isDone = false;
    RunningTask task;
  };

  // Has a turn; false when nothing is left to be done.
  bool Turn(const Making& making) {
    if (making.isDone) return false;
    loop_.RunOnce(1000);
    ++turnsTaken_;
    return true;
  }

  std::string PageInOneGo() {
    Making making(*this);
    return making.listing.GetDirListing(making.localDir, making.urlPath, making.serverName);
  }
  std::optional<std::string> PageInTurns(std::shared_ptr<FolderRecord> names = nullptr) {
    Making making(*this, std::move(names));
    turnsTaken_ = 0;
    making.Start(&turns_);
    while (Turn(making)) {
    }
    EXPECT_EQ(making.localDir, "/srv/www/docs\\");
    EXPECT_EQ(making.urlPath, "/docs");
    return making.page;
  }

  std::shared_ptr<FolderRecord> RememberedNames() {
    world_.LetFilesSettle();
    FolderCache cache(folder_, world_);
    const OpenFile folder = OpenPath(folder_);
    cache.NamesOf("", folder.Descriptor());
    return cache.NamesOf("", folder.Descriptor());
  }

  static std::vector<std::string> NamesOn(const std::string& page) {
    const std::string before = "&nbsp;<a href = /docs/";
    std::vector<std::string> names;
    for (std::size_t at = page.find(before); at != std::string::npos; at = page.find(before, at)) {
      at = page.find('>', at) + 1;
      names.push_back(page.substr(at, page.find("</a>", at) - at));
    }
    return names;
  }
  // Whether each row of the page is whole.
  static bool IsWhole(const std::string& page) {
    const auto count = [&page](const std::string& text) {
      std::size_t found = 0;
      for (std::size_t at = page.find(text); at != std::string::npos; at = page.find(text, at + 1)) ++found;
      return found;
    };
    const std::size_t rows = NamesOn(page).size();
    return page.ends_with("   </tr>\r\n</table>\r\n</html>\r\n") &&
           count("</a></td>\r\n       <td align=\"right\">") == rows && count("&nbsp;&nbsp;&nbsp;") == rows &&
           count("<tr>") == count("</tr>");
  }

  Kit::TemporaryTree tree_;
  std::string folder_;
  TickingWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  Turns turns_{loop_, workers_};
  ListingRules rules_{"htaccess.txt", {}, {}};
  std::function<bool(std::size_t)> mayHold_;
  int turnsTaken_ = 0;
};

TEST_F(ListingInTurnsTest, ThePageIsTheSameAsInOneGo) {
  rules_.linkIsServed = [](std::string name, FileIdentity) -> Task<bool> { co_return name != "not served"; };
  int made = 0;
  for (const int count : {0, 1, 9, 10, 11, 160, 161, 1000, 5000}) {
    for (; made < count; ++made) {
      made % 10 == 0 ? static_cast<void>(fs::create_directory(At(std::to_string(made))))
                     : WriteFile(std::to_string(made));
    }
    if (count == 11) {
      WriteFile("htaccess.txt");
      WriteFile(".dot");
      fs::create_directory(At(".dots"));
      Kit::SetDosAttributes(At("1"), "0x2");
      for (const char* link : {"served", "not served"}) fs::create_symlink("2", At(link));
      fs::create_symlink("0", At("served too"));
    }
    const std::string expected = PageInOneGo();
    for (const std::int64_t each : {std::int64_t{0}, kAWholeTurn / 3, kAWholeTurn}) {
      world_.each = each;
      EXPECT_EQ(PageInTurns(), expected) << count;
      EXPECT_GE(turnsTaken_, each == kAWholeTurn ? count / 10 : 0) << count;
      EXPECT_LE(turnsTaken_, each == 0 ? 0 : count + 2) << "in one go where time stands still";
    }
    world_.each = 0;
  }
}

TEST_F(ListingInTurnsTest, FromRememberedNamesThePageIsTheSame) {
  Fill(300);
  const auto names = RememberedNames();
  ASSERT_NE(names, nullptr);
  world_.each = kAWholeTurn;
  EXPECT_EQ(PageInTurns(names), PageInOneGo());
  EXPECT_GE(turnsTaken_, 30);
}

TEST_F(ListingInTurnsTest, OfRememberedNamesWhatChangesItsKindMeanwhileIsListedOnce) {
  rules_.linkIsServed = [](std::string, FileIdentity) -> Task<bool> { co_return true; };
  Fill(11);
  int listed = 0;
  for (int before = 0; before == 0 || turnsTaken_ >= before; ++before) {
    for (const char* name : {"10", "link"}) fs::remove(At(name));
    fs::create_directory(At("10"));
    fs::create_symlink("0", At("link"));
    world_.each = 0;
    const auto names = RememberedNames();
    ASSERT_TRUE(names && names->NamesDiffer());
    world_.each = kAWholeTurn;
    turnsTaken_ = 0;
    Making making(*this, names);
    making.Start(&turns_);
    while (turnsTaken_ < before && Turn(making)) {
    }
    for (const char* name : {"10", "link"}) fs::remove(At(name));
    WriteFile("10");
    fs::create_symlink("1", At("link"));
    while (Turn(making)) {
    }
    ASSERT_TRUE(making.page);
    const auto rows = NamesOn(*making.page);
    EXPECT_EQ(std::count(rows.begin(), rows.end(), "link"), 1) << before;
    EXPECT_LE(std::count(rows.begin(), rows.end(), "10"), 1) << before;
    listed += static_cast<int>(std::count(rows.begin(), rows.end(), "10"));
  }
  EXPECT_GT(listed, 0);
}

// The clock is looked at after each stretch, and each stretch asks whether the page may go on.
TEST_F(ListingInTurnsTest, NoMoreThanTenEntriesAreMadeBetweenTwoLooksAtTheClock) {
  Fill(1000);
  const std::string page = PageInOneGo();
  const std::size_t row = (page.size() - page.find("   <tr>\r\n       <td>&nbsp;<a")) / 1000 + 8;
  std::size_t before = 0, most = 0;
  mayHold_ = [&](std::size_t bytes) {
    most = before == 0 ? 0 : std::max(most, bytes - before);
    before = bytes;
    return true;
  };
  world_.each = 1;
  world_.looks = 0;
  ASSERT_TRUE(PageInTurns());
  constexpr std::size_t kNamesGrow = 8 * 1024;
  EXPECT_LE(most, 10 * row + kNamesGrow);
  EXPECT_GE(world_.looks, 100);
}

TEST_F(ListingInTurnsTest, NamesThatAreNotWantedAreCutAsWell) {
  for (int i = 0; i < 3200; ++i) WriteFile(std::to_string(i));
  std::set<std::size_t> sizes;
  int beforeTheFirstRow = 0;
  mayHold_ = [&](std::size_t bytes) {
    sizes.insert(bytes);
    beforeTheFirstRow += sizes.size() == 1 ? 1 : 0;
    return true;
  };
  ASSERT_TRUE(PageInTurns());
  EXPECT_GE(beforeTheFirstRow, 3200 / 160) << "looking for folders";
}

TEST_F(ListingInTurnsTest, OtherWorkOfTheLoopIsDoneInBetween) {
  Fill(200);
  std::string order;
  const auto other = [this, &order]() -> Task<void> {
    for (int i = 0; i < 10; ++i) {
      order += 'o';
      auto next = turns_.Next();
      co_await next;
    }
  };
  Timer timer(loop_);
  Kit::Every(timer, 1, [&order] { order += 't'; });
  mayHold_ = [&order](std::size_t) {
    order += 'l';
    return true;
  };
  world_.each = kAWholeTurn;
  Making making(*this);
  making.Start(&turns_);
  const RunningTask beside = RunningTask::Start(other());
  for (int i = 0; i < 6; ++i) {
    world_.Advance(1);
    loop_.RunOnce(0);
  }
  EXPECT_FALSE(making.isDone);
  EXPECT_EQ(std::count(order.begin(), order.end(), 't'), 6);
  for (const char* together : {"ll", "oo"}) EXPECT_THAT(order.substr(0, 12), Not(HasSubstr(together)));
  EXPECT_GE(std::count(order.begin(), order.end(), 'l'), 3);
}

TEST_F(ListingInTurnsTest, EachNameIsListedOnceWhateverHappensMeanwhile) {
  for (const char* place : {"", "/dev/shm"}) {
    const Kit::TemporaryTree tree(*place == '\0' ? fs::temp_directory_path() : fs::path(place));
    MakeFolderAt(tree.Text() + "/folder");
    Fill(300);
    world_.each = kAWholeTurn;
    Making making(*this);
    making.Start(&turns_);
    for (int i = 0; Turn(making); ++i) {
      const std::string name = std::to_string(i % 200);  // the others stay as they are
      fs::remove(At(name));
      i % 3 == 0 ? static_cast<void>(fs::create_directory(At(name))) : WriteFile(name, "another");
      WriteFile("new " + std::to_string(i));
      fs::rename(At("new " + std::to_string(i)), At("newer " + std::to_string(i)));
    }
    ASSERT_TRUE(making.page);
    auto names = NamesOn(*making.page);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end()) << place;
    for (int i = 200; i < 300; ++i) {
      EXPECT_TRUE(std::binary_search(names.begin(), names.end(), std::to_string(i))) << place << " " << i;
    }
    EXPECT_TRUE(IsWhole(*making.page));
    EXPECT_GT(turnsTaken_, 30);
  }
}

TEST_F(ListingInTurnsTest, AFolderThatGoesMeanwhileHasNoMoreRows) {
  Fill(300);
  const std::size_t whole = NamesOn(PageInOneGo()).size();
  world_.each = kAWholeTurn;
  Making making(*this);
  making.Start(&turns_);
  for (int i = 0; i < 15; ++i) Turn(making);
  fs::remove_all(folder_);
  while (Turn(making)) {
  }
  ASSERT_TRUE(making.page);
  const std::size_t rows = NamesOn(*making.page).size();
  EXPECT_GT(rows, 0U);
  EXPECT_LT(rows, whole);
  EXPECT_TRUE(IsWhole(*making.page));
}

TEST_F(ListingInTurnsTest, OneThatIsDestroyedLeavesNothing) {
  Fill(60);
  fs::create_symlink("1", At("link"));
  rules_.linkIsServed = [this](std::string, FileIdentity) -> Task<bool> {
    auto next = turns_.Next();
    co_await next;
    co_return true;
  };
  world_.each = kAWholeTurn;
  ASSERT_EQ(PageInTurns(), [this] {
    rules_.linkIsServed = [](std::string, FileIdentity) -> Task<bool> { co_return true; };
    return PageInOneGo();
  }());
  const int all = turnsTaken_;
  const std::size_t descriptors = Kit::CountDescriptors();
  for (int turns = 0; turns <= all; ++turns) {
    {
      Making making(*this);
      making.Start(&turns_);
      for (int i = 0; i < turns; ++i) Turn(making);
      EXPECT_EQ(making.isDone, turns == all);
    }
    EXPECT_EQ(TaskPromise::living, 0);
    EXPECT_EQ(Kit::CountDescriptors(), descriptors);
    EXPECT_FALSE(loop_.RunOnce(0)) << "nothing is posted any more";
  }
}

TEST_F(ListingInTurnsTest, APageThatMayNotGoOnIsNotMade) {
  Fill(300);
  std::size_t most = 0;
  mayHold_ = [&most](std::size_t bytes) {
    most = bytes;
    return bytes <= 20'000;
  };
  world_.each = kAWholeTurn;
  EXPECT_EQ(PageInTurns(), std::nullopt);
  EXPECT_GT(most, 20'000U);
  EXPECT_LT(most, 40'000U) << "it ends where it is refused";
  EXPECT_EQ(TaskPromise::living, 0);
}

TEST_F(ListingInTurnsTest, AllThatThePageTakesIsAskedFor) {
  Fill(300);
  std::size_t latest = 0;
  mayHold_ = [&latest](std::size_t bytes) {
    EXPECT_GE(bytes, latest);
    latest = bytes;
    return true;
  };
  const auto page = PageInTurns();
  ASSERT_TRUE(page);
  EXPECT_GE(latest + 64, page->size()) << "but for the end of the page";
}

// A string that grows moves its bytes.
TEST_F(ListingInTurnsTest, ALongPageIsNotMoved) {
  for (int i = 0; i < 30; ++i) WriteFile(std::to_string(i));
  std::string longPath = "/" + std::string(60'000, 'p');
  for (const bool inTurns : {false, true}) {
    Making making(*this);
    making.urlPath = longPath;
    if (inTurns) {
      making.Start(&turns_);
      while (Turn(making)) {
      }
    } else {
      making.page = making.listing.GetDirListing(making.localDir, making.urlPath, making.serverName);
    }
    EXPECT_GT(making.page->size(), 1'000'000U);
    EXPECT_GE(making.page->capacity(), cls_DirListing::kMaxListingBytes) << "it had room for all there can be";
  }
}

TEST_F(ListingInTurnsTest, APageEndsAtItsLimit) {
  for (int i = 0; i < 700; ++i) WriteFile(std::to_string(i));
  Making making(*this);
  making.urlPath = "/" + std::string(100'000, 'p');
  std::string urlPath = making.urlPath, localDir;
  world_.each = kAWholeTurn;
  making.Start(&turns_);
  while (Turn(making)) {
  }
  Making atOnce(*this);
  const std::string expected = atOnce.listing.GetDirListing(localDir, urlPath, making.serverName);
  EXPECT_TRUE(making.page == expected) << "of some MiB";
  EXPECT_GE(turnsTaken_, 650) << "a row is as long as a stretch may be";
}

// /proc is no file system of a disk.
TEST_F(ListingInTurnsTest, AFolderOnADiskThatMayWaitIsReadBesideTheLoop) {
  folder_ = "/proc/sys/kernel";
  const auto expected = NamesOn(PageInOneGo());
  ASSERT_GT(expected.size(), 40U);
  std::promise<void> opened;
  const std::shared_future<void> open = opened.get_future().share();
  const auto holds = [this, open]() -> Task<void> {
    auto held = workers_.Do(Workers::Kind::kFiles, [open] {
      open.wait();
      return 1;
    });
    co_await held;
  };
  std::vector<RunningTask> holders;
  for (int i = 0; i < Workers::kMaxOfAKind; ++i) holders.push_back(RunningTask::Start(holds()));
  Making making(*this);
  making.Start(&turns_);
  std::string order;
  loop_.Post([&] { order += making.isDone ? "done" : "other work"; });
  while (loop_.RunOnce(0)) {
  }
  EXPECT_EQ(order, "other work");
  EXPECT_FALSE(making.isDone);
  opened.set_value();
  for (const auto start = Kit::Clock::now(); !making.isDone && Kit::Since(start) < Kit::kTooLong;) loop_.RunOnce(100);
  ASSERT_TRUE(making.page);
  EXPECT_EQ(NamesOn(*making.page), expected);
  for (const RunningTask& each : holders) {
    for (const auto start = Kit::Clock::now(); !each.IsDone() && Kit::Since(start) < Kit::kTooLong;) loop_.RunOnce(100);
  }
}

TEST_F(ListingInTurnsTest, OneThatIsDestroyedWhileItsFolderIsReadLeavesNothing) {
  folder_ = "/proc/sys/kernel";
  const std::size_t descriptors = Kit::CountDescriptors();  // before any thread has one
  ASSERT_TRUE(PageInTurns());
  for (int turns = 0; turns < 4; ++turns) {
    {
      Making making(*this);
      making.Start(&turns_);
      for (int i = 0; i < turns; ++i) Turn(making);
      EXPECT_FALSE(making.isDone);
    }
    EXPECT_EQ(TaskPromise::living, 0);
  }
  for (const auto start = Kit::Clock::now();
       Kit::CountDescriptors() > descriptors && Kit::Since(start) < Kit::kTooLong;) {
    loop_.RunOnce(10);
  }
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
}

TEST_F(ListingInTurnsTest, WithoutThreadsEverythingIsReadInTheTurns) {
  folder_ = "/proc/sys/kernel";
  workers_.Count(0);
  world_.each = kAWholeTurn;
  const auto page = PageInTurns();
  ASSERT_TRUE(page);
  EXPECT_EQ(NamesOn(*page), NamesOn(PageInOneGo()));
}

}  // namespace
}  // namespace TesselServer
