// Whatever happens while an answer waits, at whatever point, nothing is left of it and the server serves on: a stop, a
// start, the end of the control, of the client, another client on the same Index, another value of a property.
//
// Each kind of answer is made once to count its points, and then again for each of them and each thing that may
// happen: between two turns, inside an event of another request, and inside its own events.

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/tasks/Task.h"
#include "tests/wire/SuspensionActions.h"
#include "tests/wire/WireControl.h"

namespace TesselServer::Suspension {
namespace {

using Kit::WithoutDate;

// All of them, or of many the first, the last and some between.
std::vector<int> SomeOf(int points) {
  constexpr int kEach = 3;
  std::vector<int> some;
  for (int point = 0; point < points; ++point) {
    const int step = std::max(1, (points - 2 * kEach) / kEach);
    if (points <= 3 * kEach || point < kEach || point >= points - kEach || point % step == 0) some.push_back(point);
  }
  return some;
}

class SuspensionPointsTest : public testing::TestWithParam<Kind> {
 protected:
  static void TearDownTestSuite() {
    sites_.clear();
    plains_.clear();
  }

  void SetUp() override {
    if (std::string_view(kind.name).ends_with("SlowDisk") && !Kit::SlowDisk::IsPossible()) {
      GTEST_SKIP() << "there is no /dev/fuse for a file system in user space";
    }
    EXPECT_GT(plain.points, 0) << "it is to wait";
    EXPECT_THAT(plain.answer, testing::StartsWith("HTTP/1.0 "));
  }

  // To be called where something happened.
  void Check(Stage& stage, const Action& action) {
    EXPECT_TRUE(stage.Finish()) << "it hangs";
    action.check(stage, plain);
    CheckRemains(stage, plain, action.keepsDescriptors);
  }

  // The answer of a control whose property was changed before the request.
  std::string Changed(const Change& change) {
    Stage stage(kind, site, 1);
    change.make(*stage.tessel, site);
    stage.Ask();
    EXPECT_TRUE(stage.Finish());
    return WithoutDate(stage.first->Received());
  }

  const Kind& kind = GetParam();
  Site& site = SiteOf(kind);
  const Plain& plain = PlainOf(kind, site);

 private:
  // Kinds with the same files share them, for it takes long to write them.
  static Site& SiteOf(const Kind& kind) {
    auto& made = sites_[kind.write];
    if (made) return *made;
    made = std::make_unique<Site>();
    made->File("small.txt", "small");
    made->tree.Write("types.txt", "txt,text/other\nhtml,text/other\n");
    made->tree.Write("members.txt", "realm:Others\nbob:secret\n");
    made->tree.MakeFolder("application");
    kind.write(*made);
    made->CopyRoot();
    return *made;
  }

  static const Plain& PlainOf(const Kind& kind, Site& site) {
    if (!plains_.contains(kind.name)) {
      PlainRun(kind, site);  // what the process makes once it has from here on
      plains_[kind.name] = PlainRun(kind, site);
    }
    return plains_[kind.name];
  }

  static inline std::map<std::string, Plain> plains_;
  static inline std::map<void (*)(const Site&), std::unique_ptr<Site>> sites_;
};

TEST_P(SuspensionPointsTest, BetweenTurns) {
  int reached = 0;
  for (const Action& action : Actions()) {
    for (const int point : SomeOf(plain.points)) {
      SCOPED_TRACE(std::string(action.name) + " at point " + std::to_string(point));
      Stage stage(kind, site, 1);
      if (!stage.RunTo(point)) continue;
      ++reached;
      action.act(stage);
      const bool serves = stage.tessel && stage.tessel->ServerRunning();
      if (!serves) stage.framesOfOthers = 0;
      EXPECT_TRUE(serves || stage.ComesToNothing()) << TaskPromise::living;
      Check(stage, action);
    }
  }
  EXPECT_GE(reached, static_cast<int>(Actions().size()));
}

TEST_P(SuspensionPointsTest, AClientThatHasGoneIsNotWaitedFor) {
  for (const int point : SomeOf(plain.points)) {
    SCOPED_TRACE(point);
    Stage stage(kind, site, 1);
    if (!stage.RunTo(point)) continue;
    stage.first->Abort();
    EXPECT_TRUE(stage.ComesToNothing()) << TaskPromise::living;
    EXPECT_TRUE(stage.Finish());
    CheckRemains(stage, plain, true);
  }
}

TEST_P(SuspensionPointsTest, InsideAnEventOfAnotherRequest) {
  int reached = 0;
  for (const Action& action : Actions()) {
    for (const int point : SomeOf(plain.points)) {
      SCOPED_TRACE(std::string(action.name) + " at point " + std::to_string(point));
      Stage stage(kind, site, 2);
      stage.other = std::make_unique<Kit::RawClient>(stage.tessel->ListeningPort());
      const std::string aside = stage.Get(kind.aside);
      stage.other->Send(stage.loop, aside.substr(0, 4));
      EXPECT_TRUE(stage.loop.RunOnce(1000)) << "it is accepted";
      if (!stage.RunTo(point)) continue;
      bool isLogged = false, hasHappened = false;
      stage.onEvent = [&](const std::string& text) {
        if (isLogged || text.find(kind.aside) == std::string::npos) return;
        isLogged = true;
        if (!stage.IsSuspended()) return;
        hasHappened = true;
        action.act(stage);
      };
      stage.other->Send(stage.loop, aside.substr(4));
      EXPECT_TRUE(Kit::RunUntil(stage.loop, [&] { return isLogged; }));
      if (!hasHappened) continue;  // the first was faster
      ++reached;
      Check(stage, action);
    }
  }
  EXPECT_GE(reached, static_cast<int>(Actions().size()));
}

TEST_P(SuspensionPointsTest, InsideItsOwnEvents) {
  EXPECT_GT(plain.events, 0);
  for (const Action& action : Actions()) {
    for (int event = 0; event < plain.events; ++event) {
      SCOPED_TRACE(std::string(action.name) + " in event " + std::to_string(event));
      Stage stage(kind, site, 1);
      int raised = 0;
      stage.onEvent = [&](const std::string&) {
        if (raised++ == event) action.act(stage);
      };
      stage.Ask();
      EXPECT_TRUE(Kit::RunUntil(stage.loop, [&] {
        stage.Step();
        return raised > event;
      }));
      Check(stage, action);
    }
  }
}

TEST_P(SuspensionPointsTest, APropertyIsChanged) {
  const std::vector<int> points = SomeOf(plain.points);
  std::size_t turn = 0;
  for (const Change& change : Changes()) {
    const int point = points[turn++ % points.size()];
    SCOPED_TRACE(std::string(change.name) + " at point " + std::to_string(point));
    Stage stage(kind, site, 1);
    if (!stage.RunTo(point)) continue;
    change.make(*stage.tessel, site);
    EXPECT_TRUE(stage.Finish()) << "it hangs";
    const std::string changed = Changed(change);
    EXPECT_THAT(WithoutDate(stage.first->Received()), testing::AnyOf(plain.answer, changed));
    EXPECT_EQ(WithoutDate(stage.Exchange(stage.Request())), changed);
    CheckRemains(stage, plain, false);
  }
}

INSTANTIATE_TEST_SUITE_P(Each, SuspensionPointsTest, testing::ValuesIn(Kinds()),
                         [](const auto& of) { return std::string(of.param.name); });

}  // namespace
}  // namespace TesselServer::Suspension
