#include "benchmarks/comparison/LoopWatch.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

#include <TesselServer/EventLoop.h>
#include <TesselServer/Timer.h>

#include "benchmarks/comparison/Moment.h"

namespace Comparison {
namespace {

constexpr double kLongMilliseconds = 1;

volatile sig_atomic_t reportWanted = 0;
volatile sig_atomic_t stopWanted = 0;

extern "C" void WantReport(int) { reportWanted = 1; }
extern "C" void WantStop(int) { stopWanted = 1; }

// How long the calling thread has waited for a processor so far, in milliseconds, as proc(5) has it; 0 where the kernel
// does not count it.
class ProcessorWait {
 public:
  ProcessorWait() : file_(open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC)) {}
  ProcessorWait(const ProcessorWait&) = delete;
  ProcessorWait& operator=(const ProcessorWait&) = delete;
  ~ProcessorWait() { close(file_); }

  double Milliseconds() const {
    char text[128] = {};
    unsigned long long running = 0, waiting = 0;
    if (pread(file_, text, sizeof text - 1, 0) <= 0) return 0;
    return std::sscanf(text, "%llu %llu", &running, &waiting) == 2 ? static_cast<double>(waiting) / 1e6 : 0;
  }

 private:
  int file_;
};

class LoopWatch {
 public:
  explicit LoopWatch(TesselServer::EventLoop& loop) : loop_(loop), timer_(loop) {
    timer_.OnTick([this] { Tick(); });
    timer_.Interval(1);
    timer_.Enabled(true);
  }

  // The timer ends every wait within a millisecond, so a signal is seen soon.
  void Run() {
    pollfd watched{loop_.Descriptor(), POLLIN, 0};
    while (stopWanted == 0) {
      if (poll(&watched, 1, -1) > 0) Turn();
      if (reportWanted != 0) Report();
    }
  }

 private:
  void Turn() {
    const double waitedBefore = processorWait_.Milliseconds();
    const Moment begin;
    loop_.RunOnce(0);
    const Moment end;
    const double waited = processorWait_.Milliseconds() - waitedBefore;
    ++turns_;
    turnKept_ = std::max(turnKept_, end.wall - begin.wall - waited);
    turnWall_ = std::max(turnWall_, end.wall - begin.wall);
    turnCpu_ = std::max(turnCpu_, end.cpu - begin.cpu);
    if (end.cpu - begin.cpu > kLongMilliseconds) ++longTurns_;
  }

  void Tick() {
    const Moment now;
    const double late = std::max(now.wall - lastTick_.wall - 1, 0.0);
    tickWall_ = std::max(tickWall_, late);
    tickCpu_ = std::max(tickCpu_, std::min(late, now.cpu - lastTick_.cpu));
    lastTick_ = now;
  }

  void Report() {
    reportWanted = 0;
    std::cout << "{\"turns\": " << turns_ << ", \"long_turns\": " << longTurns_ << ", \"turn_wall_ms\": " << turnWall_
              << ", \"turn_kept_ms\": " << turnKept_ << ", \"turn_cpu_ms\": " << turnCpu_
              << ", \"tick_wall_ms\": " << tickWall_ << ", \"tick_cpu_ms\": " << tickCpu_ << "}" << std::endl;
    turns_ = longTurns_ = 0;
    turnWall_ = turnKept_ = turnCpu_ = tickWall_ = tickCpu_ = 0;
    lastTick_ = {};
  }

  TesselServer::EventLoop& loop_;
  const ProcessorWait processorWait_;
  TesselServer::Timer timer_;
  long turns_ = 0, longTurns_ = 0;
  double turnWall_ = 0, turnKept_ = 0, turnCpu_ = 0, tickWall_ = 0, tickCpu_ = 0;
  Moment lastTick_;
};

}  // namespace

void RunWatched(TesselServer::EventLoop& loop) {
  signal(SIGUSR1, WantReport);
  signal(SIGTERM, WantStop);
  signal(SIGINT, WantStop);
  LoopWatch(loop).Run();
}

}  // namespace Comparison
