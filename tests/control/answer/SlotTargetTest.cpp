// What a slot keeps of the file that its request leads to; ProgramRequestTest and DispatchTest have the whole road.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "control/answer/RequestTarget.h"
#include "control/answer/SlotTarget.h"
#include "tests/kit/SystemCalls.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

class SlotTargetTest : public testing::Test {
 protected:
  SlotTargetTest() {
    core.tree.Write("root/docs/index.html", "index");
    core.tree.Write("cgi/tool.exe", "program");
    state.settings.VirtualPath = core.tree.Text() + "/root";
    state.settings.CGIDirectory = core.tree.Text() + "/cgi";
    state.settings.CGIEnable = true;
  }

  // The name found for a path, with what else is kept of it.
  std::string Found(const std::string& path, const std::string& query = "") {
    slot.Fields().RequestPath = path;
    slot.Fields().RequestQuery = query;
    state.turns.Begin();
    RunNow(FindTarget(state, slot));
    const bool found = slot.Target.kind != EntryKind::kNone;
    return (found ? slot.Target.name : "none") + " " + slot.ScriptName + (slot.TargetIsInCGIDirectory ? " CGI" : "");
  }

  // A path in capitals, as MappedFileOf writes it.
  static std::string Written(const std::string& folder, const std::string& name) { return MapPath(folder, name); }

  Kit::TestCore core;
  ControlState& state = core.core.state;
  Slot slot{std::make_unique<Reception>()};
};

TEST_F(SlotTargetTest, ARequestForNothingIsNotLookedFor) {
  RunNow(FindTarget(state, slot));
  EXPECT_FALSE(slot.TargetIsKnown);
  EXPECT_EQ(slot.Target.kind, EntryKind::kNone);
}

TEST_F(SlotTargetTest, WhatIsFoundIsKept) {
  EXPECT_EQ(Found("docs/"), "docs/index.html index.html");
  EXPECT_TRUE(slot.TargetIsKnown);
  EXPECT_EQ(MappedFileOf(state, slot), Written(state.settings.VirtualPath, "docs/index.html"));
  EXPECT_EQ(Found("cgi/Tool.EXE", "x=1"), "tool.exe Tool.EXE CGI");
  EXPECT_EQ(MappedFileOf(state, slot), Written(state.settings.CGIDirectory, "tool.exe"));
  EXPECT_EQ(Found("docs/none.html"), "none none.html") << "nothing stays of the program";
  EXPECT_TRUE(slot.TargetIsKnown) << "that nothing is there is known as well";
  EXPECT_EQ(MappedFileOf(state, slot), Written(state.settings.VirtualPath, "docs/none.html"));
}

TEST_F(SlotTargetTest, WhatIsFoundStaysWhereItWasFoundWhateverTheSettingsSayByThen) {
  const std::string root = state.settings.VirtualPath, programs = state.settings.CGIDirectory;
  Found("docs/");
  state.settings.VirtualPath = core.tree.Text() + "/elsewhere";
  EXPECT_EQ(slot.TargetRoot->Path(), root);
  EXPECT_EQ(MappedFileOf(state, slot), Written(root, "docs/index.html"));
  Found("cgi/tool.exe");
  state.settings.CGIDirectory = core.tree.Text() + "/elsewhere";
  EXPECT_EQ(MappedFileOf(state, slot), Written(programs, "tool.exe"));
}

TEST_F(SlotTargetTest, ATargetThatWasLetGoIsWrittenByItsRequest) {
  Found("cgi/tool.exe");
  slot.LetGoOfTarget();
  EXPECT_EQ(MappedFileOf(state, slot), Written(state.settings.VirtualPath, "cgi/tool.exe"));
}

TEST_F(SlotTargetTest, AProgramOutsideIsOpenedAndNotRead) {
  core.world.LetFilesSettle();
  state.turns.Begin();
  slot.Fields().RequestPath = "cgi/tool.exe";
  const auto calls = Kit::SystemCallsOf([&] {
    for (int i = 0; i < 4; ++i) RunNow(FindTarget(state, slot));
  });
  EXPECT_EQ(Found("cgi/tool.exe"), "tool.exe tool.exe CGI");
  if (!calls) GTEST_SKIP() << "no process may be traced";
  EXPECT_EQ(std::count(calls->begin(), calls->end(), SYS_pread64), 0);
  EXPECT_GE(std::count(calls->begin(), calls->end(), SYS_fgetxattr), 4) << "whether it is hidden is asked each time";
}

TEST_F(SlotTargetTest, ProgramsAreThoseOfTheFolderThatTheSettingNamesNow) {
  const auto folder = state.Programs();
  EXPECT_EQ(Found("tool.exe"), "tool.exe tool.exe CGI");
  EXPECT_EQ(state.Programs(), folder);
  core.tree.Write("other/new.exe", "program");
  state.settings.CGIDirectory = core.tree.Text() + "/other";
  EXPECT_EQ(Found("tool.exe"), "none tool.exe");
  EXPECT_EQ(Found("new.exe"), "new.exe new.exe CGI");
}

TEST_F(SlotTargetTest, ProgramsAreLookedForOutsideOnlyWithCGIEnable) {
  state.settings.CGIEnable = false;
  EXPECT_EQ(Found("tool.exe"), "none tool.exe");
}

}  // namespace
}  // namespace TesselServer
