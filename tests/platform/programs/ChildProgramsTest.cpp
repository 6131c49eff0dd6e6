#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/loop/EventLoop.h"
#include "platform/programs/ChildPrograms.h"
#include "platform/tasks/Workers.h"
#include "tests/kit/Await.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/Programs.h"
#include "tests/kit/SkippingWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Failure = ProgramResult::Failure;

constexpr std::int64_t kLong = 20'000;  // milliseconds; nothing here takes that long

class ChildProgramsTest : public testing::Test {
 protected:
  ProgramResult Run(const std::string& file, std::int64_t waitMilliseconds = kLong, std::size_t outputLimit = 1024) {
    return Kit::Await(
        loop_, Kit::Run(*programs_, {.file = file, .waitMilliseconds = waitMilliseconds, .outputLimit = outputLimit}));
  }
  std::string Write(const char* name, const std::string& script) { return Kit::WriteProgram(tree_, name, script); }
  bool Exists(const char* name) const { return std::filesystem::exists(tree_.Path() / name); }

  // Lets a second of the loop's clock pass and tells whether nobody is left over.
  bool NobodyIsLeft() {
    world_.Skip(1000);
    loop_.RunOnce(0);
    return programs_->LeftOver() == 0;
  }

  // What a test left over ends before its files go.
  void TearDown() override {
    gate_.Open(100);
    EXPECT_TRUE(Kit::Eventually([this] { return NobodyIsLeft(); }));
    EXPECT_TRUE(Kit::HasNoChild());
  }

  Kit::TemporaryTree tree_;
  Kit::Gate gate_{tree_};
  Kit::SkippingWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  std::unique_ptr<ChildPrograms> programs_ = std::make_unique<ChildPrograms>(loop_, workers_);
};

void ExpectEnded(const ProgramResult& result, const std::string& output) {
  EXPECT_EQ(result.failure, Failure::kNone);
  EXPECT_EQ(result.error, 0);
  EXPECT_TRUE(result.ended);
  EXPECT_EQ(result.output, output);
}

// ---- Programs that end.

TEST_F(ChildProgramsTest, TellsWhatTheProgramPrinted) {
  ExpectEnded(Run(Write("hello", "echo hello")), "hello\n");
  ExpectEnded(Run(Write("nothing", ":")), "");
  ExpectEnded(Run(Write("failing", "printf before; exit 3")), "before");
  ExpectEnded(Run(Write("dying", "printf before; kill -9 $$")), "before");
  ExpectEnded(Run(Write("asking", "read line; printf \"<$line>\"")), "<>");
}

TEST_F(ChildProgramsTest, ReportsHowAProgramEnded) {
  ProgramResult result = Run(Write("failing", "exit 3"));
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.signal, std::nullopt);
  EXPECT_FALSE(result.outputWasCut);
  result = Run(Write("dying", "kill -11 $$"));
  EXPECT_EQ(result.exitCode, std::nullopt);
  EXPECT_EQ(result.signal, 11);
  result = Run(Write("talking", "printf 12345"), kLong, 4);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_TRUE(result.outputWasCut);
  result = Run(Write("waiting", "read line < $here/gate"), 30);
  EXPECT_FALSE(result.ended);
  EXPECT_GE(result.milliseconds, 30);
}

TEST_F(ChildProgramsTest, HandsOnArgumentsAndEnvironment) {
  const ProgramResult result =
      Kit::Await(loop_, Kit::Run(*programs_, {.file = Write("words", "printf '<%s>' \"$@\" \"$QUERY_STRING\""),
                                              .arguments = {"a=1", "; echo x", "", "$(id)"},
                                              .environment = {{"QUERY_STRING", "a=1&b=`id`"}},
                                              .waitMilliseconds = kLong,
                                              .outputLimit = 1024}));
  ExpectEnded(result, "<a=1><; echo x><><$(id)><a=1&b=`id`>");
}

TEST_F(ChildProgramsTest, KeepsTheBeginningOfMuchOutput) {
  ExpectEnded(Run(Write("5000", "printf begin; head -c 4995 /dev/zero | tr '\\0' x")),
              "begin" + std::string(1019, 'x'));
  ExpectEnded(Run(Write("5MB", "head -c 5000000 /dev/zero | tr '\\0' x; echo > $here/marker")), std::string(1024, 'x'));
  EXPECT_TRUE(Exists("marker")) << "it came to its end";
}

TEST_F(ChildProgramsTest, AGrandchildThatHoldsThePipeIsNotWaitedFor) {
  ExpectEnded(Run(Write("parent", "(read go < $here/gate; echo > $here/marker) & printf output")), "output");
  EXPECT_FALSE(Exists("marker"));
  gate_.Open();
  EXPECT_TRUE(Kit::Eventually([this] { return Exists("marker"); }));
}

TEST_F(ChildProgramsTest, AHundredLeaveNoChildAndNoDescriptor) {
  const std::string program = Write("program", "echo \"$NUMBER\"");
  const std::size_t descriptors = Kit::CountDescriptors();
  for (int i = 0; i < 100; ++i) {
    const std::string number = std::to_string(i);
    const ProgramResult result = Kit::Await(loop_, Kit::Run(*programs_, {.file = program,
                                                                         .environment = {{"NUMBER", number}},
                                                                         .waitMilliseconds = kLong,
                                                                         .outputLimit = 100}));
    ExpectEnded(result, number + "\n");
    ASSERT_TRUE(Kit::HasNoChild()) << i;
  }
  EXPECT_EQ(programs_->LeftOver(), 0u);
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
}

// ---- Programs that do not start.

TEST_F(ChildProgramsTest, TellsWhyAProgramDidNotStart) {
  tree_.Write("plain", "#!/bin/sh\n");
  struct {
    std::string file;
    int error;
  } const cases[] = {
      {tree_.Text() + "/plain", EACCES}, {tree_.Text(), EACCES}, {tree_.Text() + "/missing", ENOENT}, {"", ENOENT}};
  const std::size_t descriptors = Kit::CountDescriptors();
  for (const auto& c : cases) {
    const ProgramResult result = Run(c.file);
    EXPECT_EQ(result.failure, Failure::kStart) << c.file;
    EXPECT_EQ(result.error, c.error) << c.file;
    EXPECT_FALSE(result.ended) << c.file;
    EXPECT_EQ(result.output, "") << c.file;
    EXPECT_TRUE(Kit::HasNoChild()) << c.file;
  }
  EXPECT_EQ(programs_->LeftOver(), 0u);
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
  ExpectEnded(Run(Write("next", "echo next")), "next\n");
}

// ---- Programs that outlive their time.

TEST_F(ChildProgramsTest, OneThatOutlivesItsTimeIsAnsweredAndGoesOn) {
  const std::string program =
      Write("slow", "printf early; read go < $here/gate; echo late; echo \"wrote $?\" > $here/marker");
  const std::size_t descriptors = Kit::CountDescriptors();
  const ProgramResult result = Run(program, 200);
  EXPECT_EQ(result.failure, Failure::kNone);
  EXPECT_FALSE(result.ended);
  EXPECT_EQ(result.output, "early");
  EXPECT_EQ(programs_->LeftOver(), 1u);
  EXPECT_EQ(Kit::CountDescriptors(), descriptors) << "nobody reads it any more";
  EXPECT_FALSE(NobodyIsLeft());
  gate_.Open();
  EXPECT_TRUE(Kit::Eventually([this] { return NobodyIsLeft(); }));
  ASSERT_TRUE(Exists("marker")) << "killed instead of told";
  std::string marker;
  std::getline(std::ifstream(tree_.Path() / "marker"), marker);
  EXPECT_EQ(marker, "wrote 1") << "a write that nobody reads fails, and no more";
}

TEST_F(ChildProgramsTest, ASecondOneRunsWhileTheFirstLives) {
  const std::string program = Write("program", "printf \"$$\"; read go < $here/gate");
  EXPECT_FALSE(Run(program, 50).ended);
  ExpectEnded(Run(Write("other", "echo other")), "other\n");
  EXPECT_FALSE(Run(program, 50).ended);
  EXPECT_EQ(programs_->LeftOver(), 2u);
  gate_.Open(2);
  EXPECT_TRUE(Kit::Eventually([this] {
    ExpectEnded(Run(tree_.Text() + "/other"), "other\n");
    return programs_->LeftOver() == 0;
  })) << "each run collects those before it";
}

TEST_F(ChildProgramsTest, NoTimeStartsAndDoesNotWait) {
  const ProgramResult result = Run(Write("program", "read go < $here/gate; echo > $here/marker"), 0);
  EXPECT_EQ(result.failure, Failure::kNone);
  EXPECT_FALSE(result.ended);
  gate_.Open();
  EXPECT_TRUE(Kit::Eventually([this] { return Exists("marker"); }));
}

TEST_F(ChildProgramsTest, SoManyMayBeLeftOver) {
  const std::string program = Write("program", "echo >> $here/count; read go < $here/gate");
  for (std::size_t i = 0; i < ChildPrograms::kMaxLeftOver; ++i) {
    ASSERT_EQ(Run(program, 0).failure, Failure::kNone) << i;
  }
  EXPECT_EQ(programs_->LeftOver(), ChildPrograms::kMaxLeftOver);
  const ProgramResult refused = Run(Write("refused", "echo > $here/marker"));
  EXPECT_EQ(refused.failure, Failure::kStart);
  EXPECT_EQ(refused.error, EAGAIN);
  ASSERT_TRUE(Kit::Eventually([this] {
    return Exists("count") && std::filesystem::file_size(tree_.Path() / "count") == ChildPrograms::kMaxLeftOver;
  })) << "those before it do run";
  EXPECT_FALSE(Exists("marker"));

  gate_.Open();
  EXPECT_TRUE(Kit::Eventually([this] { return Run(tree_.Text() + "/refused").failure == Failure::kNone; }));
  EXPECT_TRUE(Exists("marker"));
  EXPECT_EQ(programs_->LeftOver(), ChildPrograms::kMaxLeftOver - 1);
}

TEST_F(ChildProgramsTest, ChildrenOfADestroyedObjectAreNotCountedAndAreCollected) {
  EXPECT_FALSE(Run(Write("program", "read go < $here/gate; echo > $here/marker"), 50).ended);
  const std::size_t descriptors = Kit::CountDescriptors();
  programs_ = nullptr;
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
  programs_ = std::make_unique<ChildPrograms>(loop_, workers_);
  EXPECT_EQ(programs_->LeftOver(), 0u);
  EXPECT_FALSE(Kit::HasNoChild());
  gate_.Open();
  EXPECT_TRUE(Kit::Eventually([this] { return NobodyIsLeft() && Kit::HasNoChild(); }));
  EXPECT_TRUE(Exists("marker"));
}

TEST_F(ChildProgramsTest, TheRealClockCollectsThemToo) {
  EventLoop loop;
  Workers workers(loop);
  ChildPrograms programs(loop, workers);
  EXPECT_FALSE(
      Kit::Await(loop, Kit::Run(programs, {.file = Write("program", "read go < $here/gate"), .waitMilliseconds = 0}))
          .ended);
  gate_.Open();
  for (int turn = 0; turn < 100 && programs.LeftOver() > 0; ++turn) loop.RunOnce(100);
  EXPECT_EQ(programs.LeftOver(), 0u);
}

}  // namespace
}  // namespace TesselServer
