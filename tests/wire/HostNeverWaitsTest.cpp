// While the answer to one request is being made, however long that takes, other clients are served and the host's
// timers tick. Shown by order alone: each look at the clock takes time here, so that long work takes many turns.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/loop/Timer.h"
#include "platform/tasks/Task.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/Programs.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::Gate;
using Kit::RawClient;
using Kit::WithoutDate;
using testing::ElementsAre;
using testing::HasSubstr;

class HostNeverWaitsTest : public Kit::WireTest {
 protected:
  HostNeverWaitsTest() {
    control.tessel.CGIDirectory(control.tree.Text() + "/cgi");
    control.tessel.CGIEnable(true);
    control.tessel.SSIEnable(true);
    control.tessel.DirectoryBrowseEnable(true);
    control.Write("small.txt", "small");
    control.Start(8);
  }
  ~HostNeverWaitsTest() override { EXPECT_TRUE(NoTaskIsLeft()); }

  // A start of a program, or a look-up, that is under way on a thread has a task of its own.
  bool NoTaskIsLeft() {
    return Kit::RunUntil(loop, [] { return TaskPromise::living == 0; });
  }

  static std::string Request(const std::string& url, const std::string& fields = "") {
    return "GET " + url + " HTTP/1.0\r\n" + fields + "\r\n";
  }

  // Asks for something that takes long, and while it is being made for a small file. `finish` lets it come to its end.
  // Returns the answer to the first.
  std::string WhileIsMade(
      const std::string& request, const std::function<void()>& finish = [] {}) {
    RawClient first(control.Port());
    first.Send(loop, request);
    while (TaskPromise::living == 0) loop.RunOnce(100);
    int ticks = 0;
    Timer timer(loop);
    timer.Interval(1);
    timer.OnTick([&] { ++ticks; });
    timer.Enabled(true);
    EXPECT_EQ(BodyOf(control.Get("/small.txt")), "small");
    while (ticks < 3) loop.RunOnce(10);
    EXPECT_GT(TaskPromise::living, 0) << "the first answer was not to be finished yet";
    EXPECT_EQ(control.log.size(), 1u) << "the small file's line alone";
    timer.Enabled(false);
    finish();
    return first.ReceiveAll(loop);
  }

  // The same, for work that takes long because there is much to do: as many turns as it needs.
  void IsTheSameInTurns(const std::string& url, const std::string& fields = "") {
    world.LooksTake(0);
    const std::string inOneGo = control.Ask(Request(url, fields));
    EXPECT_THAT(inOneGo, HasSubstr("HTTP/1.0 200 OK"));
    control.log.clear();
    world.LooksTake(1000);
    EXPECT_EQ(WithoutDate(WhileIsMade(Request(url, fields))), WithoutDate(inOneGo));
    world.LooksTake(0);
  }

  void Program(const std::string& name, const std::string& script) const {
    Kit::WriteProgram(control.tree, "cgi/" + name, script);
  }
};

constexpr const char* kPassesTheGate = "read line < $here/gate\nprintf done";

TEST_F(HostNeverWaitsTest, ForAProgram) {
  const Gate gate(control.tree);
  Program("slow.exe", kPassesTheGate);
  EXPECT_EQ(BodyOf(WhileIsMade(Request("/slow.exe"), [&] { gate.Open(); })), "done");
}

TEST_F(HostNeverWaitsTest, ForEachProgramOfAPage) {
  const Gate gate(control.tree);
  std::string page;
  for (char name = 'a'; name < 'f'; ++name) {
    Program(std::string(1, name) + ".exe", kPassesTheGate);
    page += std::string("<!--#exec cgi=\"") + name + ".exe\"-->,";
  }
  control.Write("page.html", page);
  EXPECT_EQ(BodyOf(WhileIsMade(Request("/page.html"), [&] { gate.Open(5); })), "done,done,done,done,done,");
}

TEST_F(HostNeverWaitsTest, ForAProgramOfAnIncludedPage) {
  const Gate gate(control.tree);
  Program("slow.exe", kPassesTheGate);
  control.Write("inner.html", "(<!--#exec cgi=\"slow.exe\"-->)");
  control.Write("page.html", "[<!--#include=\"inner.html\"-->]");
  EXPECT_EQ(BodyOf(WhileIsMade(Request("/page.html"), [&] { gate.Open(); })), "[(done)]");
}

TEST_F(HostNeverWaitsTest, ForProgramsOfSeveralClients) {
  const Gate gate(control.tree);
  Program("slow.exe", kPassesTheGate);
  std::vector<std::unique_ptr<RawClient>> others;
  for (int i = 0; i < 4; ++i) {
    others.push_back(std::make_unique<RawClient>(control.Port()));
    others.back()->Send(loop, Request("/slow.exe"));
  }
  EXPECT_EQ(BodyOf(WhileIsMade(Request("/slow.exe"), [&] { gate.Open(5); })), "done");
  for (const auto& other : others) EXPECT_EQ(BodyOf(other->ReceiveAll(loop)), "done");
}

TEST_F(HostNeverWaitsTest, ForTheNameOfAClient) {
  std::mutex mutex;
  std::condition_variable changed;
  bool mayAnswer = false;
  world.nameOf = [&](std::uint32_t) -> std::optional<std::string> {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return mayAnswer; });
    return "client.example.org";
  };
  control.Write("page.html", "[<!--#echo var=\"REMOTE_HOST\"-->]");
  const auto answer = [&] {
    const std::scoped_lock lock(mutex);
    mayAnswer = true;
    changed.notify_all();
  };
  EXPECT_EQ(BodyOf(WhileIsMade(Request("/page.html"), answer)), "[client.example.org]");
}

TEST_F(HostNeverWaitsTest, ForTheListingOfALargeFolder) {
  for (int i = 0; i < 3000; ++i) control.Write("files/" + std::to_string(i) + ".txt", "");
  IsTheSameInTurns("/files/");
}

TEST_F(HostNeverWaitsTest, ForALargePage) {
  std::string page;
  while (page.size() < 4 * 1024 * 1024)
    page += "<!--#echo var=\"SERVER_NAME\"--> <%= SERVER_PORT %>" + std::string(400, '.');
  control.Write("page.html", page);
  IsTheSameInTurns("/page.html");
}

TEST_F(HostNeverWaitsTest, ForALargePageWithoutTags) {
  control.Write("page.html", std::string(16 * 1024 * 1024, '<'));
  IsTheSameInTurns("/page.html");
}

TEST_F(HostNeverWaitsTest, ForANameInOtherCaseAmongMany) {
  for (int i = 0; i < 3000; ++i) control.Write("files/" + std::to_string(i) + ".txt", "");
  control.Write("files/Other.txt", "found");
  IsTheSameInTurns("/files/oTHER.txt");
}

TEST_F(HostNeverWaitsTest, ForALargePasswordFile) {
  std::string passwords = "realm:Members\n";
  while (passwords.size() < 15 * 1024 * 1024) passwords += "somebody:else\n";
  control.Write("guarded/htaccess.txt", passwords + "ann:secret\n");
  control.Write("guarded/file.txt", "guarded");
  control.tessel.AuthenticationSource(e_AuthSource::DirectoryFile);
  IsTheSameInTurns("/guarded/file.txt", "Authorization: Basic YW5uOnNlY3JldA==\r\n");
}

TEST_F(HostNeverWaitsTest, ForThePasswordFileThatAFolderOfManyDoesNotHave) {
  for (int i = 0; i < 3000; ++i) control.Write("files/" + std::to_string(i) + ".txt", std::to_string(i));
  control.tessel.AuthenticationSource(e_AuthSource::DirectoryFile);
  IsTheSameInTurns("/files/77.txt");
}

// ---- What the host does meanwhile.

TEST_F(HostNeverWaitsTest, AStopReturnsAtOnceAndLeavesNothing) {
  const Gate gate(control.tree);
  Program("slow.exe", kPassesTheGate);
  const auto descriptors = Kit::CountDescriptors();
  {
    RawClient first(control.Port());
    first.Send(loop, Request("/slow.exe"));
    while (TaskPromise::living == 0) loop.RunOnce(100);
    EXPECT_TRUE(control.tessel.StopServer());
    EXPECT_TRUE(NoTaskIsLeft());
    EXPECT_EQ(first.ReceiveAll(loop), "");
  }
  EXPECT_TRUE(control.tessel.StartServer());
  EXPECT_EQ(BodyOf(control.Get("/small.txt")), "small");
  gate.Open();
  EXPECT_TRUE(Kit::RunUntil(loop, [] { return Kit::HasNoChild(); }));
  EXPECT_TRUE(Kit::RunUntil(loop, [&] { return Kit::CountDescriptors() == descriptors; }));
}

}  // namespace
}  // namespace TesselServer
