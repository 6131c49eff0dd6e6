// The client of the comparison: comparison_load --mode load|latency|hold|paced|idle --port N --path /x [OPTIONS]. What
// it found is one line of JSON on standard output. Exit status 1 when an answer was wrong or the server kept silent.
//
//   --mode load      --at-once N, and --requests N or --milliseconds N; --compare-every N
//   --mode latency   one request at a time: the time from the wish to connect to the first byte of the answer
//   --mode hold      --connections N: sends half a request on each, says so, and keeps them until standard input ends
//   --mode paced     one request every --every N milliseconds (default 10) until standard input ends
//   --mode idle      no requests: looks at the clock for --milliseconds N
//   --status 200 --body FILE   the expected answer
//   --numbers N                N paths in turn: "####" in --path and in the body is 0000, 0001 and so on
//   --source 127.0.0.3         where connections come from
#include <unistd.h>

#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string>

#include "benchmarks/comparison/CommandLine.h"
#include "benchmarks/comparison/Hold.h"
#include "benchmarks/comparison/Idle.h"
#include "benchmarks/comparison/Latency.h"
#include "benchmarks/comparison/Load.h"
#include "benchmarks/comparison/Paced.h"

namespace Comparison {
namespace {

std::string Content(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

LoadOrder Order(const CommandLine& line) {
  LoadOrder order;
  order.route.port = static_cast<std::uint16_t>(line.Number("port", 80));
  order.route.source = line.Text("source");
  order.request = "GET " + line.Text("path", "/") + " HTTP/1.0\r\nHost: 127.0.0.1\r\nUser-Agent: comparison\r\n\r\n";
  order.expected.status = line.Text("status", "200");
  if (line.Has("body")) order.expected.body = Content(line.Text("body"));
  order.numbers = line.Number("numbers", 1);
  if (order.numbers < 1 || order.numbers > LoadOrder::kMaxNumbers) throw std::runtime_error("so many are not counted");
  order.atOnce = line.Number("at-once", 1);
  order.requests = line.Number("requests", 0);
  order.milliseconds = line.Number("milliseconds", 0);
  order.compareEvery = line.Number("compare-every", 1);
  return order;
}

int RunLoad(const CommandLine& line) {
  const LoadOrder order = Order(line);
  const LoadResult result = Load(order).Run();
  std::cout << "{\"requests\": " << result.requests << ", \"wrong\": " << result.wrong << ", \"first_wrong\": \""
            << result.firstWrong << "\", \"body_bytes\": " << result.bodyBytes << ", \"seconds\": " << result.seconds
            << "}\n";
  return result.wrong == 0 ? 0 : 1;
}

int RunLatency(const CommandLine& line) {
  const LatencyResult result = MeasureLatency(Order(line));
  std::cout << "{\"requests\": " << result.requests << ", \"wrong\": " << result.wrong << ", \"first_wrong\": \""
            << result.firstWrong << "\", \"median_us\": " << result.medianMicroseconds
            << ", \"p99_us\": " << result.p99Microseconds << "}\n";
  return result.wrong == 0 ? 0 : 1;
}

int RunHold(const CommandLine& line) {
  HeldConnections held(Order(line).route, line.Number("connections", 1));
  std::cout << "{\"held\": " << held.Count() << "}" << std::endl;
  std::cin.ignore(std::numeric_limits<std::streamsize>::max());
  std::cout << "{\"still_held\": " << held.CountAlive() << "}\n";
  return 0;
}

int RunPaced(const CommandLine& line) {
  const LoadOrder order = Order(line);
  const PacedResult result = Paced(order, std::chrono::milliseconds(line.Number("every", 10))).Run(STDIN_FILENO);
  std::cout << "{\"requests\": " << result.requests << ", \"wrong\": " << result.wrong << ", \"first_wrong\": \""
            << result.firstWrong << "\", \"median_ms\": " << result.medianMilliseconds
            << ", \"p999_ms\": " << result.p999Milliseconds << ", \"longest_ms\": " << result.longestMilliseconds
            << "}\n";
  return result.wrong == 0 ? 0 : 1;
}

int RunIdle(const CommandLine& line) {
  const IdleResult result = WatchTheClock(line.Number("milliseconds", 1000));
  std::cout << "{\"wall_ms\": " << result.wallMilliseconds << ", \"cpu_ms\": " << result.cpuMilliseconds << "}\n";
  return 0;
}

int Run(const CommandLine& line) {
  RaiseDescriptorLimit();
  const std::string mode = line.Text("mode", "load");
  if (mode == "load") return RunLoad(line);
  if (mode == "latency") return RunLatency(line);
  if (mode == "hold") return RunHold(line);
  if (mode == "paced") return RunPaced(line);
  if (mode == "idle") return RunIdle(line);
  throw std::runtime_error("no such mode: " + mode);
}

}  // namespace
}  // namespace Comparison

int main(int argc, char** argv) {
  try {
    return Comparison::Run(Comparison::CommandLine(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << "comparison_load: " << error.what() << '\n';
    return 1;
  }
}
