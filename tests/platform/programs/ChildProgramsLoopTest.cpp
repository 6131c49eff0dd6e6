// Programs and the loop that has its turns beside them: order, cancelling, and what is left.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "platform/programs/ChildPrograms.h"
#include "platform/programs/LeftOverChildren.h"
#include "platform/tasks/Workers.h"
#include "tests/kit/Await.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/Memory.h"
#include "tests/kit/Pipe.h"
#include "tests/kit/Programs.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/SkippingWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Failure = ProgramResult::Failure;
using Running = Kit::Pending<ProgramResult>;

constexpr std::int64_t kAmple = 20'000;  // milliseconds; nothing here takes that long

// All threads that start programs, at work on something else until this goes or lets them.
class HeldStarts {
 public:
  explicit HeldStarts(Workers& workers) {
    for (int i = 0; i < Workers::kMaxOfAKind; ++i) tasks_.push_back(RunningTask::Start(Hold(workers)));
  }
  ~HeldStarts() { LetGo(); }
  void LetGo() {
    const std::scoped_lock lock(gate_->mutex);
    gate_->isOpen = true;
    gate_->changed.notify_all();
  }

 private:
  struct OpenGate {
    std::mutex mutex;
    std::condition_variable changed;
    bool isOpen = false;
  };
  Task<void> Hold(Workers& workers) {
    auto held = workers.Do(Workers::Kind::kPrograms, [gate = gate_] {
      std::unique_lock lock(gate->mutex);
      gate->changed.wait(lock, [&] { return gate->isOpen; });
      return 0;
    });
    co_await held;
  }

  std::shared_ptr<OpenGate> gate_ = std::make_shared<OpenGate>();
  std::deque<RunningTask> tasks_;
};

class ChildProgramsLoopTest : public testing::Test {
 protected:
  // What a test left over ends before its files go.
  void TearDown() override {
    running_.clear();
    gate_.Open(100);
    EXPECT_TRUE(Kit::Eventually([this] { return NothingIsLeft(); }));
    programs_ = nullptr;
    EXPECT_EQ(TaskPromise::living, 0);
  }
  bool NothingIsLeft() {
    world_.Skip(1000);
    loop_.RunOnce(0);
    return programs_->LeftOver() == 0 && Kit::HasNoChild();
  }

  std::string Write(const char* name, const std::string& script) { return Kit::WriteProgram(tree_, name, script); }
  bool Exists(const char* name) const { return std::filesystem::exists(tree_.Path() / name); }
  bool TurnUntil(const std::function<bool()>& condition) { return Kit::TurnUntil(loop_, condition); }

  Running& Start(const std::string& file, std::int64_t waitMilliseconds = kAmple) {
    return running_.emplace_back(
        Kit::Run(*programs_, {.file = file, .waitMilliseconds = waitMilliseconds, .outputLimit = 1024}));
  }
  // Lets time pass, so that children that nothing waits for are looked after.
  ProgramResult RunAsTimePasses(const std::string& file) {
    Running program(Kit::Run(*programs_, {.file = file, .waitMilliseconds = kAmple, .outputLimit = 1024}));
    EXPECT_TRUE(TurnUntil([&] {
      world_.Skip(100);
      return program.IsDone();
    }));
    return program.Take();
  }
  ProgramResult Run(const std::string& file, std::int64_t waitMilliseconds = kAmple) {
    return Kit::Await(loop_,
                      Kit::Run(*programs_, {.file = file, .waitMilliseconds = waitMilliseconds, .outputLimit = 1024}));
  }
  // Whether so many programs, each of which adds a byte to the file "count", have begun.
  bool HaveBegun(std::size_t count) const {
    std::error_code none;
    const auto size = std::filesystem::file_size(tree_.Path() / "count", none);
    return count == 0 ? bool(none) : !none && size == count;
  }

  Kit::TemporaryTree tree_;
  Kit::Gate gate_{tree_};
  Kit::SkippingWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  std::unique_ptr<ChildPrograms> programs_ = std::make_unique<ChildPrograms>(loop_, workers_);
  std::deque<Running> running_;
  std::string held_ = Write("held", "printf output; printf x >> $here/count; read go < $here/gate");
  std::string hello_ = Write("hello", "echo hello");
};

// ---- The loop has its turns.

TEST_F(ChildProgramsLoopTest, TimersTickAndWatchesAreDeliveredWhileAProgramRuns) {
  std::string order;
  const Kit::Pipe pipe;
  Kit::LoopEar ear(loop_.Core());
  ear.Watch(pipe, 1);
  ear.onEvents = [&](std::uint64_t) {
    pipe.Drain();
    order += "w";
    gate_.Open();
  };
  Timer timer(loop_);
  timer.Interval(1);
  timer.OnTick([&] {
    timer.Enabled(order != "tt");
    order += "t";
    if (order == "ttt") pipe.Fill();
  });
  const Running& program = Start(held_);
  ASSERT_TRUE(TurnUntil([&] { return HaveBegun(1); }));
  timer.Enabled(true);
  EXPECT_TRUE(TurnUntil([&] { return program.IsDone(); }));
  EXPECT_EQ(order, "tttw");
}

TEST_F(ChildProgramsLoopTest, TheLoopIsNotHeldWhileAProgramHasNotTakenOver) {
  HeldStarts held(workers_);
  Running& program = Start(hello_);
  int ticks = 0;
  Timer timer(loop_);
  timer.Interval(1);
  timer.OnTick([&] {
    if (++ticks == 3) held.LetGo();
  });
  timer.Enabled(true);
  EXPECT_TRUE(TurnUntil([&] { return program.IsDone(); }));
  EXPECT_GE(ticks, 3);
  EXPECT_EQ(program.Take().output, "hello\n");
}

TEST_F(ChildProgramsLoopTest, AProgramThatPrintsForEverIsLetGoInTimeAndCostsLittle) {
  Running& program = Start(Write("endless", "exec yes"), 300);
  int ticks = 0;
  Timer timer(loop_);
  timer.Interval(10);
  timer.OnTick([&] { ++ticks; });
  timer.Enabled(true);
  rusage before{}, after{};
  getrusage(RUSAGE_THREAD, &before);
  ASSERT_TRUE(TurnUntil([&] { return program.IsDone(); }));
  getrusage(RUSAGE_THREAD, &after);
  const ProgramResult result = program.Take();
  EXPECT_EQ(result.failure, Failure::kNone);
  EXPECT_FALSE(result.ended);
  EXPECT_EQ(result.output.substr(0, 4), "y\ny\n");
  EXPECT_EQ(result.output.size(), 1024u);
  EXPECT_TRUE(result.outputWasCut);
  EXPECT_GE(result.milliseconds, 300);
  EXPECT_GT(ticks, 3);
  if (Kit::kSanitized) return;
  const auto microseconds = [](const rusage& usage) {
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1'000'000 + usage.ru_utime.tv_usec +
           usage.ru_stime.tv_usec;
  };
  EXPECT_LT(microseconds(after) - microseconds(before), 150'000) << "of 300,000";
}

TEST_F(ChildProgramsLoopTest, ManyRunSideBySide) {
  for (int i = 0; i < 20; ++i) Start(held_);
  EXPECT_TRUE(TurnUntil([&] { return HaveBegun(20); }));
  gate_.Open(20);
  for (Running& each : running_) {
    ASSERT_TRUE(TurnUntil([&] { return each.IsDone(); }));
    const ProgramResult result = each.Take();
    EXPECT_TRUE(result.ended);
    EXPECT_EQ(result.output, "output");
  }
  EXPECT_EQ(programs_->LeftOver(), 0u);
}

// ---- So many at once.

TEST_F(ChildProgramsLoopTest, SoManyRunAtOnceIsAPropertyWithARange) {
  EXPECT_EQ(programs_->MaxPrograms(), ChildPrograms::kDefaultMaxPrograms);
  const struct { std::int32_t given, kept; } cases[] = {{1, 1}, {0, 1}, {-5, 1}, {1000, 1000}, {1001, 1000}};
  for (const auto& c : cases) {
    programs_->MaxPrograms(c.given);
    EXPECT_EQ(programs_->MaxPrograms(), c.kept) << c.given;
  }
}

TEST_F(ChildProgramsLoopTest, TheOthersStartInOrderOfArrival) {
  programs_->MaxPrograms(1);
  const std::string program = Write("named", "printf \"$1\" >> $here/names");
  for (const char* name : {"e", "b", "d", "a", "c"}) {
    running_.emplace_back(
        Kit::Run(*programs_, {.file = program, .arguments = {name}, .waitMilliseconds = kAmple, .outputLimit = 100}));
  }
  ASSERT_TRUE(TurnUntil([&] { return running_.back().IsDone(); }));
  std::string names;
  std::getline(std::ifstream(tree_.Path() / "names"), names);
  EXPECT_EQ(names, "ebdac");
}

TEST_F(ChildProgramsLoopTest, MorePlacesLetWaitingOnesStart) {
  programs_->MaxPrograms(2);
  for (int i = 0; i < 5; ++i) Start(held_);
  ASSERT_TRUE(TurnUntil([&] { return HaveBegun(2); }));
  ProgramResult none = Run(hello_, 30);
  EXPECT_EQ(none.failure, Failure::kStart) << "its time was over before there was a place";
  EXPECT_EQ(none.error, EAGAIN);
  EXPECT_EQ(Run(hello_, 0).error, EAGAIN) << "no time, no place";
  EXPECT_TRUE(HaveBegun(2));
  programs_->MaxPrograms(5);
  EXPECT_TRUE(TurnUntil([&] { return HaveBegun(5); }));
}

TEST_F(ChildProgramsLoopTest, TheTimeInTheQueueCounts) {
  workers_.Count(0);  // what has begun is known to have begun
  programs_->MaxPrograms(1);
  Start(held_, 10'000);
  ASSERT_TRUE(TurnUntil([&] { return HaveBegun(1); }));
  Running& second = Start(held_, 15'000);
  world_.Skip(10'000);  // the first one's time is over; its child runs on, its place is free
  ASSERT_TRUE(TurnUntil([&] { return HaveBegun(2); }));
  Kit::Settle(loop_);  // what it has printed before it was seen to have begun is read
  EXPECT_FALSE(second.IsDone());
  world_.Skip(5000);
  ASSERT_TRUE(TurnUntil([&] { return second.IsDone(); }));
  const ProgramResult result = second.Take();
  EXPECT_FALSE(result.ended);
  EXPECT_EQ(result.output, "output");
  EXPECT_GE(result.milliseconds, 15'000);
  EXPECT_EQ(programs_->LeftOver(), 2u);
}

TEST_F(ChildProgramsLoopTest, AStartThatTakesTooLongIsOverInTimeAndNotMadeLater) {
  programs_->MaxPrograms(1);
  HeldStarts held(workers_);
  const ProgramResult result = Run(held_, 30);
  EXPECT_EQ(result.failure, Failure::kNone);
  EXPECT_FALSE(result.ended);
  EXPECT_GE(result.milliseconds, 30);
  EXPECT_EQ(Run(hello_, 30).error, EAGAIN) << "its place is not free before the start is over";
  held.LetGo();
  EXPECT_EQ(Run(hello_).output, "hello\n");
  EXPECT_TRUE(HaveBegun(0));
}

// ---- The clock is the loop's.

TEST(ChildProgramsClockTest, TheTimeIsThatOfTheLoopsClock) {
  const Kit::TemporaryTree tree;
  const Kit::Gate gate(tree);
  Kit::FakeWorld world;
  EventLoop loop(world);
  Workers workers(loop);
  ChildPrograms programs(loop, workers);
  const std::string file = Kit::WriteProgram(tree, "held", "printf early; echo > $here/marker; read go < $here/gate");
  Running program(Kit::Run(programs, {.file = file, .waitMilliseconds = 30'000, .outputLimit = 100}));
  ASSERT_TRUE(Kit::TurnUntil(loop, [&] { return std::filesystem::exists(tree.Path() / "marker"); }));
  world.Advance(29'999);
  while (loop.RunOnce(0)) {
  }
  EXPECT_FALSE(program.IsDone());
  world.Advance(1);
  while (loop.RunOnce(0)) {
  }
  ASSERT_TRUE(program.IsDone());
  const ProgramResult result = program.Take();
  EXPECT_FALSE(result.ended);
  EXPECT_EQ(result.output, "early");
  EXPECT_EQ(result.milliseconds, 30'000);
  EXPECT_EQ(programs.LeftOver(), 1u);
  gate.Open();
  EXPECT_TRUE(Kit::Eventually([&] {
    world.Advance(1000);
    loop.RunOnce(0);
    return Kit::HasNoChild();
  }));
}

// ---- Tasks that are destroyed.

TEST_F(ChildProgramsLoopTest, AtEachStageADestroyedTaskLeavesNoChildNoDescriptorAndAFreePlace) {
  programs_->MaxPrograms(1);
  EXPECT_EQ(Run(hello_).output, "hello\n");
  const std::size_t descriptors = Kit::CountDescriptors();
  const std::string printing = Write("printing", "printf x >> $here/count; exec yes");
  struct {
    const char* stage;
    std::function<void()> reach;
    std::size_t begun;
  } const cases[] = {
      {"waiting for a place",
       [this] {
         Start(held_);
         Start(held_);
         EXPECT_TRUE(TurnUntil([&] { return HaveBegun(1); }));
         running_.pop_back();
         EXPECT_FALSE(running_.front().IsDone());
       },
       1},
      {"offered a place",
       [this] {
         Start(held_);
         Start(held_);
         EXPECT_TRUE(TurnUntil([&] { return HaveBegun(1); }));
         running_.pop_front();  // the place goes to the next one, in a turn that does not come
       },
       1},
      {"the start not begun",
       [this] {
         HeldStarts held(workers_);
         Start(held_);
         loop_.RunOnce(0);
         running_.clear();
       },
       0},
      {"the start perhaps under way", [this] { Start("/bin/true"); }, 0},
      {"running",
       [this] {
         Start(held_);
         EXPECT_TRUE(TurnUntil([&] { return HaveBegun(1); }));
       },
       1},
      {"its output read and dropped",
       [&, this] {
         Start(printing);
         EXPECT_TRUE(TurnUntil([&] { return HaveBegun(1); }));
         for (int turn = 0; turn < 20; ++turn) loop_.RunOnce(20);
       },
       1},
  };
  for (const auto& c : cases) {
    std::filesystem::remove(tree_.Path() / "count");
    c.reach();
    running_.clear();
    if (c.begun > 0) gate_.Open(c.begun);
    EXPECT_EQ(RunAsTimePasses(hello_).output, "hello\n") << c.stage << ": the place is free";
    EXPECT_TRUE(HaveBegun(c.begun)) << c.stage;
    EXPECT_TRUE(Kit::Eventually([this] { return NothingIsLeft(); })) << c.stage;
    if (c.begun > 0) gate_.Clear();
    EXPECT_EQ(Kit::CountDescriptors(), descriptors) << c.stage;
    EXPECT_EQ(TaskPromise::living, 0) << c.stage;
  }
}

TEST_F(ChildProgramsLoopTest, AProgramThatNothingWaitsForKeepsItsPlaceUntilItHasEnded) {
  programs_->MaxPrograms(1);
  Start(held_);
  ASSERT_TRUE(TurnUntil([&] { return HaveBegun(1); }));
  running_.clear();
  Running& next = Start(hello_);
  for (int i = 0; i < 5; ++i) {
    world_.Skip(LeftOverChildren::kTickMilliseconds);
    loop_.RunOnce(0);
  }
  EXPECT_FALSE(next.IsDone());
  gate_.Open();
  EXPECT_TRUE(TurnUntil([&] {
    world_.Skip(100);
    return next.IsDone();
  }));
  EXPECT_EQ(next.Take().output, "hello\n");
}

TEST_F(ChildProgramsLoopTest, ItKeepsThePlaceNoLongerThanItsTimeLasts) {
  programs_->MaxPrograms(1);
  Start(held_, 5000);
  ASSERT_TRUE(TurnUntil([&] { return HaveBegun(1); }));
  running_.clear();
  world_.Skip(6000);
  EXPECT_EQ(RunAsTimePasses(hello_).output, "hello\n");
  EXPECT_EQ(programs_->LeftOver(), 1u) << "it runs on";
  gate_.Open();
  EXPECT_TRUE(Kit::Eventually([this] { return NothingIsLeft(); }));
}

TEST_F(ChildProgramsLoopTest, AtAnyMomentADestroyedTaskLeavesNothing) {
  Run(hello_);
  const std::size_t descriptors = Kit::CountDescriptors();
  for (int i = 0; i < 200; ++i) {
    std::optional<Running> program(
        std::in_place, Kit::Run(*programs_, {.file = "/bin/true", .waitMilliseconds = kAmple, .outputLimit = 100}));
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(i * 15);
    while (std::chrono::steady_clock::now() < end) loop_.RunOnce(0);
    program.reset();
  }
  EXPECT_EQ(Run(hello_).output, "hello\n");
  EXPECT_TRUE(TurnUntil([&] { return TaskPromise::living == 0; })) << "starts under way come to their end";
  EXPECT_TRUE(Kit::Eventually([this] { return NothingIsLeft(); }));
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
}

// ---- Everything is destroyed.

TEST_F(ChildProgramsLoopTest, ARunningTaskGoesOnWithoutTheObjectAndAWaitingOneStartsNothing) {
  programs_->MaxPrograms(1);
  Running& first = Start(held_);
  Running& second = Start(held_);
  ASSERT_TRUE(TurnUntil([&] { return HaveBegun(1); }));
  programs_ = std::make_unique<ChildPrograms>(loop_, workers_);
  gate_.Open();
  ASSERT_TRUE(TurnUntil([&] { return first.IsDone(); }));
  EXPECT_EQ(first.Take().output, "output");
  world_.Skip(kAmple);
  ASSERT_TRUE(TurnUntil([&] { return second.IsDone(); }));
  EXPECT_EQ(second.Take().error, EAGAIN);
  EXPECT_TRUE(HaveBegun(1));
}

TEST_F(ChildProgramsLoopTest, ALoopThatIsDestroyedAtAnyMomentLosesNoChild) {
  Run(hello_);
  const std::size_t descriptors = Kit::CountDescriptors();
  for (int i = 0; i < 60; ++i) {
    EventLoop loop;
    Workers workers(loop);
    ChildPrograms programs(loop, workers);
    const Running program(Kit::Run(programs, {.file = "/bin/true", .waitMilliseconds = kAmple, .outputLimit = 100}));
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(i * 25);
    while (std::chrono::steady_clock::now() < end) loop.RunOnce(0);
  }
  EXPECT_EQ(Run(hello_).output, "hello\n");
  EXPECT_TRUE(Kit::Eventually([this] {
    const ChildPrograms collecting(loop_, workers_);
    return Kit::HasNoChild();
  })) << "the next object collects what is left";
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
}

// ---- Many.

TEST_F(ChildProgramsLoopTest, TenThousandLeaveMemoryAndDescriptorsAsTheyWere) {
  const ProgramStart echo{.file = "/bin/echo", .arguments = {"one"}, .waitMilliseconds = kAmple, .outputLimit = 100};
  const auto runHundred = [&] {
    std::list<Running> hundred;
    for (int i = 0; i < 100; ++i) hundred.emplace_back(Kit::Run(*programs_, echo));
    for (Running& each : hundred) {
      ASSERT_TRUE(TurnUntil([&] { return each.IsDone(); }));
      ASSERT_EQ(each.Take().output, "one\n");
    }
  };
  runHundred();
  const std::size_t descriptors = Kit::CountDescriptors();
  const std::size_t bytes = mallinfo2().uordblks;
  for (int i = 1; i < 100; ++i) runHundred();
  EXPECT_LE(mallinfo2().uordblks, bytes + 64 * 1024) << "the least that each could leave is 32 bytes, which is 309 KiB";
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
  EXPECT_EQ(TaskPromise::living, 0);
  EXPECT_TRUE(Kit::HasNoChild());
}

// ---- Without threads.

TEST_F(ChildProgramsLoopTest, WithoutThreadsAProgramIsStartedInTheCallAndWaitedForBesideTheLoop) {
  workers_.Count(0);
  programs_->MaxPrograms(1);
  Running& first = Start(held_);
  Running& second = Start(hello_);
  Running& third = Start("/nonexistent");
  EXPECT_TRUE(Kit::Eventually([&] { return HaveBegun(1); })) << "before the loop has had a turn";
  gate_.Open();
  ASSERT_TRUE(TurnUntil([&] { return third.IsDone(); }));
  EXPECT_EQ(first.Take().output, "output");
  EXPECT_EQ(second.Take().output, "hello\n");
  EXPECT_EQ(third.Take().error, ENOENT);
  EXPECT_EQ(Run("/nonexistent").error, ENOENT);
}

}  // namespace
}  // namespace TesselServer
