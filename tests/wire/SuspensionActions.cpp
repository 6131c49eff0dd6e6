#include "tests/wire/SuspensionActions.h"

#include <gmock/gmock.h>

#include <string_view>

#include "platform/tasks/Task.h"
#include "tests/kit/Descriptors.h"
#include "tests/wire/WireControl.h"

namespace TesselServer::Suspension {

namespace {

using Kit::BodyOf;
using Kit::RunUntil;
using Kit::WithoutDate;

constexpr const char* kSmall = "/small.txt";

// ---- What is done.

void Stop(Stage& stage) { EXPECT_TRUE(stage.tessel->StopServer()); }

void Restart(Stage& stage) {
  EXPECT_TRUE(stage.tessel->StopServer());
  EXPECT_TRUE(stage.tessel->StartServer());
}

void Destroy(Stage& stage) { stage.tessel.reset(); }

void EndSending(Stage& stage) { stage.first->EndSending(); }

void GoAway(Stage& stage) { stage.first->Abort(); }

void AnswerAgain(Stage& stage) {
  if (stage.offered != 0) return;  // it would be the answer
  for (std::int32_t index = 0; index < 4; ++index) {
    stage.tessel->TrapFileData(index, "late", index % 2 != 0);
  }
}

template <std::size_t which>
void ChangeAll(Stage& stage) {
  const auto& changes = Changes();
  for (std::size_t i = which; i < changes.size(); i += 2) changes[i].make(*stage.tessel, stage.site);
}

void InitAll(Stage& stage) { stage.tessel->InitProperties(); }

// ---- What must hold then.

void IsServedAgain(Stage& stage) { EXPECT_EQ(BodyOf(stage.Exchange(stage.Get(kSmall))), "small"); }

// The first client has got nothing else than its answer, whole or not.
void HasNothingElse(const Stage& stage, const Plain& plain) {
  const std::string received = WithoutDate(stage.first->Received());
  EXPECT_EQ(received, plain.answer.substr(0, received.size()));
}

void IsStopped(Stage& stage, const Plain& plain) {
  EXPECT_FALSE(stage.tessel->ServerRunning());
  EXPECT_FALSE(stage.tessel->IsListening());
  HasNothingElse(stage, plain);
  EXPECT_TRUE(stage.tessel->StartServer());
  IsServedAgain(stage);
}

void IsStartedAgain(Stage& stage, const Plain& plain) {
  HasNothingElse(stage, plain);
  IsServedAgain(stage);
}

void IsGone(Stage& stage, const Plain& plain) {
  HasNothingElse(stage, plain);
  for (int turn = 0; turn < 10; ++turn) stage.loop.RunOnce(0);
}

void IsAnswered(Stage& stage, const Plain& plain) {
  EXPECT_EQ(WithoutDate(stage.first->Received()), plain.answer);
  IsServedAgain(stage);
}

void OthersAreServed(Stage& stage, const Plain&) { IsServedAgain(stage); }

// The next client has the same Index, for there is no other, and another answer is made for it.
void NextIsAnswered(Stage& stage, const Plain& plain) {
  EXPECT_EQ(WithoutDate(stage.Exchange(stage.Request())), plain.answer);
}

void IsAnsweredSomehow(Stage& stage, const Plain&) {
  EXPECT_EQ(stage.first->Received().substr(0, 9), "HTTP/1.0 ");
  EXPECT_EQ(stage.Exchange(stage.Request()).substr(0, 9), "HTTP/1.0 ");
}

}  // namespace

const std::vector<Action>& Actions() {
  static const std::vector<Action> actions = {
      {"stop", Stop, IsStopped},
      {"restart", Restart, IsStartedAgain},
      {"destroy", Destroy, IsGone},
      {"the client sends nothing more", EndSending, IsAnswered},
      {"the client goes away", GoAway, OthersAreServed},
      {"another one asks in its place", GoAway, NextIsAnswered},
      {"the host answers once more", AnswerAgain, IsAnswered},
      {"every property has another value", ChangeAll<0>, IsAnsweredSomehow, false},
      {"every property has a third value", ChangeAll<1>, IsAnsweredSomehow, false},
      {"every property has its default", InitAll, IsAnsweredSomehow, false},
  };
  return actions;
}

const std::vector<Change>& Changes() {
  using T = Tessel;
  using S = Site;
  static const std::vector<Change> changes = {
      {"ServerIP", [](T& t, const S&) { t.ServerIP("127.0.0.2"); }},
      {"ServerIP", [](T& t, const S&) { t.ServerIP(""); }},
      {"ServerPort", [](T& t, const S&) { t.ServerPort("1"); }},
      {"ServerPort", [](T& t, const S&) { t.ServerPort("65535"); }},
      {"ServerSoftware", [](T& t, const S&) { t.ServerSoftware("Other/1"); }},
      {"ServerSoftware", [](T& t, const S&) { t.ServerSoftware(""); }},
      {"ServerName", [](T& t, const S&) { t.ServerName("other"); }},
      {"ServerName", [](T& t, const S&) { t.ServerName(std::string(4000, 'n')); }},
      {"ContentTypeSource", [](T& t, const S&) { t.ContentTypeSource(e_ContentTypeSource::Internal); }},
      {"ContentTypeSource", [](T& t, const S&) { t.ContentTypeSource(e_ContentTypeSource::File); }},
      {"ContentTypeSourceFile", [](T& t, const S& s) { t.ContentTypeSourceFile(s.tree.Text() + "/types.txt"); }},
      {"ContentTypeSourceFile", [](T& t, const S& s) { t.ContentTypeSourceFile(s.tree.Text() + "/no-types.txt"); }},
      {"AuthenticationSource", [](T& t, const S&) { t.AuthenticationSource(e_AuthSource::DirectoryFile); }},
      {"AuthenticationSource", [](T& t, const S&) { t.AuthenticationSource(e_AuthSource::GolbalFile); }},
      {"AuthenticationSourceFile",
       [](T& t, const S& s) { t.AuthenticationSourceFile(s.tree.Text() + "/members.txt"); }},
      {"AuthenticationSourceFile", [](T& t, const S&) { t.AuthenticationSourceFile(""); }},
      {"CGIEnable", [](T& t, const S&) { t.CGIEnable(false); }, "CGI Script Processing is not enabled"},
      {"CGIEnable", [](T& t, const S&) { t.CGIEnable(true); }},
      {"CGIDirectory", [](T& t, const S& s) { t.CGIDirectory(s.tree.Text() + "/nowhere"); }},
      {"CGIDirectory", [](T& t, const S& s) { t.CGIDirectory(s.tree.Text() + "/application"); }},
      {"CGITimeout", [](T& t, const S&) { t.CGITimeout(0); }},
      {"CGITimeout", [](T& t, const S&) { t.CGITimeout(60); }},
      {"SSIEnable", [](T& t, const S&) { t.SSIEnable(false); }},
      {"SSIEnable", [](T& t, const S&) { t.SSIEnable(true); }},
      {"HTMLFunctionsEnable", [](T& t, const S&) { t.HTMLFunctionsEnable(false); }},
      {"HTMLFunctionsEnable", [](T& t, const S&) { t.HTMLFunctionsEnable(true); }},
      {"DirectoryBrowseEnable", [](T& t, const S&) { t.DirectoryBrowseEnable(false); }},
      {"DirectoryBrowseEnable", [](T& t, const S&) { t.DirectoryBrowseEnable(true); }},
      {"ErrorFilesEnable", [](T& t, const S&) { t.ErrorFilesEnable(false); }},
      {"ErrorFilesEnable", [](T& t, const S&) { t.ErrorFilesEnable(true); }},
      {"VerboseErrorsEnable", [](T& t, const S&) { t.VerboseErrorsEnable(false); }},
      {"VerboseErrorsEnable", [](T& t, const S&) { t.VerboseErrorsEnable(true); }},
      {"MaxConnections", [](T& t, const S&) { t.MaxConnections(2); }},
      {"MaxConnections", [](T& t, const S&) { t.MaxConnections(100); }},
      {"ConnectionTimeout", [](T& t, const S&) { t.ConnectionTimeout(0); }},
      {"ConnectionTimeout", [](T& t, const S&) { t.ConnectionTimeout(1); }},
      {"VirtualPath", [](T& t, const S& s) { t.VirtualPath(s.otherRoot); }},
      {"VirtualPath", [](T& t, const S&) { t.VirtualPath(""); }},
      {"IndexPageNames", [](T& t, const S&) { t.IndexPageNames("7.txt,8.txt"); }},
      {"IndexPageNames", [](T& t, const S&) { t.IndexPageNames(""); }},
      {"TrapFileEnable", [](T& t, const S&) { t.TrapFileEnable(true); }},
      {"TrapFileEnable", [](T& t, const S&) { t.TrapFileEnable(false); }},
      {"TrapFileTypes", [](T& t, const S&) { t.TrapFileTypes("exe"); }},
      {"TrapFileTypes", [](T& t, const S&) { t.TrapFileTypes(""); }},
      {"ApplicationFolder", [](T& t, const S& s) { t.ApplicationFolder(s.root); }},
      {"ApplicationFolder", [](T& t, const S&) { t.ApplicationFolder("/nowhere"); }},
      {"MaxBodyBytes", [](T& t, const S&) { t.MaxBodyBytes(0); }},
      {"MaxBodyBytes", [](T& t, const S&) { t.MaxBodyBytes(100); }},
      {"MaxBodyBytesTotal", [](T& t, const S&) { t.MaxBodyBytesTotal(0); }},
      {"MaxBodyBytesTotal", [](T& t, const S&) { t.MaxBodyBytesTotal(100); }},
      {"MaxUnsentPageBytes", [](T& t, const S&) { t.MaxUnsentPageBytes(0); }},
      {"MaxUnsentPageBytes", [](T& t, const S&) { t.MaxUnsentPageBytes(20'000); }},
      {"MaxPrograms", [](T& t, const S&) { t.MaxPrograms(1); }},
      {"MaxPrograms", [](T& t, const S&) { t.MaxPrograms(1000); }},
      {"Workers",
       [](T& t, const S& s) {
         s.ReleaseDisk();  // the loop itself waits for it from here on
         t.Workers(0);
       }},
      {"Workers", [](T& t, const S&) { t.Workers(1); }},
  };
  return changes;
}

Plain PlainRun(const Kind& kind, Site& site) {
  Plain plain;
  Stage stage(kind, site, 1);
  stage.onEvent = [&plain](const std::string&) { ++plain.events; };
  for (stage.RunTo(0); stage.IsUnderWay(); stage.Step()) ++plain.points;
  EXPECT_TRUE(stage.Finish());
  stage.onEvent = nullptr;
  plain.answer = WithoutDate(stage.first->Received());
  plain.errors = stage.errors;
  IsServedAgain(stage);
  stage.first.reset();
  stage.before.clear();
  Kit::Settle(stage.loop);
  plain.descriptors = Kit::CountDescriptors() - stage.descriptorsBefore;
  return plain;
}

void CheckRemains(Stage& stage, const Plain& plain, bool keepsDescriptors) {
  EXPECT_EQ(TaskPromise::living, 0);
  stage.site.ReleaseDisk();
  stage.first.reset();
  stage.other.reset();
  stage.before.clear();
  const auto descriptorsAre = [&](std::size_t count) {
    return RunUntil(stage.loop, [&] { return Kit::CountDescriptors() == count; });
  };
  if (stage.tessel && keepsDescriptors) {
    const std::size_t count = stage.descriptorsBefore + plain.descriptors;
    EXPECT_TRUE(descriptorsAre(count)) << Kit::CountDescriptors() << " for " << count;
  }
  EXPECT_TRUE(stage.EndChildren());
  stage.tessel.reset();
  EXPECT_TRUE(descriptorsAre(stage.descriptorsBefore)) << Kit::CountDescriptors() << " for " << stage.descriptorsBefore;
  EXPECT_EQ(stage.failures, std::vector<std::string>{});
  // a client may have gone just before its answer is handed over
  std::erase(stage.errors, "Error -  SendData. [10054] Connection reset by peer.");
  EXPECT_EQ(stage.errors, plain.errors);
}

}  // namespace TesselServer::Suspension
