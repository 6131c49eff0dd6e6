// A host of the control as the comparison needs it; public headers only. It serves --root until SIGTERM and says
// {"port": N} on standard output.
//
//   --port N           default 0, any
//   --log FILE         writes the access log to FILE, buffered as the C library does it
//   --ssi --browse     switches those on
//   --cgi FOLDER       runs programs, FOLDER being that of programs
//   --cgi-timeout N    CGITimeout, default 30
//   --guarded          a file htaccess.txt guards its folder
//   --connections N    MaxConnections, default 10000
//   --watch            times every turn of the loop; each SIGUSR1 prints the longest since the last one
//   --start-stop N     starts and stops N times, prints how long each took, and ends
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include <TesselServer/EventLoop.h>
#include <TesselServer/HostProcess.h>
#include <TesselServer/Tessel.h>

#include "benchmarks/comparison/CommandLine.h"
#include "benchmarks/comparison/LoopWatch.h"

namespace Comparison {
namespace {

TesselServer::EventLoop* loopToStop = nullptr;

extern "C" void StopLoop(int) { loopToStop->Stop(); }

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using LogFile = std::unique_ptr<std::FILE, CloseFile>;

LogFile OpenLog(const std::string& path) {
  LogFile file(std::fopen(path.c_str(), "ae"));
  if (!file) throw std::runtime_error("cannot write " + path);
  return file;
}

void Apply(const CommandLine& line, TesselServer::Tessel& tessel) {
  tessel.ServerIP("127.0.0.1");
  tessel.ServerPort(line.Text("port", "0"));
  tessel.ServerName("127.0.0.1");
  tessel.VirtualPath(line.Text("root", "."));
  tessel.IndexPageNames("index.html");
  tessel.MaxConnections(static_cast<std::int32_t>(line.Number("connections", 10000)));
  tessel.SSIEnable(line.Has("ssi"));
  tessel.DirectoryBrowseEnable(line.Has("browse"));
  tessel.VerboseErrorsEnable(false);
  tessel.CGIEnable(line.Has("cgi"));
  if (line.Has("cgi")) tessel.CGIDirectory(line.Text("cgi"));
  tessel.CGITimeout(static_cast<std::int32_t>(line.Number("cgi-timeout", 30)));
  if (line.Has("guarded")) tessel.AuthenticationSource(TesselServer::e_AuthSource::DirectoryFile);
  tessel.LogEvent = [](std::string& text) { std::cerr << text << '\n'; };
}

void Serve(const CommandLine& line, TesselServer::EventLoop& loop, TesselServer::Tessel& tessel) {
  tessel.StartServer();
  if (!tessel.IsListening()) throw std::runtime_error("cannot listen");
  std::cout << "{\"port\": " << tessel.ListeningPort() << "}" << std::endl;
  loopToStop = &loop;
  signal(SIGTERM, StopLoop);
  signal(SIGINT, StopLoop);
  line.Has("watch") ? RunWatched(loop) : loop.Run();
  tessel.StopServer();
}

double MillisecondsOf(const auto& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

void StartAndStop(TesselServer::Tessel& tessel, std::int64_t times) {
  std::string starts, stops;
  for (std::int64_t i = 0; i < times; ++i) {
    const std::string comma = i == 0 ? "" : ", ";
    starts += comma + std::to_string(MillisecondsOf([&] { tessel.StartServer(); }));
    stops += comma + std::to_string(MillisecondsOf([&] { tessel.StopServer(); }));
  }
  std::cout << "{\"start_ms\": [" << starts << "], \"stop_ms\": [" << stops << "]}" << std::endl;
}

void Run(const CommandLine& line) {
  TesselServer::RaiseDescriptorLimit();
  LogFile log;  // outlives the control, whose events write to it
  TesselServer::EventLoop loop;
  TesselServer::Tessel tessel(loop);
  Apply(line, tessel);
  if (line.Has("log")) {
    log = OpenLog(line.Text("log"));
    tessel.HTTPLog = [file = log.get()](std::string& text) {
      std::fwrite(text.data(), 1, text.size(), file);
      std::fputc('\n', file);
    };
  }
  line.Has("start-stop") ? StartAndStop(tessel, line.Number("start-stop", 1)) : Serve(line, loop, tessel);
}

}  // namespace
}  // namespace Comparison

int main(int argc, char** argv) {
  try {
    Comparison::Run(Comparison::CommandLine(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << "comparison_host: " << error.what() << '\n';
    return 1;
  }
}
