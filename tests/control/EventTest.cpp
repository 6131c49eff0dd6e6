#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(EventTest, WithoutAHandlerNothingIsCalled) {
  Event<int&> event;
  EXPECT_FALSE(event.IsConnected());
  int value = 1;
  event.Raise(value);
  EXPECT_EQ(value, 1);
}

TEST(EventTest, AHandlerMayChangeTheArguments) {
  Event<std::int32_t&, std::string&> event;
  event = [](std::int32_t& number, std::string& text) {
    number += 1;
    text += "!";
  };
  EXPECT_TRUE(event.IsConnected());
  std::int32_t number = 1;
  std::string text = "a";
  event.Raise(number, text);
  EXPECT_EQ(number, 2);
  EXPECT_EQ(text, "a!");
}

TEST(EventTest, TheLatestHandlerIsTheOnlyOne) {
  Event<std::string&> event;
  std::vector<std::string> called;
  event = [&](std::string&) { called.emplace_back("first"); };
  event = [&](std::string&) { called.emplace_back("second"); };
  std::string text;
  event.Raise(text);
  EXPECT_THAT(called, ElementsAre("second"));
}

TEST(EventTest, NothingAndAnEmptyFunctionDisconnect) {
  Event<std::string&> event;
  int calls = 0;
  std::string text;
  event = [&](std::string&) { ++calls; };
  event = nullptr;
  EXPECT_FALSE(event.IsConnected());
  event.Raise(text);
  event = [&](std::string&) { ++calls; };
  event = Event<std::string&>::Handler();
  EXPECT_FALSE(event.IsConnected());
  event.Raise(text);
  EXPECT_EQ(calls, 0);
}

TEST(EventTest, AHandlerMayReplaceAndDisconnectItselfWhileItRuns) {
  Event<std::string&> event;
  std::vector<std::string> called;
  const auto kept = std::make_shared<std::string>("first");
  event = [&, kept](std::string&) {
    event = [&](std::string&) {
      event = nullptr;
      called.emplace_back("second");
    };
    called.push_back(*kept);  // still here, though replaced
  };
  std::string text;
  for (int i = 0; i < 3; ++i) event.Raise(text);
  EXPECT_THAT(called, ElementsAre("first", "second"));
}

TEST(EventTest, AHandlerMayDestroyTheEventWhileItRuns) {
  auto event = std::make_unique<Event<std::string&>>();
  const std::string kept(100, 'x');
  std::string seen;
  *event = [&event, &seen, kept](std::string&) {
    event.reset();
    seen = kept;
  };
  std::string text;
  event->Raise(text);
  EXPECT_EQ(seen, kept);
}

TEST(EventTest, AnEventAloneRaisesWhatItsHandlerRaises) {
  Event<std::string&> event;
  event = [](std::string&) { throw std::runtime_error("mine"); };
  std::string text;
  EXPECT_THROW(event.Raise(text), std::runtime_error);
}

// ---- What handlers of a control throw.

TEST(EventTest, WhatAHandlerThrowsIsReportedAndGoesNoFurther) {
  struct {
    const char* why;
    void (*raise)();
    const char* told;
  } const cases[] = {
      {"an error of ours", [] { throw Error(11, "Division by zero"); }, "[11] Division by zero"},
      {"another exception", [] { throw std::runtime_error("mine"); }, "[51] mine"},
      {"memory", [] { throw std::bad_alloc(); }, "[7] Out of memory"},
      {"anything", [] { throw 42; }, "[51] Unknown exception"},
  };
  for (const auto& c : cases) {
    Kit::TestControl control;
    control.tessel.PropertyChanged = [&](const std::string&) { c.raise(); };
    control.tessel.HTTPLog = [&](std::string&) { c.raise(); };
    control.tessel.StatusLine = [&](std::string&) { c.raise(); };
    control.tessel.AboutBox = [&](const std::string&, const std::string&) { c.raise(); };
    EXPECT_NO_THROW(control.tessel.ServerName("x")) << c.why;
    EXPECT_NO_THROW(control.tessel.ShowAboutBox()) << c.why;
    EXPECT_THAT(control.errors, ElementsAre(std::string("Error - Handler of PropertyChanged. ") + c.told,
                                            std::string("Error - Handler of AboutBox. ") + c.told));
    control.errors.clear();
    control.tessel.CGIDirectory("/cgi");
    control.errors.clear();

    EXPECT_TRUE(control.tessel.StartServer()) << c.why;
    EXPECT_TRUE(control.tessel.ServerRunning()) << c.why;
    const std::string status = std::string("Error - Handler of StatusLine. ") + c.told;
    const std::string log = std::string("Error - Handler of HTTPLog. ") + c.told;
    std::vector<std::string> expected = {status};
    expected.insert(expected.end(), 16, log);  // the start and the configuration
    expected.push_back(status);
    expected.push_back(log);
    EXPECT_EQ(control.errors, expected) << c.why;
    control.tree.Write("a.txt", "text");
    EXPECT_EQ(Kit::BodyOf(control.Get("/a.txt")), "text") << c.why;
    EXPECT_TRUE(control.tessel.StopServer()) << c.why;
  }
}

TEST(EventTest, WhatAHandlerOfLogEventThrowsIsOnlyCounted) {
  Kit::TestControl control;
  control.tessel.LogEvent = [](std::string&) { throw std::runtime_error("mine"); };
  control.tessel.PropertyChanged = [](const std::string&) { throw std::runtime_error("mine"); };
  EXPECT_NO_THROW(control.tessel.ServerName("x"));
  EXPECT_EQ(control.tessel.Stats_Errors(), "2") << "the report, and the handler of the report";
}

TEST(EventTest, ReportsAreCountedWithoutAHandler) {
  Kit::TestControl control;
  control.tessel.LogEvent = nullptr;
  control.tessel.PropertyChanged = [](const std::string&) { throw std::runtime_error("mine"); };
  control.tessel.ServerName("x");
  control.tessel.ServerName("y");
  EXPECT_EQ(control.tessel.Stats_Errors(), "2");
}

TEST(EventTest, HandlersMayComeAndGoWhileTheServerRuns) {
  Kit::TestControl control;
  control.tree.Write("a.txt", "text");
  control.Start();
  std::vector<std::string> other;
  control.tessel.HTTPLog = [&](std::string& line) {
    other.push_back(line);
    control.tessel.HTTPLog = nullptr;
  };
  control.Get("/a.txt");
  control.Get("/a.txt");
  EXPECT_EQ(other.size(), 1u);
  EXPECT_THAT(control.log, IsEmpty());
}

}  // namespace
}  // namespace TesselServer
