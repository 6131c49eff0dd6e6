// While the answer to one request is being made, however long that takes, other clients are served and the host's
// timers tick. Shown by order alone: each look at the clock takes time here, so that long work takes many turns.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/loop/Timer.h"
#include "platform/tasks/Task.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/Programs.h"
#include "tests/kit/SlowDisk.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::Gate;
using Kit::RawClient;
using Kit::WithoutDate;
using testing::Each;
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

  // Asks for something that takes long, and while it is being made for a small file, or something else that takes no
  // time. `finish` lets it come to its end. Returns the answer to the first.
  std::string WhileIsMade(
      const std::string& request, const std::function<void()>& finish = [] {}, const std::string& aside = "/small.txt",
      const std::string& expected = "small") {
    RawClient first(control.Port());
    first.Send(loop, request);
    while (TaskPromise::living == 0) loop.RunOnce(100);
    int ticks = 0;
    Timer timer(loop);
    timer.Interval(1);
    timer.OnTick([&] { ++ticks; });
    timer.Enabled(true);
    EXPECT_EQ(BodyOf(control.Get(aside)), expected);
    while (ticks < 3) loop.RunOnce(10);
    EXPECT_GT(TaskPromise::living, 0) << "the first answer was not to be finished yet";
    EXPECT_THAT(control.log, Each(HasSubstr(aside))) << "the first has no line yet";
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

// ---- A disk of which every call waits, mounted below the root or where the host has its own files.

class HostNeverWaitsForADiskTest : public HostNeverWaitsTest {
 protected:
  void SetUp() override {
    if (!Kit::SlowDisk::IsPossible()) GTEST_SKIP() << "there is no /dev/fuse for a file system in user space";
    Show("page.html", "[<!--#echo var=\"SERVER_PROTOCOL\"-->]");
    Show("file.txt", "file");
    Show("index.htm", "index");
    disk.emplace(control.tree.Text() + "/shown", 0, control.root);
  }
  ~HostNeverWaitsForADiskTest() override {
    if (disk) disk->Release();
  }

  void Show(const std::string& name, const std::string& bytes) const { control.tree.Write("shown/" + name, bytes); }
  std::string At(const std::string& name) const { return disk->Path() + "/" + name; }
  std::string Url(const std::string& name) const { return "/" + disk->Name() + "/" + name; }

  // The answer that waits for the disk; it is the same as one that need not wait.
  std::string WhileTheDiskIsHeld(const std::string& request, const std::string& aside = "/small.txt",
                                 const std::string& expected = "small") {
    const std::string before = WithoutDate(control.Ask(request));
    control.log.clear();
    disk->HoldAll();
    std::string answer = WhileIsMade(
        request, [&] { disk->Release(); }, aside, expected);
    EXPECT_EQ(WithoutDate(answer), before);
    return answer;
  }
  std::string BodyWhileTheDiskIsHeld(const std::string& url) { return BodyOf(WhileTheDiskIsHeld(Request(url))); }

  std::optional<Kit::SlowDisk> disk;
};

TEST_F(HostNeverWaitsForADiskTest, ForAFileOnIt) {
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(BodyWhileTheDiskIsHeld(Url("file.txt")), "file");
    EXPECT_EQ(BodyWhileTheDiskIsHeld(Url("FILE.txt")), "file");
    EXPECT_EQ(BodyWhileTheDiskIsHeld(Url("page.html")), "[HTTP/1.0]");
  }
}

TEST_F(HostNeverWaitsForADiskTest, ForAnIndexPageOnIt) {
  control.tessel.IndexPageNames("none.htm,index.htm");
  EXPECT_EQ(BodyWhileTheDiskIsHeld(Url("")), "index");
  std::filesystem::create_symlink(At("index.htm"), control.root + "/none.htm");
  EXPECT_EQ(BodyWhileTheDiskIsHeld("/"), "index") << "by a link in a folder that need not be waited for";
}

TEST_F(HostNeverWaitsForADiskTest, ForAFileOnItThatIsMissing) {
  EXPECT_THAT(WhileTheDiskIsHeld(Request(Url("missing.txt"))), HasSubstr("404"));
}

TEST_F(HostNeverWaitsForADiskTest, ForItsListing) {
  EXPECT_THAT(BodyWhileTheDiskIsHeld(Url("")), HasSubstr(">file.txt<"));
}

TEST_F(HostNeverWaitsForADiskTest, ForAListingThatShowsIt) {
  std::filesystem::create_symlink(disk->Name() + "/file.txt", control.root + "/link.txt");
  std::filesystem::create_symlink(At("file.txt"), control.root + "/far.txt");
  for (int time = 0; time < 3; ++time) {
    const std::string page = BodyWhileTheDiskIsHeld("/");
    for (const std::string& name : {disk->Name(), std::string("link.txt"), std::string("far.txt")}) {
      EXPECT_THAT(page, HasSubstr(">" + name + "<"));
    }
  }
}

TEST_F(HostNeverWaitsForADiskTest, ForAnIncludeFromIt) {
  control.Write("with.html", "(<!--#include=\"" + disk->Name() + "/file.txt\"-->)");
  EXPECT_EQ(BodyWhileTheDiskIsHeld("/with.html"), "(file)");
}

TEST_F(HostNeverWaitsForADiskTest, ForAProgramOnIt) {
  Kit::WriteProgram(control.tree, "shown/print.exe", "printf printed");
  control.tessel.CGIDirectory(disk->Path());
  control.Write("exec.html", "(<!--#exec cgi=\"print.exe\"-->)");
  EXPECT_EQ(BodyWhileTheDiskIsHeld("/print.exe"), "printed");
  EXPECT_EQ(BodyWhileTheDiskIsHeld("/exec.html"), "(printed)");
  EXPECT_EQ(BodyWhileTheDiskIsHeld(Url("print.exe")), "printed");
}

TEST_F(HostNeverWaitsForADiskTest, ForTheSitesPasswordFileOnIt) {
  Show("passwords.txt", "realm:Members\nann:secret\n");
  control.tessel.AuthenticationSourceFile(At("passwords.txt"));
  control.EchoTrapped();
  const std::string fromHost = "GET /host.trp?\n";
  EXPECT_THAT(WhileTheDiskIsHeld(Request("/small.txt"), "/host.trp", fromHost), HasSubstr("HTTP/1.0 401"));
  const std::string member = "Authorization: Basic YW5uOnNlY3JldA==\r\n";  // ann:secret
  EXPECT_EQ(BodyOf(WhileTheDiskIsHeld(Request("/small.txt", member), "/host.trp", fromHost)), "small");
  EXPECT_THAT(WhileTheDiskIsHeld(Request("/", member), "/host.trp", fromHost), HasSubstr(">small.txt<"));
}

TEST_F(HostNeverWaitsForADiskTest, ForThePasswordFileOfAFolderOnIt) {
  Show("htaccess.txt", "realm:Members\nann:secret\n");
  control.tessel.AuthenticationSource(e_AuthSource::DirectoryFile);
  EXPECT_THAT(WhileTheDiskIsHeld(Request(Url("file.txt"))), HasSubstr("HTTP/1.0 401"));
  const std::string member = "Authorization: Basic YW5uOnNlY3JldA==\r\n";
  EXPECT_EQ(BodyOf(WhileTheDiskIsHeld(Request(Url("file.txt"), member))), "file");
  control.Write("guarded/a.txt", "guarded");
  std::filesystem::create_symlink(At("htaccess.txt"), control.root + "/guarded/htaccess.txt");
  EXPECT_EQ(BodyOf(WhileTheDiskIsHeld(Request("/guarded/a.txt", member))), "guarded") << "a link leads there";
}

TEST_F(HostNeverWaitsForADiskTest, ForAnErrorPageOnIt) {
  Show("html/errors/http404.html", "not here: <!--#include=\"inner.txt\"-->");
  Show("html/inner.txt", "inner");
  Show("html/errors/inner.txt", "inner");
  control.tessel.ApplicationFolder(disk->Path());
  control.tessel.ErrorFilesEnable(true);
  EXPECT_THAT(BodyWhileTheDiskIsHeld("/missing.txt"), HasSubstr("not here: inner"));
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
