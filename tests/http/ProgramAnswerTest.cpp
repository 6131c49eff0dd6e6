#include <gtest/gtest.h>

#include <algorithm>

#include "http/cls_CGI.h"
#include "http/cls_HTTP.h"
#include "tests/kit/AnswerText.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

// Notes how it was called and prints a fixed text.
class FakeRunner : public ProgramRunner {
 public:
  ProgramResult Run(const ProgramStart& start) override {
    ++runs;
    seen = start;
    ProgramResult result;
    result.ended = true;
    result.output = "output";
    return result;
  }
  int runs = 0;
  ProgramStart seen;
};

class ProgramAnswerTest : public testing::Test {
 protected:
  ProgramAnswerTest() { record_.Runner(&runner_); }

  Answer Process(std::string_view name, bool wantHeader = true) {
    return record_.ProcessFile(RootFolder(tree_.Text()).Find(name), tree_.Text() + "/" + std::string(name), "200",
                               wantHeader, "", info_, "request body");
  }

  Kit::FakeWorld world_;
  cls_HTTP record_{world_};
  FakeRunner runner_;
  RequestInfo info_;
  Kit::TemporaryTree tree_;
};

TEST_F(ProgramAnswerTest, AProgramIsRunOnlyWithCGI) {
  const std::string path = tree_.Write("test.exe", "bytes");
  tree_.Write("page.htm", "text");
  EXPECT_EQ(Kit::WholeText(Process("test.exe")), cls_CGI().CGIWarningPage());
  EXPECT_EQ(runner_.runs, 0) << "CGI is off";
  record_.CGIEnable(true);
  info_.QueryString = "a=1";
  EXPECT_EQ(Kit::BodyText(Process("TEST.EXE")), "output");
  EXPECT_EQ(runner_.seen.file, path);
  EXPECT_TRUE(runner_.seen.arguments.empty()) << "the query is a variable, not an argument";
  const auto& variables = runner_.seen.environment;
  EXPECT_EQ(std::count(variables.begin(), variables.end(), std::pair<std::string, std::string>("QUERY_STRING", "a=1")),
            1);
  Process("page.htm");
  EXPECT_EQ(runner_.runs, 1) << "a page is no program";
}

TEST_F(ProgramAnswerTest, WithoutARunnerTheTextSaysThatNothingWasRun) {
  tree_.Write("test.exe", "bytes");
  record_.CGIEnable(true);
  record_.Runner(nullptr);
  EXPECT_TRUE(Kit::BodyText(Process("test.exe", false)).starts_with("Create::Process Failed."));
}

}  // namespace
}  // namespace TesselServer
