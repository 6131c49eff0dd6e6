// Programs that are run for requests, over the wire: what they print, how they end, and what is left of them.

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>

#include "tests/kit/Descriptors.h"
#include "tests/kit/Programs.h"
#include "tests/kit/Signals.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::Gate;
using Kit::StatusLineOf;
using Kit::WireControl;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

void AllowPrograms(WireControl& control) {
  control.tessel.CGIDirectory(control.tree.Text() + "/cgi");
  control.tessel.CGIEnable(true);
  control.tessel.SSIEnable(true);
  control.Write("index.html", "the index");
}

class ProgramsTest : public Kit::WireTest {
 protected:
  ProgramsTest() {
    AllowPrograms(control);
    control.Start(4);
  }

  void Program(const std::string& name, const std::string& script) const {
    Kit::WriteProgram(control.tree, "cgi/" + name, script);
  }
  bool Exists(const char* name) const { return std::filesystem::exists(control.tree.Path() / name); }
  // Runs the loop until every child has been collected.
  bool AllAreCollected() {
    return Kit::RunUntil(loop, [] { return Kit::HasNoChild(); });
  }
};

// A program that prints "begun", waits for the gate, and leaves a mark.
constexpr const char* kWaitsAtTheGate = "printf begun\nread line < $here/gate\n: > $here/mark\nprintf ' more'";

TEST_F(ProgramsTest, AHundredInARowLeaveNoChildAndNoDescriptor) {
  Program("hello.exe", "printf hello");
  control.Write("page.html", "[<!--#exec cgi=\"hello.exe\"-->]");
  EXPECT_EQ(BodyOf(control.Get("/hello.exe")), "hello");
  const auto descriptors = Kit::CountDescriptors();
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(BodyOf(control.Get("/hello.exe")), "hello");
    ASSERT_EQ(BodyOf(control.Get("/page.html")), "[hello]");
  }
  EXPECT_TRUE(Kit::HasNoChild());
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
}

TEST_F(ProgramsTest, HoweverAProgramEndsItIsAnswered) {
  Program("much.exe", "head -c 5000 /dev/zero | tr '\\0' x");
  Program("flood.exe", "head -c 5000000 /dev/zero | tr '\\0' x\n: > $here/mark");
  Program("nothing.exe", "exit 7");
  Program("killed.exe", "printf before\nkill -KILL $$");
  Program("aborted.exe", "kill -ABRT $$");
  Program("closed.exe", "exec >&-\nexit 0");
  Program("errors.exe", "echo lost >&2\nprintf kept");
  Program("zero.exe", "printf 'a\\0b'");
  control.tree.Write("cgi/plain.exe", "#!/bin/sh\necho never\n");
  control.tree.Write("cgi/missing.exe", "#!/no/such/interpreter\n");
  std::filesystem::permissions(control.tree.Path() / "cgi/missing.exe", std::filesystem::perms(0755));
  std::filesystem::create_directory(control.root + "/folder.exe");
  struct {
    const char* url;
    std::string body;
    const char* why;
  } const cases[] = {
      {"/much.exe", std::string(1024, 'x'), "the first 1024 bytes count"},
      {"/flood.exe", std::string(1024, 'x'), "the first 1024 bytes count"},
      {"/nothing.exe", "", "nothing"},
      {"/killed.exe", "before", "what it printed before its end"},
      {"/aborted.exe", "", "nothing"},
      {"/closed.exe", "", "nothing"},
      {"/errors.exe", "kept", "its errors lead nowhere"},
      {"/zero.exe", std::string("a\0b", 3), "any bytes"},
      {"/plain.exe", "Create::Process Failed.<BR>\r\nError Number: 13<BR>\r\nError Desc: Permission denied<BR>\r\n",
       "it may not be executed"},
      {"/missing.exe",
       "Create::Process Failed.<BR>\r\nError Number: 2<BR>\r\nError Desc: No such file or directory<BR>\r\n",
       "its interpreter is not there"},
  };
  for (const auto& c : cases) {
    const std::string answer = control.Get(c.url);
    EXPECT_EQ(BodyOf(answer), c.body) << c.url << ": " << c.why;
    EXPECT_EQ(StatusLineOf(answer), "HTTP/1.0 200 OK") << c.url;
    EXPECT_THAT(answer, HasSubstr("\r\nContent-Type: text/html\r\n")) << c.url;
    if (!c.body.empty()) {
      EXPECT_THAT(answer, HasSubstr("\r\nContent-Length: " + std::to_string(c.body.size()) + "\r\n\r\n")) << c.url;
    }
    EXPECT_EQ(BodyOf(control.Get("/")), "the index") << "behind " << c.url;
  }
  EXPECT_TRUE(Exists("mark")) << "one with much to say comes to its end";
  EXPECT_THAT(control.Get("/folder.exe"), HasSubstr("HTPP 403: Forbidden")) << "a folder is no program";
  EXPECT_TRUE(Kit::HasNoChild());
}

TEST_F(ProgramsTest, OneThatOutlivesItsTimeIsAnsweredInTimeAndGoesOn) {
  const Gate gate(control.tree);
  Program("slow.exe", kWaitsAtTheGate);
  control.tessel.CGITimeout(1);
  const auto begin = Clock::now();
  EXPECT_EQ(BodyOf(control.Get("/slow.exe")), "begun");
  const auto took = Clock::now() - begin;
  EXPECT_GE(took, std::chrono::milliseconds(1000));
  EXPECT_LT(took, std::chrono::milliseconds(4000));
  EXPECT_FALSE(Kit::HasNoChild()) << "it runs on";
  EXPECT_FALSE(Exists("mark"));
  EXPECT_EQ(BodyOf(control.Get("/")), "the index");
  gate.Open();
  EXPECT_TRUE(Kit::Eventually([&] { return Exists("mark"); })) << "it comes to its own end";
  EXPECT_TRUE(AllAreCollected());
}

TEST_F(ProgramsTest, AnotherOneRunsWhileTheFirstLives) {
  const Gate gate(control.tree);
  Program("slow.exe", kWaitsAtTheGate);
  Program("hello.exe", "printf hello");
  control.tessel.CGITimeout(1);
  EXPECT_EQ(BodyOf(control.Get("/slow.exe")), "begun");
  EXPECT_EQ(BodyOf(control.Get("/hello.exe")), "hello");
  EXPECT_EQ(BodyOf(control.Get("/slow.exe")), "begun") << "a second of its kind";
  EXPECT_EQ(BodyOf(control.Get("/hello.exe")), "hello");
  gate.Open(2);
  EXPECT_TRUE(AllAreCollected());
}

TEST_F(ProgramsTest, ThePortIsFreeAfterAStopWhileAChildLives) {
  const Gate gate(control.tree);
  Program("slow.exe", kWaitsAtTheGate);
  control.tessel.CGITimeout(1);
  const std::int32_t port = control.Port();
  EXPECT_EQ(BodyOf(control.Get("/slow.exe")), "begun");
  EXPECT_TRUE(control.tessel.StopServer());
  ASSERT_FALSE(Kit::HasNoChild());

  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int one = 1;  // connections that have just ended do not count, a listener does
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(static_cast<std::uint16_t>(port));
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&name), sizeof name), 0) << errno;
  EXPECT_EQ(listen(descriptor, 1), 0) << errno;
  close(descriptor);

  control.tessel.ServerPort(std::to_string(port));
  ASSERT_TRUE(control.tessel.StartServer());
  EXPECT_EQ(BodyOf(control.Get("/")), "the index");
  gate.Open();
  EXPECT_TRUE(AllAreCollected());
}

TEST_F(ProgramsTest, TheHostKeepsItsHandlerOfSigchldAndItsChildren) {
  const Kit::SignalCounter counter(SIGCHLD);
  struct sigaction before {
  }, after{};
  sigaction(SIGCHLD, nullptr, &before);
  const pid_t own = fork();
  if (own == 0) _exit(42);
  ASSERT_GT(own, 0);
  Program("hello.exe", "printf hello");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(BodyOf(control.Get("/hello.exe")), "hello");
  sigaction(SIGCHLD, nullptr, &after);
  EXPECT_EQ(before.sa_handler, after.sa_handler);
  EXPECT_GT(counter.Count(), 0);
  int status = 0;
  EXPECT_EQ(waitpid(own, &status, 0), own);
  EXPECT_EQ(WEXITSTATUS(status), 42);
  EXPECT_TRUE(Kit::HasNoChild());
}

TEST_F(ProgramsTest, OtherClientsAreServedAfterIt) {
  Program("slow.exe", "sleep 0.3\nprintf done");
  const Kit::ClientResult all = Kit::RunClient(
      loop, {"curl", "-sS", "-Z", control.Url("/slow.exe"), control.Url("/slow.exe"), control.Url("/index.html")});
  EXPECT_EQ(all.status, 0) << all.errors;
  std::string output = all.output;  // in any order
  for (const std::string part : {"done", "done", "the index"}) {
    const std::size_t at = output.find(part);
    ASSERT_NE(at, std::string::npos) << all.output;
    output.erase(at, part.size());
  }
  EXPECT_EQ(output, "");
}

// ---- Programs that speak CGI/1.1.

TEST_F(ProgramsTest, AShellProgramMaySayTypeStatusAndPlace) {
  Program("plain.exe",
          "printf 'Content-Type: text/plain\\n\\nquery=%s method=%s' \"$QUERY_STRING\" \"$REQUEST_METHOD\"");
  Program("missing.exe",
          "printf 'Status: 404 Not Found\\r\\nContent-Type: text/plain\\r\\nX-Mine: 1\\r\\n\\r\\nno item'");
  Program("elsewhere.exe", "printf 'Location: /plain.exe?from=there\\n\\n'");
  Program("whole.exe", "printf 'HTTP/1.0 299 Mine\\r\\nContent-Type: text/x-mine\\r\\n\\r\\nall mine'");
  EXPECT_EQ(RunWell({"curl", "-sS", "-w", "|%{http_code} %{content_type}", control.Url("/plain.exe?a=1&b=%20")}),
            "query=a=1&b=%20 method=GET|200 text/plain");
  EXPECT_EQ(RunWell({"curl", "-sS", "-d", "body", control.Url("/plain.exe")}), "query= method=POST");
  EXPECT_EQ(RunWell({"curl", "-sS", "-w", "|%{http_code} %{content_type}", control.Url("/missing.exe")}),
            "no item|404 text/plain");
  EXPECT_THAT(RunWell({"curl", "-sS", "-i", control.Url("/missing.exe")}), HasSubstr("\r\nX-Mine: 1\r\n"));
  EXPECT_EQ(RunWell({"curl", "-sS", "-w", "|%{http_code} %{redirect_url}", control.Url("/elsewhere.exe")}),
            "|302 " + control.Url("/plain.exe?from=there"));
  EXPECT_EQ(RunWell({"curl", "-sS", "-L", control.Url("/elsewhere.exe")}), "query=from=there method=GET");
  EXPECT_EQ(RunWell({"curl", "-sS", "-w", "|%{http_code} %{content_type}", control.Url("/whole.exe")}),
            "all mine|299 text/x-mine");
}

TEST_F(ProgramsTest, APythonProgramMayDoTheSame) {
  const std::string path =
      control.tree.Write("cgi/python.exe",
                         "#!/usr/bin/env python3\n"
                         "import os, sys, urllib.parse\n"
                         "query = dict(urllib.parse.parse_qsl(os.environ['QUERY_STRING']))\n"
                         "if 'go' in query:\n"
                         "    print('Status: 303 See Other\\nLocation: /python.exe?name=' + query['go'] + '\\n')\n"
                         "else:\n"
                         "    print('Content-Type: text/plain; charset=utf-8\\n')\n"
                         "    print('Hello,', query.get('name', 'nobody'), 'from', os.environ['SCRIPT_NAME'], end='')\n"
                         "    print(',', len(sys.stdin.read()), 'bytes')\n");
  std::filesystem::permissions(path, std::filesystem::perms(0755));
  EXPECT_EQ(RunWell({"curl", "-sS", "-w", "%{http_code} %{content_type}", control.Url("/python.exe?name=Anna")}),
            "Hello, Anna from python.exe, 0 bytes\n200 text/plain; charset=utf-8");
  EXPECT_EQ(RunWell({"curl", "-sS", "-L", "-w", "%{http_code}", control.Url("/python.exe?go=Ben")}),
            "Hello, Ben from python.exe, 0 bytes\n200");
  EXPECT_EQ(RunWell({"curl", "-sS", "-o", "/dev/null", "-w", "%{http_code}", control.Url("/python.exe?go=Ben")}),
            "303");
}

// ---- The control goes while a child lives.

TEST(ProgramsLifeTest, AControlMayDieWhileAChildLives) {
  EventLoop loop;
  const auto descriptors = Kit::CountDescriptors();
  const Kit::TemporaryTree place;
  auto control = std::make_unique<WireControl>(loop);
  AllowPrograms(*control);
  auto gate = std::make_unique<Gate>(place);
  Kit::WriteProgram(control->tree, "cgi/slow.exe",
                    "printf begun\nread line < " + place.Text() + "/gate\n: > " + place.Text() + "/mark");
  Kit::WriteProgram(control->tree, "cgi/hello.exe", "printf hello");
  control->tessel.CGITimeout(1);
  control->Start(4);
  EXPECT_EQ(BodyOf(control->Get("/slow.exe")), "begun");
  control.reset();
  Kit::Settle(loop);
  ASSERT_FALSE(Kit::HasNoChild());
  gate->Open();
  EXPECT_TRUE(Kit::Eventually([&] { return std::filesystem::exists(place.Path() / "mark"); })) << "it runs on";
  gate.reset();

  control = std::make_unique<WireControl>(loop);
  AllowPrograms(*control);
  Kit::WriteProgram(control->tree, "cgi/hello.exe", "printf hello");
  control->Start(4);
  EXPECT_EQ(BodyOf(control->Get("/hello.exe")), "hello");
  EXPECT_TRUE(Kit::RunUntil(loop, [] { return Kit::HasNoChild(); })) << "the next control collects it";
  control.reset();
  Kit::Settle(loop);
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
}

}  // namespace
}  // namespace TesselServer
