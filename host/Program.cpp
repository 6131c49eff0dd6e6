#include "host/Program.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <iostream>
#include <string>

#include <TesselServer/HostProcess.h>
#include <TesselServer/Printable.h>
#include <TesselServer/Timer.h>

#include "host/FileAnswers.h"
#include "host/FunctionAnswers.h"
#include "host/RequestRate.h"
#include "host/Settings.h"

namespace TesselServer {
namespace {

std::atomic<EventLoop*> loopToStop = nullptr;
static_assert(std::atomic<EventLoop*>::is_always_lock_free, "a signal handler reads it");

extern "C" void StopLoop(int) {
  if (auto* loop = loopToStop.load()) loop->Stop();
}

// While it lives, SIGINT and SIGTERM stop the loop.
class StopOnSignals {
 public:
  explicit StopOnSignals(EventLoop& loop) {
    loopToStop = &loop;
    std::signal(SIGINT, StopLoop);
    std::signal(SIGTERM, StopLoop);
  }
  StopOnSignals(const StopOnSignals&) = delete;
  StopOnSignals& operator=(const StopOnSignals&) = delete;
  ~StopOnSignals() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    loopToStop = nullptr;
  }
};

// A report without the name of the procedure in front: "[10013] Permission Denied."
std::string Reason(const std::string& report) {
  const auto bracket = report.find('[');
  return bracket == std::string::npos ? report : report.substr(bracket);
}

std::string ListenAddress(const Tessel& tessel) {
  const auto address = tessel.ServerIP();
  return (address.empty() ? "all addresses" : address) + ", port " + tessel.ServerPort();
}

// The address that a browser on this machine opens.
std::string OpenAddress(const Tessel& tessel) {
  const auto address = tessel.ServerIP();
  const bool everywhere = address.empty() || address == "0.0.0.0";
  return "http://" + (everywhere ? "127.0.0.1" : address) + ":" + std::to_string(tessel.ListeningPort()) + "/";
}

// The program's own answers, and the clock of one of them.
class LiveAnswers {
 public:
  LiveAnswers(EventLoop& loop, Tessel& tessel)
      : tessel_(tessel),
        timer_(loop),
        rate_(std::chrono::steady_clock::now()),
        files_(tessel, rate_),
        functions_(tessel) {
    tessel.FileRequest = [this](std::int32_t& index, std::string& path, std::string&) { files_.Answer(index, path); };
    tessel.CallFunction = [this](std::int32_t& index, std::string& name) { functions_.Answer(index, name); };
    timer_.OnTick([&] { rate_.Count(std::chrono::steady_clock::now(), std::stoll(tessel.Stats_Requests())); });
    timer_.Interval(kTickMilliseconds);
    timer_.Enabled(true);
  }
  LiveAnswers(const LiveAnswers&) = delete;
  LiveAnswers& operator=(const LiveAnswers&) = delete;
  ~LiveAnswers() {
    tessel_.FileRequest = nullptr;
    tessel_.CallFunction = nullptr;
  }

 private:
  static constexpr std::int32_t kTickMilliseconds = 1000;  // a tick for each second of the rate

  Tessel& tessel_;
  Timer timer_;
  RequestRate rate_;
  FileAnswers files_;
  FunctionAnswers functions_;
};

void Start(Tessel& tessel, const std::string& lastReport) {
  const auto failed = "cannot listen on " + ListenAddress(tessel) + ": ";
  try {
    tessel.StartServer();
  } catch (const Error& error) {
    throw StartError(failed + error.Description());
  }
  if (!tessel.IsListening()) throw StartError(failed + Reason(lastReport));
}

void Serve(const Options& options) {
  Console console;  // these two outlive the control, whose events write to them
  std::string lastReport;
  EventLoop loop;
  Tessel tessel(loop);
  for (const auto& remark : ApplySettings(tessel, options)) console.Tell("tessel: " + remark);
  RaiseDescriptorLimit();
  const StopOnSignals signals(loop);
  ConnectOutputs(loop, tessel, console, lastReport);
  const LiveAnswers answers(loop, tessel);
  Start(tessel, lastReport);
  console.Tell("Open " + OpenAddress(tessel));
  console.Release();
  loop.Run();
  tessel.StopServer();
  WaitForNoThread();
}

void Save(const Options& options) {
  EventLoop loop;
  Tessel tessel(loop);
  for (const auto& remark : ApplySettings(tessel, options)) std::cerr << "tessel: " << Printable(remark) << '\n';
  SaveSettings(tessel, *options.saveConfig);
}

void ShowVersion() {
  EventLoop loop;
  std::cout << "tessel " << Tessel(loop).Version() << '\n';
}

void ShowAbout() {
  EventLoop loop;
  Tessel tessel(loop);
  tessel.AboutBox = [](const std::string& product, const std::string& version) {
    std::cout << product << ' ' << version << "\nA web server that lives inside a host program.\n";
  };
  tessel.ShowAboutBox();
}

}  // namespace

void ConnectOutputs(EventLoop& loop, Tessel& tessel, Console& console, std::string& lastReport) {
  tessel.HTTPLog = [&console](std::string& line) { console.Log(line); };
  loop.HandlerFailed = [&console](std::string& text) { console.Tell(text); };
  tessel.StatusLine = [&console](std::string& text) { console.Tell(text); };
  tessel.LogEvent = [&console, &lastReport](std::string& text) {
    console.Tell(text);
    lastReport = text;
  };
}

void RunProgram(const Options& options) {
  switch (options.task) {
    case Options::Task::Serve:
      return Serve(options);
    case Options::Task::SaveConfig:
      return Save(options);
    case Options::Task::ShowVersion:
      return ShowVersion();
    case Options::Task::ShowAbout:
      return ShowAbout();
    case Options::Task::ShowHelp:
      std::cout << options.helpText;
      return;
  }
}

}  // namespace TesselServer
