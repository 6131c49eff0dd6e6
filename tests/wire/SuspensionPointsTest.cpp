// Whatever happens while an answer waits, at whatever point, nothing is left of it and the server serves on: a stop, a
// start, the end of the control, of the client, another client on the same Index, another value of a property.
//
// Each kind of answer is made a few times to count its points, and then again for each of them and each thing that may
// happen: between two turns, inside an event of another request, and inside its own events.

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
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

// How often it is tried to reach a point, where runs are not all alike.
constexpr int kTries = 5;

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

  // Whether it succeeds, at one of so many tries.
  static bool AtLast(const std::function<bool()>& succeeds, int tries = kTries) {
    for (int i = 0; i < tries; ++i) {
      if (succeeds()) return true;
    }
    return false;
  }

  // Makes `happen` happen at each point that a run comes to; it returns whether its run did. The first `reached` points
  // must be.
  void AtEveryPoint(const std::string& what, int reached, const std::function<bool(int point)>& happen) const {
    for (int point = 0;; ++point) {
      SCOPED_TRACE(what + " at point " + std::to_string(point));
      const int tries = point < plain.points ? kTries : 1;
      if (AtLast([&] { return happen(point); }, tries)) continue;
      if (point >= reached) return;
      ADD_FAILURE() << "it is not reached";
    }
  }

  // The answer of a control whose property was changed before the request.
  std::string Changed(const Change& change) {
    Stage stage(kind, site, 1);
    change.make(*stage.tessel, site);
    stage.Ask();
    EXPECT_TRUE(stage.Finish());
    return WithoutDate(stage.first->Received());
  }

  // Makes the change at this point, where the run comes to it. The answer is the one without it, or the later one.
  bool IsChangedAt(int point, const Change& change, const std::string& changed) {
    Stage stage(kind, site, 1);
    if (!stage.RunTo(point)) return false;
    change.make(*stage.tessel, site);
    EXPECT_TRUE(stage.Finish()) << "it hangs";
    EXPECT_THAT(WithoutDate(stage.first->Received()),
                testing::AnyOf(plain.answer, changed, testing::HasSubstr(change.meanwhile)));
    EXPECT_EQ(WithoutDate(stage.Exchange(stage.Request())), changed);
    CheckRemains(stage, plain, false);
    return true;
  }

  const Kind& kind = GetParam();
  Site& site = SiteOf(kind);
  const Plain& plain = PlainOf(kind, site);
  // So many points each run has; where threads and programs have their own speed, half of those that the plain ones
  // had.
  const int sure = kind.isExact ? plain.points : (plain.points + 1) / 2;

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
      Plain plain = PlainRun(kind, site);
      for (int i = 0; i < 4; ++i) plain.points = std::min(plain.points, PlainRun(kind, site).points);
      plains_[kind.name] = plain;
    }
    return plains_[kind.name];
  }

  static inline std::map<std::string, Plain> plains_;
  static inline std::map<void (*)(const Site&), std::unique_ptr<Site>> sites_;
};

TEST_P(SuspensionPointsTest, BetweenTurns) {
  for (const Action& action : Actions()) {
    AtEveryPoint(action.name, sure, [&](int point) {
      Stage stage(kind, site, 1);
      if (!stage.RunTo(point)) return false;
      action.act(stage);
      const bool serves = stage.tessel && stage.tessel->ServerRunning();
      if (!serves) stage.framesOfOthers = 0;
      EXPECT_TRUE(serves || stage.ComesToNothing()) << TaskPromise::living;
      Check(stage, action);
      return true;
    });
  }
}

TEST_P(SuspensionPointsTest, AClientThatHasGoneIsNotWaitedFor) {
  AtEveryPoint("the client goes away", sure, [&](int point) {
    Stage stage(kind, site, 1);
    if (!stage.RunTo(point)) return false;
    stage.first->Abort();
    EXPECT_TRUE(stage.ComesToNothing()) << TaskPromise::living;
    EXPECT_TRUE(stage.Finish());
    CheckRemains(stage, plain, true);
    return true;
  });
}

// The event comes in the turn after the point, so that at the last one the first client may have been answered by then.
TEST_P(SuspensionPointsTest, InsideAnEventOfAnotherRequest) {
  for (const Action& action : Actions()) {
    AtEveryPoint(action.name, std::max(1, sure - 1), [&](int point) {
      Stage stage(kind, site, 2);
      stage.other = std::make_unique<Kit::RawClient>(stage.tessel->ListeningPort());
      const std::string aside = stage.Get(kind.aside);
      stage.other->Send(stage.loop, aside.substr(0, 4));
      EXPECT_TRUE(stage.loop.RunOnce(1000)) << "it is accepted";
      if (!stage.RunTo(point)) return false;
      bool isLogged = false, hasHappened = false;
      stage.onEvent = [&](const std::string& text) {
        if (isLogged || text.find(kind.aside) == std::string::npos) return;
        isLogged = true;
        if (!stage.IsUnderWay()) return;
        hasHappened = true;
        action.act(stage);
      };
      stage.other->Send(stage.loop, aside.substr(4));
      EXPECT_TRUE(Kit::RunUntil(stage.loop, [&] { return isLogged; }));
      if (hasHappened) Check(stage, action);
      return hasHappened;
    });
  }
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

// Each property by itself, at every point.
TEST_P(SuspensionPointsTest, APropertyIsChanged) {
  for (const Change& change : Changes()) {
    const std::string changed = Changed(change);
    AtEveryPoint(change.name, sure, [&](int point) { return IsChangedAt(point, change, changed); });
  }
}

INSTANTIATE_TEST_SUITE_P(Each, SuspensionPointsTest, testing::ValuesIn(Kinds()),
                         [](const auto& of) { return std::string(of.param.name); });

}  // namespace
}  // namespace TesselServer::Suspension
