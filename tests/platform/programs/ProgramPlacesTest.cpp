#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

#include "platform/loop/EventLoop.h"
#include "platform/programs/ProgramPlaces.h"
#include "platform/programs/TimeLimit.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

struct ProgramPlacesTest : testing::Test {
  ~ProgramPlacesTest() override {
    tasks.clear();
    in.clear();
    EXPECT_EQ(TaskPromise::living, 0);
  }

  Task<void> Come(char name, std::int64_t milliseconds) {
    TimeLimit limit(loop, milliseconds);
    ProgramPlaces::Arrival arrival(places, limit);
    const ProgramPlaces::Place place = co_await arrival;
    order += place ? name : '-';
    if (place) in[name] = place;
  }
  // One after the other; each keeps its place until it goes.
  void Arrive(const std::string& names, std::int64_t milliseconds = 1000) {
    for (const char name : names) tasks[name] = RunningTask::Start(Come(name, milliseconds));
  }
  void Go(char name) { in.erase(name); }
  void RunTurns() {
    while (loop.RunOnce(0)) {
    }
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  ProgramPlaces places{loop, 2};
  std::map<char, ProgramPlaces::Place> in;
  std::map<char, RunningTask> tasks;
  std::string order;  // of those that were let in, "-" for each that was not
};

TEST_F(ProgramPlacesTest, AsManyAreLetInAtOnceAndTheOthersInOrderOfArrival) {
  Arrive("zaybxc");
  EXPECT_EQ(order, "za");
  RunTurns();
  EXPECT_EQ(order, "za");
  Go('a');
  EXPECT_EQ(order, "za") << "the next one comes in a turn of the loop";
  RunTurns();
  EXPECT_EQ(order, "zay");
  Go('z');
  Go('y');
  RunTurns();
  EXPECT_EQ(order, "zaybx");
  Go('b');
  RunTurns();
  EXPECT_EQ(order, "zaybxc");
}

TEST_F(ProgramPlacesTest, ANewcomerDoesNotOvertakeThoseThatWait) {
  Arrive("abc");
  Go('a');
  Arrive("d");
  EXPECT_EQ(order, "ab") << "the free place is that of c";
  RunTurns();
  EXPECT_EQ(order, "abc");
}

TEST_F(ProgramPlacesTest, OneWhoseTimeIsOverGoesWithoutAPlace) {
  Arrive("ab");
  Arrive("c", 500);
  Arrive("d", 2000);
  world.Advance(499);
  RunTurns();
  EXPECT_EQ(order, "ab");
  world.Advance(1);
  RunTurns();
  EXPECT_EQ(order, "ab-");
  Go('a');
  RunTurns();
  EXPECT_EQ(order, "ab-d");
}

TEST_F(ProgramPlacesTest, OneWithoutTimeTakesAPlaceThatIsFreeOrNone) {
  Arrive("abc", 0);
  EXPECT_EQ(order, "ab-");
}

TEST_F(ProgramPlacesTest, OneThatIsDestroyedWhileItWaitsLeavesTheQueue) {
  Arrive("abcd");
  tasks.erase('c');
  Go('a');
  tasks['e'] = RunningTask::Start(Come('e', 1000));
  RunTurns();
  EXPECT_EQ(order, "abd");
  tasks.erase('e');
  Go('b');
  RunTurns();
  world.Advance(10'000);
  EXPECT_FALSE(loop.RunOnce(0)) << "no timer is left";
}

TEST_F(ProgramPlacesTest, TheWholeQueueMayGoWhileAPlaceIsOffered) {
  Arrive("abc");
  Go('a');
  tasks.erase('c');
  RunTurns();
  EXPECT_EQ(order, "ab");
  Arrive("d");
  EXPECT_EQ(order, "abd") << "the place is still free";
}

TEST_F(ProgramPlacesTest, MorePlacesLetInMoreAndFewerLetNobodyGo) {
  Arrive("abcdef");
  places.Most(4);
  RunTurns();
  EXPECT_EQ(order, "abcd");
  places.Most(1);
  Go('a');
  Go('b');
  Go('c');
  RunTurns();
  EXPECT_EQ(order, "abcd");
  Go('d');
  RunTurns();
  EXPECT_EQ(order, "abcde");
}

TEST_F(ProgramPlacesTest, WithoutAnyEachWaitsForItsTime) {
  places.Most(0);
  Arrive("a");
  RunTurns();
  EXPECT_EQ(order, "");
  world.Advance(1000);
  RunTurns();
  EXPECT_EQ(order, "-");
}

// The host may do anything where a task goes on.
TEST_F(ProgramPlacesTest, OneThatIsLetInMayDestroyThoseBehindIt) {
  const auto destroys = [this](char victim) -> Task<void> {
    TimeLimit limit(loop, 1000);
    ProgramPlaces::Arrival arrival(places, limit);
    const ProgramPlaces::Place place = co_await arrival;
    tasks.erase(victim);
    order += '!';
  };
  Arrive("ab");
  const RunningTask task = RunningTask::Start(destroys('c'));
  Arrive("cd");
  Go('a');
  Go('b');
  RunTurns();
  EXPECT_EQ(order, "ab!d");
}

}  // namespace
}  // namespace TesselServer
