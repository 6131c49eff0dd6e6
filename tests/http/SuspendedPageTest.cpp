#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

#include "tests/kit/HeldTasks.h"
#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

// Pages that wait for a program or for the client's name.
class SuspendedPageTest : public testing::Test {
 protected:
  SuspendedPageTest() {
    site_.AllSwitchesOn();
    site_.record.ServerPort("8080");
    site_.record.Runner(&programs_);
    site_.record.Names(&names_);
    site_.request.RemoteAddr = "192.0.2.7";
    site_.host.answer = [](const Kit::FunctionHost::Call& call) { return call.params; };
    for (const char* name : {"a.exe", "b.exe"}) site_.tree.Write(name, "");
  }
  ~SuspendedPageTest() override { EXPECT_EQ(TaskPromise::living, 0) << "a frame has outlived its owner"; }

  Task<void> Make(std::string name) {
    const std::string path = site_.record.VirtualPath() + "/" + name;
    auto search = site_.record.FindFile(site_.record.VirtualPath(), name);
    FoundEntry found = co_await search;
    auto making = site_.record.ProcessFile(std::move(found), path, "200", false, "", site_.request, "");
    answer_ = Kit::BodyText(co_await making);
  }
  RunningTask Begin(std::string_view page) {
    answer_.reset();
    site_.tree.Write("page.htm", page);
    return RunningTask::Start(Make("page.htm"));
  }
  // What the record makes of a page that waits for nothing.
  std::string Next() {
    const RunningTask task = Begin("<%= SERVER_PORT %><!--#include file=\"part.htm\" --><%= Function F(x) %>");
    return answer_.value_or("it waits");
  }

  Kit::PageSite site_;
  Kit::HeldPrograms programs_;
  Kit::HeldNames names_;
  std::optional<std::string> answer_;
};

TEST_F(SuspendedPageTest, GoesOnWhereItHasWaitedForAProgram) {
  const RunningTask task = Begin("1<!--#exec cmd=\"a.exe\" -->2<!--#exec cmd=\"b.exe?x\" -->3<%= Function F(4) %>");
  names_.name.Come("client.example");
  ASSERT_EQ(programs_.starts.size(), 1u);
  EXPECT_FALSE(answer_);
  EXPECT_TRUE(site_.host.calls.empty()) << "functions come after the programs";
  programs_.Print("A");
  ASSERT_EQ(programs_.starts.size(), 2u) << "one after the other";
  EXPECT_EQ(programs_.starts[1].arguments, std::vector<std::string>{"x"});
  programs_.Print("B\r\n");
  EXPECT_TRUE(task.IsDone());
  EXPECT_EQ(answer_, "1A2B<br>34");
}

TEST_F(SuspendedPageTest, IncludedProgramsAndPagesWaitAsWell) {
  site_.tree.Write("outer.htm", "(<!--#include file=\"inner.htm\" -->)");
  site_.tree.Write("inner.htm", "[<!--#exec cmd=\"a.exe\" -->]");
  site_.request.RemoteHost.clear();
  const RunningTask task = Begin("<!--#include file=\"outer.htm\" --><!--#include file=\"b.exe\" -->");
  names_.name.Come("client.example");
  programs_.Print("A");
  programs_.Print("Content-Type: text/plain\n\nB");
  EXPECT_EQ(answer_, "([A])B");
  EXPECT_EQ(names_.asked.size(), 1u) << "once for the request, in whichever page";
}

TEST_F(SuspendedPageTest, EachSwitchIsAskedForWhenItsTurnComes) {
  const RunningTask task = Begin("<!--#exec cmd=\"a.exe\" --><%= Function F(1) %>");
  names_.name.Come("client.example");
  site_.record.HTMLFunctionsEnable(false);
  programs_.Print("A");
  EXPECT_EQ(answer_, "A<%=FunctionF(1)%>");
}

TEST_F(SuspendedPageTest, TheNameIsWaitedForOnce) {
  site_.tree.Write("part.htm", "<%= REMOTE_HOST %>");
  const RunningTask task = Begin(
      "<%= REMOTE_ADDR %> <!--#echo var=\"REMOTE_HOST\" --> <%= REMOTE_HOST %> <!--#include file=\"part.htm\" -->"
      "<!--#exec cmd=\"a.exe\" -->");
  EXPECT_EQ(names_.asked, std::vector<std::string>{"192.0.2.7"});
  ASSERT_FALSE(answer_);
  names_.name.Come("client.example");
  ASSERT_TRUE(programs_.result.IsWaitedFor());
  std::string given;
  for (const auto& [name, value] : programs_.starts[0].environment) {
    if (name == "REMOTE_HOST") given = value;
  }
  EXPECT_EQ(given, "client.example");
  programs_.Print("!");
  EXPECT_EQ(answer_, "192.0.2.7 client.example client.example client.example!");
  EXPECT_EQ(names_.asked.size(), 1u);
  EXPECT_TRUE(names_.askedNow.empty());
  EXPECT_EQ(site_.record.ServerVariable("REMOTE_HOST"), "client.example");
}

TEST_F(SuspendedPageTest, WhatTheHostAsksForIsThereInTheCall) {
  site_.record.SetRequestInfo(site_.request);
  EXPECT_EQ(site_.record.ServerVariable("REMOTE_HOST"), "name-now");
  EXPECT_EQ(names_.askedNow, std::vector<std::string>{"192.0.2.7"});
  EXPECT_TRUE(names_.asked.empty());
  EXPECT_EQ(site_.world.hostNameLookUps, 0);
}

TEST_F(SuspendedPageTest, APageThatNamesNoNameWaitsForNone) {
  site_.tree.Write("part.htm", "p");
  EXPECT_EQ(Next(), "8080px");
  EXPECT_TRUE(names_.asked.empty());
}

TEST_F(SuspendedPageTest, TheRecordServesTheNextRequestWhereverOneWasLeft) {
  site_.tree.Write("part.htm", "(<%= REMOTE_HOST %><!--#exec cmd=\"a.exe\" -->)");
  const auto goOn = [this](int steps) {
    for (int i = 0; i < steps; ++i) {
      if (names_.name.IsWaitedFor()) {
        names_.name.Come("client.example");
      } else if (programs_.result.IsWaitedFor()) {
        programs_.Print("P");
      } else {
        return false;
      }
    }
    return true;
  };
  const std::string page =
      "<!--#include file=\"part.htm\" --><!--#include file=\"b.exe\" --><!--#exec cmd=\"a.exe\" --><%= Function F(1) "
      "%>";
  int places = 0;
  for (bool isLeft = true; isLeft; ++places) {
    site_.tree.Write("part.htm", "(<%= REMOTE_HOST %><!--#exec cmd=\"a.exe\" -->)");
    {
      const RunningTask task = Begin(page);
      goOn(places);
      isLeft = !task.IsDone();
      if (!isLeft) {
        EXPECT_EQ(answer_, "(client.exampleP)PP1");
      }
    }
    EXPECT_EQ(TaskPromise::living, 0) << places;
    EXPECT_FALSE(names_.name.IsWaitedFor() || programs_.result.IsWaitedFor()) << places;
    site_.record.EndRequest();
    site_.tree.Write("part.htm", "p");
    EXPECT_EQ(Next(), "8080px") << places;
    site_.record.EndRequest();
    EXPECT_FALSE(site_.record.TakeIncludeRoom(1)) << "no page is under way";
  }
  EXPECT_EQ(places, 5) << "a name, two includes' programs and the page's own one; then it is done";
}

TEST_F(SuspendedPageTest, ErrorFilesWaitAsWell) {
  site_.tree.Write("html/errors/http404.html", "<%= REMOTE_HOST %>");
  site_.record.ApplicationFolder(site_.tree.Text());
  std::string body;
  const auto make = [](cls_HTTP& record, std::string& text) -> Task<void> {
    auto making = record.ErrorPage("404", true);
    text = Kit::BodyText(co_await making);
  };
  const RunningTask task = RunningTask::Start(make(site_.record, body));
  ASSERT_TRUE(names_.name.IsWaitedFor());
  names_.name.Come("Unknown");
  EXPECT_EQ(body, "Unknown");
}

}  // namespace
}  // namespace TesselServer
