// What the loops of one process share below the control: the registry, the children that were left over, the world.

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "http/cls_HTTP.h"
#include "platform/loop/EventLoop.h"
#include "platform/programs/ChildPrograms.h"
#include "platform/settings/CRegSettings.h"
#include "platform/tasks/Workers.h"
#include "platform/world/World.h"
#include "tests/kit/Await.h"
#include "tests/kit/Programs.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

constexpr int kThreads = 4;

// Runs `body` with the numbers 0 to kThreads - 1, each on a thread of its own, all at once.
void OnThreads(const std::function<void(int)>& body) {
  std::atomic<int> waiting = kThreads;
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&, number] {
      for (--waiting; waiting > 0;) std::this_thread::yield();
      body(number);
    });
  }
  for (std::thread& each : threads) each.join();
}

TEST(SharedByLoopsTest, TheRegistryIsWrittenAndReadByAll) {
  RegistryStore& registry = SystemWorld().Registry();
  OnThreads([&registry](int number) {
    const CRegSettings settings(registry);
    const std::string own = ".threads" + std::to_string(number);
    for (int i = 0; i < 500; ++i) {
      const std::uint64_t before = registry.Revision();
      const std::string type = "type/" + std::to_string(i);
      EXPECT_TRUE(registry.PutContentType(own, type));
      EXPECT_TRUE(registry.PutContentType(".threads", type));
      EXPECT_GE(registry.Revision(), before + 2);
      EXPECT_EQ(settings.GetValue("HKEY_CLASSES_ROOT", own, "Content Type", ""), type);
      EXPECT_TRUE(settings.GetValue("HKEY_CLASSES_ROOT", ".threads", "Content Type", "").starts_with("type/"));
      EXPECT_EQ(settings.GetValue("HKEY_CLASSES_ROOT", ".png", "Content Type", ""), "image/png");
    }
  });
}

TEST(SharedByLoopsTest, ProgramsAreStartedByAllAndLeftToAll) {
  const Kit::TemporaryTree tree;
  const Kit::Gate gate(tree);
  const std::string quick = Kit::WriteProgram(tree, "quick", "printf \"$NUMBER\"");
  const std::string slow = Kit::WriteProgram(tree, "slow", "read line < $here/gate");
  constexpr int kEach = 5;
  OnThreads([&](int number) {
    EventLoop loop;
    const std::string text = std::to_string(number);
    for (int i = 0; i < kEach; ++i) {
      Workers workers(loop);
      ChildPrograms programs(loop, workers);
      EXPECT_FALSE(Kit::Await(loop, Kit::Run(programs, {.file = slow, .outputLimit = 100})).ended);
      const ProgramResult result = Kit::Await(
          loop,
          Kit::Run(programs,
                   {.file = quick, .environment = {{"NUMBER", text}}, .waitMilliseconds = 20'000, .outputLimit = 100}));
      EXPECT_EQ(result.output, text);
      EXPECT_EQ(result.exitCode, 0);
    }
  });
  gate.Open(kThreads * kEach);
  EXPECT_TRUE(Kit::Eventually([] {
    EventLoop loop;
    Workers workers(loop);
    const ChildPrograms collecting(loop, workers);
    return Kit::HasNoChild();
  })) << "a later loop collects what others have left over";
}

TEST(SharedByLoopsTest, EachLoopRunsManyProgramsAtOnceAndLetsSomeOfThemGo) {
  const Kit::TemporaryTree tree;
  const std::string quick = Kit::WriteProgram(tree, "quick", "printf \"$NUMBER\"");
  using Running = Kit::Pending<ProgramResult>;
  OnThreads([&](int number) {
    EventLoop loop;
    Workers workers(loop);
    ChildPrograms programs(loop, workers);
    programs.MaxPrograms(3);
    std::deque<Running> running;
    for (int i = 0; i < 12; ++i) {
      const std::string text = std::to_string(100 * number + i);
      running.emplace_back(
          Kit::Run(programs,
                   {.file = quick, .environment = {{"NUMBER", text}}, .waitMilliseconds = 20'000, .outputLimit = 100}));
    }
    running.pop_front();  // its start is perhaps under way
    running.pop_back();   // it waits for a place
    for (int i = 1; Running & each : running) {
      EXPECT_TRUE(Kit::TurnUntil(loop, [&] { return each.IsDone(); }));
      EXPECT_EQ(each.Take().output, std::to_string(100 * number + i++));
    }
  });
  EXPECT_TRUE(Kit::Eventually([] {
    EventLoop loop;
    Workers workers(loop);
    const ChildPrograms collecting(loop, workers);
    return Kit::HasNoChild();
  }));
}

TEST(SharedByLoopsTest, TheWorldAnswersAll) {
  World& world = SystemWorld();
  const std::int32_t bias = world.BiasMinutes(1'794'766'805);
  OnThreads([&](int) {
    for (int i = 0; i < 100; ++i) {
      EXPECT_EQ(world.BiasMinutes(1'794'766'805), bias);
      EXPECT_TRUE(world.AddressOf("127.0.0.1"));
      EXPECT_EQ(world.LocalHostName(), SystemWorld().LocalHostName());
    }
    world.LocalAddress();
  });
}

TEST(SharedByLoopsTest, NewRecordsBeginWithTheSameSettingsOnAllThreads) {
  OnThreads([](int number) {
    for (int i = 0; i < 200; ++i) {
      cls_HTTP record(SystemWorld());
      EXPECT_EQ(record.ServerName(), "");
      record.ServerName(std::to_string(number));
      EXPECT_EQ(record.ServerName(), std::to_string(number));
      EXPECT_EQ(record.ContentTypeOf("a.png"), "image/png");
    }
  });
}

}  // namespace
}  // namespace TesselServer
